#pragma once

#include "platform/tvcore/tvcoreexport.h"

#include <QString>

/// The suite's configuration store as a whole.
///
/// All of libtvcore belongs to the thread that the QCoreApplication was made on: its database connections
/// are bound to it. Without a QCoreApplication nothing is opened, and accessors answer what they last read or
/// the defaults. When the application object goes, every store is closed.
///
/// Accessors are cheap to make and hold nothing; stores are opened by the first operation that needs them
/// and are shared by all accessors of the process. While another process holds a store, reading it and adding
/// a detection wait up to about 200 ms, and not again while that lasts; what changes settings or removes
/// records waits up to two seconds. What goes wrong is said once per change in the logging category
/// `tvcore`.
class TVCORE_EXPORT TvCore
{
public:
    TvCore() = delete;

    /// Makes the library work on the stores in `directory`, for a tool that looks after another root. By
    /// default they lie in the settings directory of the installation. Closes what is open and forgets
    /// what was read; to be called before anything else, never by the service. The directory is not created.
    static void setDirectory(const QString& directory);

    /// Whether the last getter of settings, exclusions or hash lists could look into the store. When it could
    /// not, it has answered what it last read, or the default: for a tool that must not pass that off as what
    /// is stored.
    static bool couldReadSettings();
};
