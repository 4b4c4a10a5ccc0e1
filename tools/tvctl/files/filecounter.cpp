#include "tvctl/files/filecounter.h"

FileCounter::FileCounter(const QVector<QByteArray>& roots, const TreeWalker::SkipRule& isSkipped)
    : m_thread([this, roots, isSkipped] { count(roots, isSkipped); })
{
}

FileCounter::~FileCounter()
{
    m_isStopped = true;
    m_thread.join();
}

void FileCounter::count(const QVector<QByteArray>& roots, const TreeWalker::SkipRule& isSkipped)
{
    qint64 files = 0;
    for (const QByteArray& root : roots) {
        TreeWalker walker(root, isSkipped);
        while (!m_isStopped && walker.next()) {
            files += walker.kind() == TreeWalker::Kind::File ? 1 : 0;
        }
    }
    if (!m_isStopped) {
        m_total = files;
    }
}
