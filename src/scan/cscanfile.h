#pragma once

#include "scan/enginedirectory.h"

#include <QString>

#include <functional>

#include <clamav.h>

class CheckedFile;
class HeldFile;
class ScanSettings;

/// The one libclamav engine of the process: loads the signature databases, scans files and texts.
///
/// Lives on the main thread; takes no lock. A scan answers libclamav's code: 0 clean, 1 a signature matched
/// (only then `virusName` is replaced), any other value an error. Scans are refused in no state: without an
/// engine they answer libclamav's null-argument error, and an engine that was created but never compiled
/// (a database failed to load) finds nothing and answers 0 for everything. Callers look at `isDBLoaded`. A
/// scan that found nothing because the engine could not make its temporary files answers libclamav's error
/// for that, 18; one that found nothing in a file which could not be read to its end, or changed meanwhile,
/// answers 12; one over which the clock was set forward, and once more, answers libclamav's error for a scan
/// that took too long.
class CScanFile
{
public:
    static CScanFile* getInstance();
    static void releaseInstance();

    CScanFile(const CScanFile&) = delete;
    CScanFile& operator=(const CScanFile&) = delete;

    /// Initialises libclamav and creates an empty engine.
    bool initEngine();
    /// Frees the engine; false when there is none to free.
    bool releaseEngine();
    /// Loads every "*.cvd" of the database directory, in name order, and compiles the engine, which is
    /// created first when there is none. The first database that fails ends the loading: nothing is compiled.
    /// No database at all is no failure.
    bool loadDatabases();
    /// Frees the engine and loads anew.
    bool reloadDatabases();

    /// True when the last load ended with a compiled engine.
    bool isDBLoaded() const;
    bool isDBLoading() const;

    /// Scans the file at `path`, links followed. A FIFO or a device is never opened and answers 0.
    int scanFile(const QString& path, QString& virusName) const;
    /// The same for a file that is held already. For an open error errno tells why.
    int scanFile(const HeldFile& file, QString& virusName) const;
    /// Scans the text `url` itself; nothing is fetched.
    int scanUrl(const QString& url, QString& virusName) const;

    /// Removes the engine's temporary files, before the process ends in the middle of a scan. Any thread, as
    /// long as the main thread is in that scan.
    void removeTemporaryFiles() const;

    /// Swallows whatever libclamav would print: failures are told by the log lines of this class. Only notes
    /// during a scan that temporary files or reading failed.
    static void clcb_msg_fn(cl_msg severity, const char* fullmsg, const char* msg, void* context);

private:
    CScanFile();
    ~CScanFile();

    /// What a scan learns from libclamav's messages.
    struct ScanNotes
    {
        /// Messages that name it are about temporary files.
        QByteArray directory;
        bool isDirectoryUnusable = false;
        /// A part of the file was passed over.
        bool isContentUnread = false;
    };

    /// False when libclamav would be handed an engine that is not there, which crashes it.
    bool canScan() const;
    /// Gives the engine a directory for its temporary files, if it has none that works. False when there is
    /// no place for one.
    bool provideDirectory() const;
    /// One call of libclamav: its code, and the name of what it found.
    using EngineCall = std::function<int(const char** name)>;
    /// The code of `call`, `virusName` with a match only. Once more, with another directory if it was that,
    /// when something failed or the clock was set.
    int scan(const EngineCall& call, QString& virusName) const;
    /// What is held, or why there is nothing, as an errno.
    int scanObject(const CheckedFile& file, int error, QString& virusName) const;
    cl_scan_options scanOptions() const;

    static CScanFile* _instance;
    /// Of the present scan. The context that libclamav takes for its callback does not reach the message
    /// about the directory of the scan, which it makes first.
    static ScanNotes* _notes;

    bool m_engineReady = false;
    bool m_dbLoading = false;
    bool m_dbLoaded = false;
    cl_engine* m_engine = nullptr;
    unsigned m_signatureTotal = 0;
    ScanSettings* m_settings;
    mutable EngineDirectory m_directory;
    // Compiling an engine a second time crashes libclamav.
    bool m_compiled = false;
};
