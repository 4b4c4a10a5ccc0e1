#pragma once

#include <QHash>
#include <QPair>
#include <QString>
#include <QVector>

/// Counts texts to find the most frequent ones.
///
/// Keeps at most `maxTexts` different ones, so that nobody who names files fills the memory: of more, the
/// rarest half is forgotten, and what is counted from then on may be a little low.
class TopCounter
{
public:
    static constexpr int maxTexts = 100000;

    void add(const QString& text);

    /// The `limit` most frequent ones, with how often; of equals, by the alphabet.
    QVector<QPair<QString, qint64>> top(int limit) const;

    bool isExact() const
    {
        return m_isExact;
    }

private:
    void forgetRarest();

    QHash<QString, qint64> m_counts;
    bool m_isExact = true;
};
