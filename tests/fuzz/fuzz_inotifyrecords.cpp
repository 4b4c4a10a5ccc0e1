// The walk over the kernel's records of file events: it finds the records that lie whole in the buffer, in
// their order, and looks at nothing outside.

#include "fuzz/property.h"
#include "monitor/inotifyrecords.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // Exactly as large as what was read, so that a step over its end is seen.
    const std::unique_ptr<char[]> buffer(new char[size]);
    std::copy_n(data, size, buffer.get());

    InotifyRecords records(buffer.get(), size);
    std::size_t offset = 0;
    while (size - offset >= sizeof(inotify_event) && offset % alignof(inotify_event) == 0) {
        inotify_event header = {};
        std::memcpy(&header, data + offset, sizeof(header));
        if (size - offset - sizeof(header) < header.len) {
            break;
        }
        const inotify_event* const event = records.next();
        require(event != nullptr, "a whole record is found");
        require(reinterpret_cast<const char*>(event) == buffer.get() + offset,
                "records follow each other without gaps");
        const auto* const text = reinterpret_cast<const char*>(data) + offset + sizeof(header);
        const auto length = static_cast<int>(std::find(text, text + header.len, '\0') - text);
        require(nameOf(*event) == QByteArray(text, length),
                "a name is what stands in the buffer up to a zero byte");
        offset += sizeof(header) + header.len;
    }
    require(records.next() == nullptr && records.next() == nullptr, "a record that is cut off ends the walk");
    require(
        std::equal(data, data + size, buffer.get(),
                   [](std::uint8_t left, char right) { return left == static_cast<std::uint8_t>(right); }),
        "the walk changes nothing");
    return 0;
}
