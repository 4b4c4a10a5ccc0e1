#include "unit/tvctl/hashlists/generateddevice.h"

#include "unit/tvctl/hashlists/liveheap.h"

#include <algorithm>
#include <utility>

namespace
{
/// Long enough that few copies fill a read.
QByteArray repeated(const QByteArray& text)
{
    return text.repeated(1 + 64 * 1024 / text.size());
}
} // namespace

GeneratedDevice::GeneratedDevice(QByteArray beginning, const QByteArray& middle, qint64 middleSize,
                                 QByteArray end)
    : m_beginning(std::move(beginning)),
      m_middle(repeated(middle)),
      m_middleSize(middleSize / middle.size() * middle.size()),
      m_end(std::move(end))
{
    // Nothing is read ahead into a buffer of the device's own.
    open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

qint64 GeneratedDevice::readData(char* data, qint64 size)
{
    watchHeap();
    const qint64 middleEnd = m_beginning.size() + m_middleSize;
    qint64 done = 0;
    while (done < size && m_position < middleEnd + m_end.size()) {
        QByteArray part = m_middle;
        qint64 from = (m_position - m_beginning.size()) % m_middle.size();
        if (m_position < m_beginning.size()) {
            part = m_beginning;
            from = m_position;
        } else if (m_position >= middleEnd) {
            part = m_end;
            from = m_position - middleEnd;
        }
        // The last copy of the middle need not be a whole one.
        const qint64 left = m_position < middleEnd ? middleEnd - m_position : size;
        const qint64 count = std::min({size - done, part.size() - from, left});
        std::copy_n(part.constData() + from, count, data + done);
        done += count;
        m_position += count;
    }
    return done > 0 ? done : -1;
}

void GeneratedDevice::watchHeap()
{
    // Counting walks over all that was freed, which takes longer than the reading between.
    constexpr qint64 step = 1024 * 1024;
    if (m_position < m_nextLook) {
        return;
    }
    m_nextLook = m_position + step;
    const qint64 heap = liveHeapSize();
    m_firstHeap = m_firstHeap < 0 ? heap : m_firstHeap;
    m_mostHeap = std::max(m_mostHeap, heap);
}

qint64 GeneratedDevice::writeData(const char*, qint64)
{
    return -1;
}
