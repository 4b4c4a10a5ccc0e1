#include "tvctl/hashlists/hashlistinput.h"

#include <QIODevice>
#include <QTextCodec>

#include <algorithm>
#include <utility>

namespace
{
constexpr int chunkSize = 64 * 1024;

/// UTF-16 begins with a character of ASCII in every list there is, so that one of its bytes is zero.
QTextCodec* unmarkedCodecOf(const QByteArray& bytes)
{
    if (bytes.size() < 4) {
        return nullptr;
    }
    if (bytes[0] != '\0' && bytes[1] == '\0' && bytes[2] != '\0' && bytes[3] == '\0') {
        return QTextCodec::codecForName("UTF-16LE");
    }
    if (bytes[0] == '\0' && bytes[1] != '\0' && bytes[2] == '\0' && bytes[3] != '\0') {
        return QTextCodec::codecForName("UTF-16BE");
    }
    return nullptr;
}
} // namespace

HashListInput::HashListInput(QIODevice& device, Progress progress)
    : m_device(device),
      m_progress(std::move(progress)),
      m_total(device.isSequential() ? -1 : device.size())
{
}

std::string_view HashListInput::beginning()
{
    if (!m_isAhead) {
        readChunk();
        decode();
        m_isAhead = true;
    }
    return m_text;
}

std::string_view HashListInput::read()
{
    if (std::exchange(m_isAhead, false) && !m_text.empty()) {
        return m_text;
    }
    do {
        readChunk();
        decode();
        // Some of the pieces hold nothing but the second half of a line end.
    } while (m_text.empty() && !m_bytes.isEmpty());
    return m_text;
}

void HashListInput::readChunk()
{
    m_bytes.resize(chunkSize);
    int size = 0;
    // A pipe gives little at a time, and the encoding is told from the first bytes.
    while (size < chunkSize && !m_isAtEnd) {
        const qint64 count = m_device.read(m_bytes.data() + size, chunkSize - size);
        if (count < 0 && !m_device.atEnd()) {
            m_error = m_device.errorString();
        }
        m_isAtEnd = count <= 0;
        size += static_cast<int>(std::max<qint64>(count, 0));
    }
    m_bytes.resize(size);
    m_done += size;
    if (size > 0 && m_progress && !m_progress(m_done, m_total)) {
        m_isCancelled = true;
        m_isAtEnd = true;
        m_bytes.clear();
    }
}

void HashListInput::recogniseEncoding()
{
    if (m_bytes.startsWith("\xEF\xBB\xBF")) {
        m_bytes.remove(0, 3);
        return;
    }
    QTextCodec* codec = QTextCodec::codecForUtfText(m_bytes, unmarkedCodecOf(m_bytes));
    if (codec != nullptr) {
        m_decoder.reset(codec->makeDecoder());
    }
}

void HashListInput::decode()
{
    if (std::exchange(m_isFirst, false)) {
        recogniseEncoding();
    }
    if (m_decoder) {
        m_text = m_decoder->toUnicode(m_bytes).toStdString();
    } else {
        m_text.assign(m_bytes.constData(), static_cast<std::size_t>(m_bytes.size()));
    }
    const std::size_t zero = m_text.find('\0');
    if (zero != std::string::npos) {
        m_text.resize(zero);
        m_bytes.clear();
        m_isAtEnd = true;
        m_error = QStringLiteral("it holds zero bytes, so it is no text");
    }
    unifyLineEnds();
}

void HashListInput::unifyLineEnds()
{
    if (!m_endsInReturn && m_text.find('\r') == std::string::npos) {
        return;
    }
    std::size_t size = 0;
    for (const char letter : m_text) {
        if (letter != '\n' || !m_endsInReturn) {
            m_text[size++] = letter == '\r' ? '\n' : letter;
        }
        m_endsInReturn = letter == '\r';
    }
    m_text.resize(size);
}
