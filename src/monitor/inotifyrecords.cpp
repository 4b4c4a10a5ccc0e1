#include "monitor/inotifyrecords.h"

#include <cstring>

inotify_event* InotifyRecords::next()
{
    const size_t left = m_size - m_offset;
    if (left < sizeof(inotify_event) || m_offset % alignof(inotify_event) != 0) {
        return nullptr;
    }
    auto* event = reinterpret_cast<inotify_event*>(m_buffer + m_offset);
    if (event->len > left - sizeof(inotify_event)) {
        return nullptr;
    }
    m_offset += sizeof(inotify_event) + event->len;
    return event;
}

QByteArray nameOf(const inotify_event& event)
{
    return QByteArray(event.name, static_cast<int>(strnlen(event.name, event.len)));
}
