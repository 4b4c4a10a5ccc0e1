#pragma once

#include <QElapsedTimer>
#include <QString>

/// The one line on a terminal that tells how far a long command is. Prints nothing anywhere else.
///
/// To be called as often as there is news: it draws at most ten times a second.
class Progress
{
public:
    /// `unit` is what is counted, in the plural, or "bytes". Without colours the bar is plain text.
    Progress(bool isShown, const QString& unit, bool hasColours = false);
    /// Takes the line away.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Whether `update` would draw now: for whoever has to work to know what to tell.
    bool isDue() const;
    /// `total` 0 means that nobody knows it yet; `current` is what is worked on now, as it is.
    void update(qint64 done, qint64 total, const QString& current = {});
    /// Takes the line away so that something else can be printed; the next update draws it again.
    void clear();

private:
    const bool m_isShown;
    const QString m_unit;
    const bool m_hasColours;
    QElapsedTimer m_started;
    QElapsedTimer m_drawn;
    bool m_isDrawn = false;
};

/// A bar that shows how much is done, "[####......]", for the beginning of a line of `width` columns. Empty
/// where there is no room for it, or while `total` is 0. Pure.
QString progressBar(qint64 done, qint64 total, int width);

/// The text behind it, at most `width` columns: share, amount, rate, time left, then `current`, which
/// is shortened in the middle. Pure.
QString progressText(qint64 done, qint64 total, const QString& unit, qint64 elapsedMs, const QString& current,
                     int width);
