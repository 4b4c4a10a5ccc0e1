#include "tvctl/sweep/sweepstate.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QIODevice>

namespace
{
constexpr int digestBytes = 32;

QByteArray stateHeading()
{
    return QByteArrayLiteral("tvctl sweep state 1\n");
}

QByteArray sealOf(const QByteArray& bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256);
}
} // namespace

QByteArray encode(const SweepState& state)
{
    QByteArray fields;
    QDataStream stream(&fields, QIODevice::WriteOnly);
    stream.setVersion(QDataStream::Qt_5_12);
    stream << state.begun << state.directories.packed() << state.again.packed();
    QByteArray bytes = stateHeading() + fields;
    bytes += sealOf(bytes);
    return bytes;
}

std::optional<SweepState> decodeState(const QByteArray& bytes)
{
    const QByteArray head = stateHeading();
    const QByteArray content = bytes.left(bytes.size() - digestBytes);
    if (!content.startsWith(head) || bytes.right(digestBytes) != sealOf(content)) {
        return std::nullopt;
    }
    SweepState state;
    QByteArray directories;
    QByteArray again;
    QDataStream stream(content.mid(head.size()));
    stream.setVersion(QDataStream::Qt_5_12);
    stream >> state.begun >> directories >> again;
    if (stream.status() != QDataStream::Ok) {
        return std::nullopt;
    }
    state.directories = Places(directories);
    state.again = Places(again);
    return state;
}
