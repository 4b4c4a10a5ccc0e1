#pragma once

#include "platform/tvcore/fileiocinfo.h"
#include "platform/tvcore/iocscansettings.h"

#include <QHash>
#include <QString>
#include <QStringList>

#include <functional>

/// Stands in for the configuration store that IOC scanning uses: what it holds is set here, what is asked of
/// it is noted. Linked into a test in its place.
struct FakeIocStore
{
    static void reset();

    static IOCScanSettings settings;
    static int settingsRead;

    /// By hash type.
    static QStringList lists[3];
    /// The types in the order in which the lists were asked for.
    static QList<int> listsRead;
    /// Called, if set, whenever a list is asked for.
    static std::function<void()> onListRead;

    static QHash<QString, FileIOCInfo> records;
    /// What was done to the cache, in order: "get PATH", "add PATH", "update PATH".
    static QStringList cacheCalls;
    /// Saving fails with this error number; 0 for none.
    static int saveError;
};
