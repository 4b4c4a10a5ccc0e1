#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>

/// Takes the input of a fuzz target apart into texts that end at a unit separator (0x1F), so that the corpus
/// stays readable.
class Pieces
{
public:
    Pieces(const std::uint8_t* data, std::size_t size)
        : m_rest(reinterpret_cast<const char*>(data), static_cast<int>(size))
    {
    }

    bool isAtEnd() const
    {
        return m_rest.isEmpty();
    }

    /// The next text; empty behind the last.
    QByteArray next()
    {
        constexpr char separator = '\x1f';
        const int end = m_rest.indexOf(separator);
        const QByteArray piece = m_rest.left(end);
        m_rest = end < 0 ? QByteArray() : m_rest.mid(end + 1);
        return piece;
    }

    /// The next text as a number; 0 when it is none.
    qint64 nextNumber()
    {
        return next().toLongLong();
    }

private:
    QByteArray m_rest;
};
