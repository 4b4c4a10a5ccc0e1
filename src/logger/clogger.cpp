#include "logger/clogger.h"

#include "common/common.h"
#include "common/localtime.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <vector>

#include <sys/stat.h>

namespace
{
constexpr long rotationSize = 2L * 1024 * 1024;

/// Guards the making and releasing of the one logger; its sink has a lock of its own.
std::mutex& instanceMutex()
{
    static std::mutex mutex;
    return mutex;
}

/// The text of a printf format and its arguments, sized exactly.
__attribute__((format(printf, 1, 0))) std::string formatted(const char* format, va_list arguments)
{
    va_list measured;
    va_copy(measured, arguments);
    const int length = vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    if (length < 0) {
        return {};
    }
    std::vector<char> text(static_cast<size_t>(length) + 1);
    vsnprintf(text.data(), text.size(), format, arguments);
    return std::string(text.data());
}

/// Lines of the log end like this on every system; the suite's readers rely on it.
constexpr const char* lineEnd = "\r\n";
} // namespace

namespace LOGGER
{
std::atomic<CLogger*> CLogger::m_Instance = nullptr;

CLogger* CLogger::getInstance()
{
    CLogger* instance = m_Instance.load(std::memory_order_acquire);
    if (instance == nullptr) {
        const std::lock_guard<std::mutex> guard(instanceMutex());
        instance = m_Instance.load(std::memory_order_relaxed);
        if (instance == nullptr) {
            instance = new CLogger;
            m_Instance.store(instance, std::memory_order_release);
        }
    }
    return instance;
}

void CLogger::releaseInstance()
{
    const std::lock_guard<std::mutex> guard(instanceMutex());
    delete m_Instance.exchange(nullptr);
}

CLogger::CLogger()
    : m_logPath((Common::getLogsPath() + QLatin1Char('/') + programName() + QStringLiteral(".log"))
                    .toUtf8()
                    .toStdString())
{
    rotateAtStart();
    Info("LoggerStarted", "Build Date: %s", Common::getBuildDateTime().toUtf8().constData());
}

QString CLogger::programName()
{
    QString name;
    if (QCoreApplication::instance() != nullptr) {
        const QStringList arguments = QCoreApplication::arguments();
        const QString program = arguments.isEmpty() ? QString() : arguments.first();
        name = QFileInfo(program).fileName().trimmed();
        if (name.isEmpty()) {
            name = program.trimmed();
        }
    }
    if (name.isEmpty()) {
        // Not the link's own text: that ends in " (deleted)" once an update has replaced the executable.
        const std::unique_ptr<char, decltype(&free)> resolved(realpath("/proc/self/exe", nullptr), &free);
        const QString executable = QFile::decodeName(resolved.get());
        name = executable.mid(executable.lastIndexOf(QLatin1Char('/')) + 1);
    }
    return name.isEmpty() ? QStringLiteral("Unknown") : name;
}

void CLogger::rotateAtStart()
{
    FILE* file = fopen(m_logPath.c_str(), "a+e");
    if (file == nullptr) {
        return;
    }
    // The position of a fresh append stream is the file's length only with some C libraries.
    struct stat status = {};
    const bool tooLarge = fstat(fileno(file), &status) == 0 && status.st_size > rotationSize;
    if (tooLarge) {
        const std::string backup = m_logPath + ".bkp";
        remove(backup.c_str());
        rename(m_logPath.c_str(), backup.c_str());
    }
    fclose(file);
}

void CLogger::Error(const char* location, int code, const char* format, ...)
{
    char codeText[16];
    snprintf(codeText, sizeof(codeText), "[0x%08X]: ", static_cast<unsigned>(code));
    va_list arguments;
    va_start(arguments, format);
    write("[ERROR] ", location, codeText, format, arguments);
    va_end(arguments);
}

void CLogger::Always(const char* location, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    write("[ALWAYS] ", location, {}, format, arguments);
    va_end(arguments);
}

void CLogger::Info(const char* location, const char* format, ...)
{
    if (m_level > DISABLE_LOG) {
        va_list arguments;
        va_start(arguments, format);
        write("[INFO] ", location, {}, format, arguments);
        va_end(arguments);
    }
}

void CLogger::Trace(const char* location, const char* format, ...)
{
    if (m_level > LOG_LEVEL_INFO) {
        va_list arguments;
        va_start(arguments, format);
        write("[TRACE] ", location, {}, format, arguments);
        va_end(arguments);
    }
}

void CLogger::Buffer(const char* location, const char* format, ...)
{
    if (m_level > LOG_LEVEL_TRACE) {
        va_list arguments;
        va_start(arguments, format);
        write("", location, {}, format, arguments);
        va_end(arguments);
    }
}

void CLogger::Debug(const char* location, const char* format, ...)
{
    if (m_level > LOG_LEVEL_BUFFER) {
        va_list arguments;
        va_start(arguments, format);
        write("[DEBUG] ", location, {}, format, arguments);
        va_end(arguments);
    }
}

void CLogger::UpdateLogLevel(LOG_LEVEL level)
{
    m_level = level;
}

void CLogger::EnaleLog()
{
    m_level = ENABLE_LOG;
}

void CLogger::DisableLog()
{
    m_level = DISABLE_LOG;
}

void CLogger::UpdateLogType(LOG_TYPE type)
{
    m_type = type;
}

void CLogger::EnableConsoleLogging()
{
    m_type = CONSOLE;
}

void CLogger::EnableFileLogging()
{
    m_type = FILE_LOG;
}

QString CLogger::getProperMethodName(const QString& signature)
{
    if (signature.startsWith(QLatin1String("::"))) {
        return signature;
    }
    const int start = signature.indexOf(QLatin1Char(' ')) + 1;
    return signature.mid(start, signature.indexOf(QLatin1Char('(')) - start);
}

const char* CLogger::getCurrentTime()
{
    const LocalTime now = LocalTime::now();
    snprintf(m_timeBuffer, sizeof(m_timeBuffer), "%s:%03d", now.text().c_str(), now.milliseconds());
    return m_timeBuffer;
}

void CLogger::write(const char* tag, const char* location, const std::string& code, const char* format,
                    va_list arguments)
{
    std::string body = tag;
    body += " [";
    body += getProperMethodName(QString::fromUtf8(location)).toStdString();
    body += "] :: ";
    body += code;
    body += formatted(format, arguments);
    switch (m_type) {
    case FILE_LOG:
        logIntoFile(body);
        break;
    case CONSOLE:
        logOnConsole(body);
        break;
    default:
        break;
    }
}

void CLogger::logIntoFile(const std::string& body)
{
    lock();
    if (body == m_lastMessage) {
        writeRepeat();
    } else {
        writeFirst(body);
    }
    unlock();
}

void CLogger::writeFirst(const std::string& body)
{
    m_lastMessage = body;
    m_repeatCount = 0;
    m_file = fopen(m_logPath.c_str(), "a+e");
    if (m_file == nullptr) {
        return;
    }
    // One write a line, so that a reader never sees half of one, and no buffer for it.
    setvbuf(m_file, nullptr, _IONBF, 0);
    std::string line = getCurrentTime();
    line += "  ";
    line += body;
    line += lineEnd;
    fwrite(line.data(), 1, line.size(), m_file);
    fclose(m_file);
    m_file = nullptr;
}

void CLogger::writeRepeat()
{
    ++m_repeatCount;
    char counter[50] = {};
    const int length = snprintf(counter, sizeof(counter), "Repeated [%05d] times.%s", m_repeatCount, lineEnd);
    // An existing file only: a log that was moved away gets its counter nowhere. The C library ignores the
    // "a"; the stream reads and writes at its position, which "a" alone would pin to the end.
    m_file = fopen(m_logPath.c_str(), "ra+e");
    if (m_file == nullptr) {
        return;
    }
    // The outcome of the seek stands here, not the size of the file: within a run the log is never rotated,
    // so that its readers may keep it open.
    if (fseek(m_file, 0, SEEK_END) > rotationSize) {
        fclose(m_file);
        const std::string backup = m_logPath + ".bkp";
        remove(backup.c_str());
        rename(m_logPath.c_str(), backup.c_str());
        m_file = fopen(m_logPath.c_str(), "ra+e");
        if (m_file == nullptr) {
            return;
        }
    } else if (m_repeatCount > 1) {
        fseek(m_file, -length, SEEK_END);
    }
    fwrite(counter, 1, static_cast<size_t>(length), m_file);
    fclose(m_file);
    m_file = nullptr;
}

void CLogger::logOnConsole(const std::string& body)
{
    std::cout << getCurrentTime() << "  " << body << std::endl;
}

void CLogger::lock()
{
    pthread_mutex_lock(&m_mutex);
}

void CLogger::unlock()
{
    pthread_mutex_unlock(&m_mutex);
}
} // namespace LOGGER
