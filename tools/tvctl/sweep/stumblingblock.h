#pragma once

#include "common/uniquefd.h"
#include "tvctl/sweep/places.h"
#include "tvctl/sweep/statedirectory.h"

#include <QByteArray>

/// The file at which a sweep ends early each time: one that the service dies of would otherwise keep every
/// sweep from all that comes behind it.
///
/// The file that is handed over is written down before. A sweep that finds there what the one before it found
/// there, too, knows that two of them ended at it.
class StumblingBlock
{
public:
    /// `directory` has to live as long. Reads what the sweeps before have left under `name`.
    StumblingBlock(const StateDirectory& directory, const QByteArray& name);

    /// Two sweeps in a row have ended at this one.
    bool isAt(const Place& file) const
    {
        return m_times >= timesToStumble && file == m_suspect;
    }

    /// To be called before the file is handed over. False with errno set when it cannot be written down.
    bool begin(const Place& file);
    /// To be called when that did no harm.
    void end(const Place& file);

    /// Forgets everything: nothing of it was the fault of a file.
    void clear();

private:
    static constexpr int timesToStumble = 2;

    const StateDirectory& m_directory;
    const QByteArray m_name;
    UniqueFd m_file;
    Place m_suspect = {};
    int m_times = 0;
};
