#pragma once

#include <QElapsedTimer>
#include <QString>

/// The one line on a terminal that tells how far a long command is. Prints nothing anywhere else.
///
/// To be called as often as there is news: it draws at most ten times a second.
class Progress
{
public:
    /// `unit` is what is counted, in the plural, or "bytes".
    Progress(bool isShown, const QString& unit);
    /// Takes the line away.
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// `total` 0 means that nobody knows it yet; `current` is what is worked on now, as it is.
    void update(qint64 done, qint64 total, const QString& current = {});
    /// Takes the line away so that something else can be printed; the next update draws it again.
    void clear();

private:
    const bool m_isShown;
    const QString m_unit;
    QElapsedTimer m_started;
    QElapsedTimer m_drawn;
    bool m_isDrawn = false;
};

/// The text of such a line, at most `width` columns: share, amount, rate, time left, then `current`, which
/// is shortened in the middle. Pure.
QString progressText(qint64 done, qint64 total, const QString& unit, qint64 elapsedMs, const QString& current,
                     int width);
