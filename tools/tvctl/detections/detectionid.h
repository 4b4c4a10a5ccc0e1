#pragma once

#include "platform/tvcore/virusreport.h"

#include <QString>
#include <QtGlobal>

#include <optional>

/// What tells a detection from every other, also from those of a store that was set aside and begun anew,
/// where the numbers start again: the number, and beside it the time in milliseconds since 1970.
///
/// In text "17-1795262400000".
class DetectionId
{
public:
    /// Of the place before the first record.
    DetectionId() = default;
    explicit DetectionId(const VirusReport& report);

    /// Takes what `text` gives, and the number alone as well. Nothing for any other text.
    static std::optional<DetectionId> parse(const QString& text);

    QString text() const;
    qint64 number() const
    {
        return m_number;
    }

    /// Whether `report` is the record that is meant, as far as this knows.
    bool isOf(const VirusReport& report) const;

private:
    qint64 m_number = 0;
    /// Not known when only a number was given.
    std::optional<qint64> m_time;
};
