#include "tvctl/sweep/stumblingblock.h"

#include <algorithm>
#include <cstring>

#include <unistd.h>

namespace
{
/// What is in the file: how often sweeps have ended at `suspect`, and what this one is at.
struct Record
{
    char heading[24] = "tvctl sweep is at 1\n";
    Place suspect = {};
    Place current = {};
    qint32 times = 0;
};
static_assert(sizeof(Record) == 24 + 2 * sizeof(Place) + sizeof(qint32), "no gaps, whose bytes nobody sets");
} // namespace

StumblingBlock::StumblingBlock(const StateDirectory& directory, const QByteArray& name)
    : m_directory(directory),
      m_name(name)
{
    Record record;
    const QByteArray content = m_directory.read(m_name);
    if (content.size() != int(sizeof(record)) || !content.startsWith(record.heading)) {
        return;
    }
    std::memcpy(&record, content.constData(), sizeof(record));
    const bool isSame = record.times > 0 && record.current == record.suspect;
    m_suspect = record.current;
    m_times = isSame ? std::min(record.times, timesToStumble) + 1 : 1;
}

bool StumblingBlock::begin(const Place& file)
{
    if (!m_file.isValid()) {
        m_file = m_directory.openForRewriting(m_name);
    }
    Record record;
    record.suspect = m_suspect;
    record.current = file;
    record.times = m_times;
    return m_file.isValid() && ::pwrite(m_file.get(), &record, sizeof(record), 0) == sizeof(record);
}

void StumblingBlock::end(const Place& file)
{
    if (file == m_suspect) {
        m_times = 0;
    }
}

void StumblingBlock::clear()
{
    m_file.reset();
    m_directory.remove(m_name);
    m_times = 0;
}
