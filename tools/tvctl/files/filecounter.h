#pragma once

#include "tvctl/files/treewalker.h"

#include <QByteArray>
#include <QVector>

#include <atomic>
#include <thread>

/// Counts the regular files below some roots on a thread of its own, so that somebody who watches a long
/// command learns how much is left without waiting for it.
class FileCounter
{
public:
    /// `isSkipped` is called on that thread.
    FileCounter(const QVector<QByteArray>& roots, const TreeWalker::SkipRule& isSkipped);
    /// Stops counting.
    ~FileCounter();
    FileCounter(const FileCounter&) = delete;
    FileCounter& operator=(const FileCounter&) = delete;

    /// How many there are; 0 while nobody knows.
    qint64 total() const
    {
        return m_total;
    }

private:
    void count(const QVector<QByteArray>& roots, const TreeWalker::SkipRule& isSkipped);

    std::atomic<bool> m_isStopped = false;
    std::atomic<qint64> m_total = 0;
    std::thread m_thread;
};
