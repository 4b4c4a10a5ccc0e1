#include "common/filename.h"

#include <algorithm>

namespace
{
constexpr ushort escapeBase = 0xDC00;
constexpr ushort firstEscape = 0xDC80;
constexpr ushort lastEscape = 0xDCFF;

bool isBeyondAscii(uchar byte)
{
    return byte >= 0x80;
}

/// A decoded character, or a length of 0 when the bytes start no valid one.
struct Decoded
{
    uint codePoint;
    int length;
};

/// The character beyond ASCII that `bytes` starts with: `available` of them may be read, at least one.
Decoded decodeFirst(const uchar* bytes, int available)
{
    const uchar lead = bytes[0];
    const int length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || available < length) {
        return {0, 0};
    }
    uint codePoint = lead & (0xFFU >> (length + 1));
    for (int i = 1; i < length; ++i) {
        if ((bytes[i] & 0xC0) != 0x80) {
            return {0, 0};
        }
        codePoint = codePoint << 6 | (bytes[i] & 0x3FU);
    }
    const bool overlong = (length == 3 && codePoint < 0x800) || (length == 4 && codePoint < 0x10000);
    if (overlong || codePoint > 0x10FFFF || QChar::isSurrogate(codePoint)) {
        return {0, 0};
    }
    return {codePoint, length};
}

bool isEscapedByte(const QString& text, int position)
{
    const ushort unit = text.at(position).unicode();
    return unit >= firstEscape && unit <= lastEscape &&
           (position == 0 || !text.at(position - 1).isHighSurrogate());
}
} // namespace

QString FileName::toText(const QByteArray& name)
{
    QString text;
    append(text, name);
    return text;
}

void FileName::append(QString& text, const QByteArray& name)
{
    // QString::fromUtf8 would not do: it drops a leading U+FEFF and merges bad bytes into U+FFFD, and
    // the file would never be found again.
    const auto* bytes = reinterpret_cast<const uchar*>(name.constData());
    const uchar* const end = bytes + name.size();
    text.reserve(text.size() + name.size());
    for (int i = 0; i < name.size();) {
        // Most names are nothing else.
        const int ascii = static_cast<int>(std::find_if(bytes + i, end, isBeyondAscii) - (bytes + i));
        if (ascii > 0) {
            text += QLatin1String(name.constData() + i, ascii);
            i += ascii;
            continue;
        }
        const Decoded decoded = decodeFirst(bytes + i, name.size() - i);
        if (decoded.length == 0) {
            text += QChar(static_cast<ushort>(escapeBase + bytes[i]));
            ++i;
            continue;
        }
        if (QChar::requiresSurrogates(decoded.codePoint)) {
            text += QChar(QChar::highSurrogate(decoded.codePoint));
            text += QChar(QChar::lowSurrogate(decoded.codePoint));
        } else {
            text += QChar(static_cast<ushort>(decoded.codePoint));
        }
        i += decoded.length;
    }
}

QByteArray FileName::toBytes(const QString& text)
{
    QByteArray bytes;
    int plainStart = 0;
    for (int i = 0; i < text.size(); ++i) {
        if (isEscapedByte(text, i)) {
            bytes += text.mid(plainStart, i - plainStart).toUtf8();
            bytes += static_cast<char>(text.at(i).unicode() - escapeBase);
            plainStart = i + 1;
        }
    }
    return plainStart == 0 ? text.toUtf8() : bytes + text.mid(plainStart).toUtf8();
}

QString FileName::toDisplay(const QString& text)
{
    QString shown;
    int plainStart = 0;
    for (int i = 0; i < text.size(); ++i) {
        if (isEscapedByte(text, i)) {
            const uint byte = text.at(i).unicode() - escapeBase;
            shown += text.mid(plainStart, i - plainStart) + QStringLiteral("\\x") + QString::number(byte, 16);
            plainStart = i + 1;
        }
    }
    return plainStart == 0 ? text : shown + text.mid(plainStart);
}
