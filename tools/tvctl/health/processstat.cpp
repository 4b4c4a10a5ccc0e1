#include "tvctl/health/processstat.h"

#include <QList>

namespace
{
/// Counted from the state, the first behind the name.
constexpr int startField = 19;
} // namespace

std::optional<ProcessStat> parseProcessStat(const QByteArray& text)
{
    // The name may hold blanks and parentheses of its own.
    const int open = text.indexOf('(');
    const int close = text.lastIndexOf(')');
    if (open < 0 || close < open) {
        return std::nullopt;
    }
    const QList<QByteArray> fields = text.mid(close + 1).simplified().split(' ');
    if (fields.size() <= startField || fields.first().size() != 1) {
        return std::nullopt;
    }
    bool isNumber = false;
    ProcessStat stat{text.mid(open + 1, close - open - 1), fields.first().at(0),
                     fields.at(startField).toULongLong(&isNumber)};
    return isNumber ? std::make_optional(stat) : std::nullopt;
}
