#include "tvctl/commands/shortpath.h"

namespace
{
constexpr int longest = 512;
constexpr int kept = 250;
constexpr int longestRecorded = 4096;

bool isInsideCharacter(char byte)
{
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}
} // namespace

QByteArray shortPath(const QByteArray& path)
{
    if (path.size() <= longest) {
        return path;
    }
    constexpr int longestCharacter = 4;
    int head = kept;
    while (head > kept - longestCharacter && isInsideCharacter(path.at(head))) {
        --head;
    }
    int tail = path.size() - kept;
    while (tail < path.size() - kept + longestCharacter && isInsideCharacter(path.at(tail))) {
        ++tail;
    }
    return path.left(head) + "..." + path.mid(tail);
}

QByteArray recordedPath(const QByteArray& path)
{
    return path.size() <= longestRecorded ? path : shortPath(path);
}
