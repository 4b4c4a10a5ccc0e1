#include "platform/tvcore/packedtexts.h"

#include <QtEndian>

#include <algorithm>

namespace
{
constexpr int headerSize = sizeof(quint32);
constexpr quint32 wideFlag = 1;
constexpr ushort lastLatin1 = 0xFF;

bool isLatin1(const QString& text)
{
    return std::all_of(text.cbegin(), text.cend(), [](QChar unit) { return unit.unicode() <= lastLatin1; });
}
} // namespace

void PackedTexts::append(QByteArray& packed, const QString& text)
{
    const bool isWide = !isLatin1(text);
    const int start = packed.size();
    packed.resize(start + headerSize + text.size() * (isWide ? 2 : 1));
    char* target = packed.data() + start;
    qToLittleEndian(static_cast<quint32>(text.size()) << 1 | (isWide ? wideFlag : 0), target);
    target += headerSize;
    if (isWide) {
        qToLittleEndian<ushort>(text.utf16(), text.size(), target);
    } else {
        std::transform(text.cbegin(), text.cend(), target, [](QChar unit) { return unit.toLatin1(); });
    }
}

bool PackedTexts::unpack(const QByteArray& packed, QStringList& texts)
{
    const char* source = packed.constData();
    const char* const end = source + packed.size();
    while (end - source >= headerSize) {
        const auto header = qFromLittleEndian<quint32>(source);
        source += headerSize;
        const bool isWide = (header & wideFlag) != 0;
        const qint64 unitCount = header >> 1;
        const qint64 byteCount = isWide ? unitCount * 2 : unitCount;
        if (byteCount > end - source) {
            return false;
        }
        if (isWide) {
            QString text(static_cast<int>(unitCount), Qt::Uninitialized);
            qFromLittleEndian<ushort>(source, unitCount, text.data());
            texts.append(text);
        } else {
            texts.append(QString::fromLatin1(source, static_cast<int>(unitCount)));
        }
        source += byteCount;
    }
    return source == end;
}
