#pragma once

#include <QString>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <string>

#include <pthread.h>

namespace LOGGER
{
/// How much is written. Each value includes the ones below it.
enum LOG_LEVEL
{
    DISABLE_LOG = 1,
    LOG_LEVEL_INFO = 2,
    LOG_LEVEL_TRACE = 3,
    LOG_LEVEL_BUFFER = 4,
    LOG_LEVEL_DEBUG = 5,
    ENABLE_LOG = 6
};

/// Where lines go. Any other value builds them and throws them away.
enum LOG_TYPE
{
    CONSOLE = 2,
    FILE_LOG = 3
};

/// The diagnostic log of the process: one line a message in ROOT/logs/PROGRAM.log.
///
/// Any thread may log and may be the first to call `getInstance`; there must be a QCoreApplication then,
/// since the log's place is the installation's. A line equal to the one before it becomes a counter
/// line. A file over 2 MiB is moved to PROGRAM.log.bkp when the logger is made, and only then.
/// The file is opened and closed around each line; a line that cannot be written is dropped.
///
/// `location` is the caller's __PRETTY_FUNCTION__, of which class and method are printed.
class CLogger
{
public:
    static CLogger* getInstance();
    /// Destroys the logger; no other thread may be logging. The next `getInstance` makes a fresh one.
    static void releaseInstance();

    CLogger(const CLogger&) = delete;
    CLogger& operator=(const CLogger&) = delete;

    /// Always written. `code` is the `errno` of the failure.
    void Error(const char* location, int code, const char* format, ...) __attribute__((format(printf, 4, 5)));
    /// Always written.
    void Always(const char* location, const char* format, ...) __attribute__((format(printf, 3, 4)));
    /// Written above level 1.
    void Info(const char* location, const char* format, ...) __attribute__((format(printf, 3, 4)));
    /// Written above level 2.
    void Trace(const char* location, const char* format, ...) __attribute__((format(printf, 3, 4)));
    /// Written above level 3.
    void Buffer(const char* location, const char* format, ...) __attribute__((format(printf, 3, 4)));
    /// Written above level 4.
    void Debug(const char* location, const char* format, ...) __attribute__((format(printf, 3, 4)));

    void UpdateLogLevel(LOG_LEVEL level);
    /// The name is part of the interface as it is spelt.
    void EnaleLog();
    void DisableLog();
    void UpdateLogType(LOG_TYPE type);
    void EnableConsoleLogging();
    void EnableFileLogging();

private:
    CLogger();
    ~CLogger() = default;

    static QString getProperMethodName(const QString& signature);
    static QString programName();
    /// The present moment; the result is valid until the next call.
    const char* getCurrentTime();
    void rotateAtStart();
    void write(const char* tag, const char* location, const std::string& code, const char* format,
               va_list arguments) __attribute__((format(printf, 5, 0)));
    void logIntoFile(const std::string& body);
    void logOnConsole(const std::string& body);
    void writeFirst(const std::string& body);
    void writeRepeat();
    void lock();
    void unlock();

    static std::atomic<CLogger*> m_Instance;

    std::string m_lastMessage;
    std::string m_logPath;
    int m_repeatCount = 0;
    FILE* m_file = nullptr;
    pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
    std::atomic<LOG_LEVEL> m_level = LOG_LEVEL_TRACE;
    std::atomic<LOG_TYPE> m_type = FILE_LOG;
    char m_timeBuffer[24] = {};
};
} // namespace LOGGER
