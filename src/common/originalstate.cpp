#include "common/originalstate.h"

#include <QList>

#include <array>
#include <limits>

#include <sys/xattr.h>

namespace
{
constexpr const char* attributeName = "user.tvfilemon.original";
constexpr mode_t modeBits = 07777;
/// The longest text has less: three numbers of ten digits at most and one of twenty.
constexpr size_t maxTextSize = 128;
constexpr int nanosecondDigits = 9;
constexpr long nanosecondsOfASecond = 1000000000;

/// The number behind `key` in `word`; nothing when there is none that `Number` can hold.
template <typename Number> std::optional<Number> valueOf(const QByteArray& word, const char* key, int base)
{
    if (!word.startsWith(key)) {
        return std::nullopt;
    }
    bool isNumber = false;
    const qlonglong value = word.mid(static_cast<int>(qstrlen(key))).toLongLong(&isNumber, base);
    if (!isNumber || value < static_cast<qlonglong>(std::numeric_limits<Number>::min()) ||
        value > static_cast<qlonglong>(std::numeric_limits<Number>::max())) {
        return std::nullopt;
    }
    return static_cast<Number>(value);
}
} // namespace

OriginalState OriginalState::of(const struct stat& status)
{
    return {status.st_mode & modeBits, status.st_uid, status.st_gid, status.st_mtim};
}

QByteArray OriginalState::toText() const
{
    const auto padded = [](qlonglong number, int base, int digits) {
        return QByteArray::number(number, base).rightJustified(digits, '0');
    };
    return "mode=" + padded(mode, 8, 4) + " uid=" + QByteArray::number(uid) +
           " gid=" + QByteArray::number(gid) + " mtime=" + QByteArray::number(qlonglong(modified.tv_sec)) +
           '.' + padded(modified.tv_nsec, 10, nanosecondDigits);
}

std::optional<OriginalState> OriginalState::fromText(const QByteArray& text)
{
    const QList<QByteArray> words = text.split(' ');
    const QList<QByteArray> time = words.value(3).split('.');
    const auto mode = valueOf<mode_t>(words.value(0), "mode=", 8);
    const auto uid = valueOf<uid_t>(words.value(1), "uid=", 10);
    const auto gid = valueOf<gid_t>(words.value(2), "gid=", 10);
    const auto seconds = valueOf<time_t>(time.value(0), "mtime=", 10);
    const auto nanoseconds = valueOf<long>(time.value(1), "", 10);
    if (!mode || !uid || !gid || !seconds || !nanoseconds || *nanoseconds >= nanosecondsOfASecond ||
        (*mode & ~modeBits) != 0) {
        return std::nullopt;
    }
    const OriginalState state = {*mode, *uid, *gid, {*seconds, *nanoseconds}};
    // One spelling for each state: signs, blanks, missing zeros and further words are none of it.
    return state.toText() == text ? std::optional(state) : std::nullopt;
}

bool OriginalState::attachTo(int file) const
{
    const QByteArray text = toText();
    return ::fsetxattr(file, attributeName, text.constData(), static_cast<size_t>(text.size()), 0) == 0;
}

std::optional<OriginalState> OriginalState::attachedTo(int file)
{
    std::array<char, maxTextSize> text;
    const ssize_t size = ::fgetxattr(file, attributeName, text.data(), text.size());
    return size < 0 ? std::nullopt : fromText(QByteArray(text.data(), static_cast<int>(size)));
}
