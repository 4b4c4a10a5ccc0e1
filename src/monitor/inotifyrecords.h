#pragma once

#include <QByteArray>

#include <cstddef>

#include <sys/inotify.h>

/// Walks the event records that one read of an inotify descriptor returned, in place.
///
/// The buffer must be aligned for `inotify_event` and outlive the walk. A record that does not lie whole
/// in the buffer, or not aligned, ends the walk: the kernel never returns one.
class InotifyRecords
{
public:
    InotifyRecords(char* buffer, size_t size) : m_buffer(buffer), m_size(size)
    {
    }

    /// The next record, nullptr after the last.
    inotify_event* next();

private:
    char* m_buffer;
    size_t m_size;
    size_t m_offset = 0;
};

/// The name in `event` without its padding; empty for an event on the watched directory itself.
QByteArray nameOf(const inotify_event& event);
