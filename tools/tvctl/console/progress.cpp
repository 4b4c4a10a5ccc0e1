#include "tvctl/console/progress.h"

#include "common/common.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/textwidth.h"
#include "tvctl/console/timetext.h"

#include <QLocale>
#include <QStringList>

#include <cstdio>

#include <sys/ioctl.h>
#include <unistd.h>

namespace
{
constexpr qint64 drawIntervalMs = 100;
constexpr int usualWidth = 80;
/// Before that a rate says more about the start than about what is to come.
constexpr qint64 settledMs = 1000;
/// A thousand years; a slow start can promise more than a number holds.
constexpr double longestSpan = 365.0 * 24 * 60 * 60 * 1000;
/// More than there is of anything, and what a number still holds.
constexpr double mostPerSecond = 1e18;

int terminalWidth()
{
    struct winsize size = {};
    return ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : usualWidth;
}

double shareOf(qint64 done, qint64 total)
{
    return qBound(0.0, static_cast<double>(done) / static_cast<double>(total), 1.0);
}

QString amount(qint64 count, const QString& unit)
{
    if (unit == QLatin1String("bytes")) {
        return Common::getSizeInString(static_cast<unsigned long long>(count));
    }
    return QLocale::c().toString(count) + QLatin1Char(' ') + unit;
}

/// The beginning of a path tells where it is, its end what it is.
QString shortened(const QString& text, int width)
{
    if (TextWidth::of(text) <= width) {
        return text;
    }
    constexpr int shortest = 10;
    if (width < shortest) {
        return {};
    }
    const QString gap = QStringLiteral("...");
    const int head = (width - gap.size()) / 2;
    return TextWidth::left(text, head) + gap + TextWidth::right(text, width - gap.size() - head);
}

QString withoutSpacesAtEnd(const QString& text)
{
    int size = text.size();
    while (size > 0 && text.at(size - 1) == QLatin1Char(' ')) {
        --size;
    }
    return text.left(size);
}
} // namespace

QString progressBar(qint64 done, qint64 total, int width)
{
    constexpr int longest = 40;
    // The numbers and a bit of the path need the rest.
    constexpr int wantedByText = 40;
    constexpr int shortest = 8;
    const int size = qMin(width / 3, longest);
    if (total <= 0 || size < shortest || width - size < wantedByText) {
        return {};
    }
    const int inside = size - 2;
    const int filled = static_cast<int>(shareOf(done, total) * inside);
    return QLatin1Char('[') + QString(filled, QLatin1Char('#')) + QString(inside - filled, QLatin1Char('.')) +
           QLatin1Char(']');
}

QString progressText(qint64 done, qint64 total, const QString& unit, qint64 elapsedMs, const QString& current,
                     int width)
{
    QStringList parts;
    if (total > 0) {
        parts << QStringLiteral("%1%").arg(static_cast<int>(shareOf(done, total) * 100), 3);
    }
    parts << amount(done, unit);
    if (elapsedMs >= settledMs && done > 0) {
        const double perMs = static_cast<double>(done) / static_cast<double>(elapsedMs);
        parts << amount(static_cast<qint64>(qMin(perMs * 1000, mostPerSecond)), unit) + QStringLiteral("/s");
        if (total > done) {
            const double leftSeconds = static_cast<double>(total - done) / perMs / 1000;
            parts << TimeText::formatSpan(static_cast<qint64>(qMin(leftSeconds, longestSpan))) +
                         QStringLiteral(" left");
        }
    }
    QString text = parts.join(QStringLiteral("  "));
    if (!current.isEmpty()) {
        text += QStringLiteral("  ");
        text += shortened(printable(current), width - TextWidth::of(text));
    }
    return withoutSpacesAtEnd(TextWidth::left(text, width));
}

Progress::Progress(bool isShown, const QString& unit, bool hasColours)
    : m_isShown(isShown),
      m_unit(unit),
      m_hasColours(hasColours)
{
    m_started.start();
}

Progress::~Progress()
{
    clear();
}

bool Progress::isDue() const
{
    return m_isShown && (!m_drawn.isValid() || m_drawn.hasExpired(drawIntervalMs));
}

void Progress::update(qint64 done, qint64 total, const QString& current)
{
    if (!isDue()) {
        return;
    }
    m_drawn.start();
    m_isDrawn = true;
    // One column stays free: a terminal that wraps at the last one would leave a line behind each time.
    const int width = terminalWidth() - 1;
    QString bar = progressBar(done, total, width);
    const int taken = bar.isEmpty() ? 0 : bar.size() + 1;
    const QString text = progressText(done, total, m_unit, m_started.elapsed(), current, width - taken);
    if (m_hasColours) {
        bar.replace(QLatin1Char('['), QStringLiteral("[\033[32m"))
            .replace(QLatin1Char(']'), QStringLiteral("\033[0m]"));
    }
    std::fprintf(stderr, "\r\033[K%s%s%s", bar.toUtf8().constData(), bar.isEmpty() ? "" : " ",
                 text.toUtf8().constData());
}

void Progress::clear()
{
    if (m_isDrawn) {
        std::fputs("\r\033[K", stderr);
        m_isDrawn = false;
        m_drawn.invalidate();
    }
}
