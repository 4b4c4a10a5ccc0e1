#include "tvctl/sweep/sweepjournal.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QIODevice>

namespace
{
QByteArray journalHeading()
{
    return QByteArrayLiteral("tvctl sweep journal 2\n");
}

QByteArray digestOf(const QByteArray& bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
}

template <typename... Fields> QByteArray blockOf(const Fields&... fields)
{
    QByteArray content;
    QDataStream inner(&content, QIODevice::WriteOnly);
    inner.setVersion(QDataStream::Qt_5_12);
    (inner << ... << fields);
    QByteArray block;
    QDataStream outer(&block, QIODevice::WriteOnly);
    outer << content << digestOf(content);
    return block;
}

/// Fills `fields` from the next block; false when there is no whole one.
template <typename... Fields> bool readBlock(QDataStream& stream, Fields&... fields)
{
    QByteArray content;
    QByteArray digest;
    stream >> content >> digest;
    if (stream.status() != QDataStream::Ok || digest != digestOf(content)) {
        return false;
    }
    QDataStream inner(content);
    inner.setVersion(QDataStream::Qt_5_12);
    (inner >> ... >> fields);
    return inner.status() == QDataStream::Ok;
}
} // namespace

QByteArray SweepJournal::encode(const Begin& begin)
{
    return journalHeading() + blockOf(begin.begun, begin.isFull);
}

QByteArray SweepJournal::encode(const Step& step)
{
    return blockOf(step.root, step.path, step.isDone, step.directories, step.again);
}

std::optional<SweepJournal::Content> SweepJournal::decode(const QByteArray& bytes)
{
    if (!bytes.startsWith(journalHeading())) {
        return std::nullopt;
    }
    QDataStream stream(bytes);
    stream.skipRawData(journalHeading().size());
    Content content;
    if (!readBlock(stream, content.begin.begun, content.begin.isFull)) {
        return std::nullopt;
    }
    Step step;
    do {
        content.size = static_cast<int>(stream.device()->pos());
        content.done.root = step.root;
        content.done.path = step.path;
        content.done.isDone = step.isDone;
        content.done.directories += step.directories;
        content.done.again += step.again;
    } while (readBlock(stream, step.root, step.path, step.isDone, step.directories, step.again));
    return content;
}
