#pragma once

#include <QByteArray>
#include <QString>
#include <QTextDecoder>

#include <functional>
#include <memory>
#include <string>
#include <string_view>

class QIODevice;

/// A list that is read once from its beginning to its end, in pieces of constant size.
///
/// Text comes as UTF-8 whatever the list is written in: UTF-8 or any one-byte extension of ASCII is passed on
/// as it is, UTF-16 and UTF-32 are recognised by their mark, UTF-16 also without. Every line ends in "\n",
/// whether the list has "\n", "\r\n" or "\r". A zero character says that this is no text, and ends it.
class HashListInput
{
public:
    /// Gets how many bytes are read and how many there are, -1 when nobody knows; false ends the reading.
    using Progress = std::function<bool(qint64 done, qint64 total)>;

    /// Reads from where the device, which outlives this, stands.
    explicit HashListInput(QIODevice& device, Progress progress = {});

    /// The first text of the list, up to some 64 KiB. It is read again afterwards. Only to be
    /// asked before the first `read`.
    std::string_view beginning();

    /// The next piece; empty at the end, whatever the reason for it. Valid until the next call.
    std::string_view read();

    bool isCancelled() const
    {
        return m_isCancelled;
    }
    /// Why the end came too early; empty when it did not.
    QString error() const
    {
        return m_error;
    }

private:
    void readChunk();
    void recogniseEncoding();
    void decode();
    void unifyLineEnds();

    QIODevice& m_device;
    Progress m_progress;
    qint64 m_total = -1;
    qint64 m_done = 0;
    std::unique_ptr<QTextDecoder> m_decoder;
    QByteArray m_bytes;
    std::string m_text;
    QString m_error;
    bool m_isFirst = true;
    /// What is in `m_text` was looked at by `beginning` only.
    bool m_isAhead = false;
    bool m_isAtEnd = false;
    bool m_isCancelled = false;
    bool m_endsInReturn = false;
};
