#include "tvctl/detections/topcounter.h"

#include <algorithm>

void TopCounter::add(const QString& text)
{
    ++m_counts[text];
    if (m_counts.size() > maxTexts) {
        forgetRarest();
    }
}

QVector<QPair<QString, qint64>> TopCounter::top(int limit) const
{
    QVector<QPair<QString, qint64>> all;
    all.reserve(m_counts.size());
    for (auto count = m_counts.cbegin(); count != m_counts.cend(); ++count) {
        all.append({count.key(), count.value()});
    }
    const int size = std::min(limit, all.size());
    std::partial_sort(all.begin(), all.begin() + size, all.end(), [](const auto& left, const auto& right) {
        return left.second != right.second ? left.second > right.second : left.first < right.first;
    });
    all.resize(size);
    return all;
}

void TopCounter::forgetRarest()
{
    const QVector<QPair<QString, qint64>> kept = top(maxTexts / 2);
    m_counts.clear();
    for (const auto& [text, count] : kept) {
        m_counts.insert(text, count);
    }
    m_isExact = false;
}
