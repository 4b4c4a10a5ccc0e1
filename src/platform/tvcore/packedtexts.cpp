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
    return split(packed, [&texts](std::string_view item) {
        const auto header = qFromLittleEndian<quint32>(item.data());
        const char* const units = item.data() + headerSize;
        if ((header & wideFlag) != 0) {
            QString text(static_cast<int>(header >> 1), Qt::Uninitialized);
            qFromLittleEndian<ushort>(units, header >> 1, text.data());
            texts.append(text);
        } else {
            texts.append(QString::fromLatin1(units, static_cast<int>(header >> 1)));
        }
    });
}

std::string_view PackedTexts::itemAt(const char* start)
{
    const auto header = qFromLittleEndian<quint32>(start);
    const std::size_t unitCount = header >> 1;
    return {start, headerSize + ((header & wideFlag) != 0 ? unitCount * 2 : unitCount)};
}

bool PackedTexts::split(const QByteArray& packed, const std::function<void(std::string_view)>& each)
{
    const char* source = packed.constData();
    const char* const end = source + packed.size();
    while (end - source >= headerSize) {
        const std::string_view item = itemAt(source);
        if (item.size() > static_cast<std::size_t>(end - source)) {
            return false;
        }
        each(item);
        source += item.size();
    }
    return source == end;
}
