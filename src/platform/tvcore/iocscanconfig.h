#pragma once

#include "platform/tvcore/hashindex.h"
#include "platform/tvcore/iocscansettings.h"
#include "platform/tvcore/tvcoreexport.h"

#include <QString>
#include <QStringList>

#include <functional>

/// Access to the stored lists of known-bad hashes and to the settings of the scan for them. Thread and
/// opening: see TvCore.
///
/// A list keeps any text unchanged, in the order in which it was put in, each text once: nothing is checked,
/// nothing is converted, and "AB" differs from "ab". A list may hold millions of hashes.
///
/// Getters look into the store anew. When that fails `getScanSettings`, `getHashList` and `getHashIndex`
/// answer what was last read as a whole (or written) in this process, and the default only when there never
/// was such a value. A process that only adds to a list or removes from it never holds all of it in memory,
/// and so has no such value.
///
/// A writing operation is done as a whole or not at all, and nobody sees a part of it. Readers are never held
/// up by it; other writers of the file wait, for up to a second while a million hashes are rewritten.
class TVCORE_EXPORT IOCScanConfig
{
public:
    // Of a fixed type, so that another program may hand over any number, to be refused.
    enum HASH_TYPE : int
    {
        MD5 = 0,
        SHA1 = 1,
        SHA256 = 2
    };

    IOCScanConfig();

    IOCScanSettings getScanSettings() const;
    /// True when stored for good; false leaves the store as it was.
    bool setScanSettings(const IOCScanSettings& settings);
    /// Stores what `change` makes of the stored settings; nobody else writes in between, so that no other's
    /// change is lost. `change` may be called again, on a fresh value. As `setScanSettings`.
    bool changeScanSettings(const std::function<void(IOCScanSettings&)>& change);

    /// The whole list; empty by default, and for any other type.
    QStringList getHashList(HASH_TYPE type) const;
    /// The same, to look into: for a long list it takes a fraction of the time and of the memory.
    HashIndex getHashIndex(HASH_TYPE type) const;
    /// Replaces the whole list; of equal texts the first stays. True when stored for good; false leaves the
    /// store as it was.
    bool setHashList(HASH_TYPE type, const QStringList& hashes);
    /// Makes the list empty. As `setHashList`.
    bool clearHashList(HASH_TYPE type);

    /// Appends those that the list does not hold yet and returns how many these were; -1 when the store
    /// cannot be written and is as it was.
    int addHashes(HASH_TYPE type, const QStringList& hashes);
    /// Removes them and returns how many the list held; -1 when the store cannot be written and is as it was.
    int removeHashes(HASH_TYPE type, const QStringList& hashes);

    /// How many hashes the list holds; -1 when the store cannot be read.
    int getHashCount(HASH_TYPE type) const;
    /// Fills `hashes` with up to `limit` hashes from position `from` of the list on, which lets a long list
    /// be shown in pieces. Positions move when somebody changes the list. False, with `hashes` empty, when
    /// the store cannot be read.
    bool getHashes(HASH_TYPE type, QStringList& hashes, int from = 0, int limit = 1000) const;
};
