#include "tvctl/detections/detectioncursor.h"

#include "common/filename.h"
#include "tvctl/console/toolerror.h"

#include <QByteArray>

#include <algorithm>
#include <array>
#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
constexpr mode_t ownerOnly = 0600;
/// More than the longest text of an id. Always as much is written, in one piece: the end of the program
/// leaves either the old one or the new one.
constexpr int cursorSize = 64;
} // namespace

DetectionCursor::DetectionCursor(const QString& path) : m_path(path)
{
    // Without waiting: it may be a FIFO.
    m_file.reset(::open(FileName::toBytes(path).constData(),
                        O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, ownerOnly));
    if (!m_file.isValid()) {
        fail(errno);
    }
    if (::flock(m_file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) {
            fail(errno);
        }
        throw ToolError(QStringLiteral("%1 is in use; end the other one, or name another file").arg(path));
    }
    read();
}

void DetectionCursor::moveTo(const DetectionId& id)
{
    const QByteArray text = id.text().toLatin1();
    std::array<char, cursorSize> content{};
    content.fill(' ');
    std::copy_n(text.begin(), std::min(text.size(), cursorSize - 1), content.begin());
    content.back() = '\n';
    if (::pwrite(m_file.get(), content.data(), content.size(), 0) != cursorSize) {
        fail(errno);
    }
    m_last = id;
}

void DetectionCursor::read()
{
    struct stat status = {};
    // One more than there may be.
    std::array<char, cursorSize + 1> content{};
    const ssize_t count = ::pread(m_file.get(), content.data(), content.size(), 0);
    if (count < 0 || ::fstat(m_file.get(), &status) != 0) {
        fail(errno);
    }
    // A machine that went down may have kept the length without the content.
    const QByteArray text = QByteArray(content.data(), static_cast<int>(count)).replace('\0', ' ').trimmed();
    const auto id = text.isEmpty() ? DetectionId() : DetectionId::parse(QString::fromLatin1(text));
    if (!S_ISREG(status.st_mode) || count > cursorSize || !id) {
        throw ToolError(
            QStringLiteral("%1 holds no event_id; name another file, or remove it to begin with the "
                           "first detection")
                .arg(m_path));
    }
    m_last = *id;
}

void DetectionCursor::fail(int error) const
{
    throw ToolError(
        QStringLiteral("cannot keep %1: %2; name another file").arg(m_path, qt_error_string(error)));
}
