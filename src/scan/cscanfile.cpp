#include "scan/cscanfile.h"

#include "common/abandonablework.h"
#include "common/common.h"
#include "common/filename.h"
#include "common/heldfile.h"
#include "common/uniquefd.h"
#include "logger/clogger.h"
#include "scan/clockwatch.h"
#include "scan/scansettings.h"

#include <QByteArray>
#include <QDir>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iterator>

using LOGGER::CLogger;

// The field's number is not the same in every release of libclamav, so its name is used below. The numbers
// here are what the suite relies on; a release that moves one of them must not compile.
static_assert(CL_CLEAN == 0 && CL_VIRUS == 1 && CL_ENULLARG == 2 && CL_EOPEN == 8 && CL_EREAD == 12 &&
              CL_ETMPDIR == 18);
static_assert(CL_INIT_DEFAULT == 0);
static_assert(CL_DB_PHISHING == 0x2 && CL_DB_PHISHING_URLS == 0x8 && CL_DB_BYTECODE == 0x2000);
static_assert(CL_DB_STDOPT == 0x200a);
static_assert(CL_SCAN_GENERAL_ALLMATCHES == 0x1 && CL_SCAN_GENERAL_HEURISTIC_PRECEDENCE == 0x8);
static_assert(CL_SCAN_PARSE_ARCHIVE == 0x1 && CL_SCAN_PARSE_ELF == 0x2 && CL_SCAN_PARSE_PDF == 0x4);
static_assert(CL_SCAN_PARSE_SWF == 0x8 && CL_SCAN_PARSE_XMLDOCS == 0x20 && CL_SCAN_PARSE_OLE2 == 0x80);
static_assert(CL_SCAN_PARSE_HTML == 0x100 && CL_SCAN_PARSE_PE == 0x200);
static_assert(CL_SCAN_HEURISTIC_BROKEN == 0x2);

namespace
{
/// What libclamav answers, from some unpackers, when there was no room for what they unpacked.
bool isAboutTemporaryFiles(int code)
{
    return code == CL_ETMPDIR || code == CL_ETMPFILE || code == CL_ECREAT || code == CL_EWRITE;
}

/// Does what may take minutes, and cannot be interrupted: libclamav calls a scan that was broken off clean.
template <typename Call> auto abandonable(const Call& call)
{
    const AbandonableWork work;
    return call();
}

/// What libclamav says when it could not read on in the file that it scans, or could not be sure that it
/// still is the same. It goes on without that part of the file.
bool isAboutUnreadContent(const char* message)
{
    constexpr const char* reasons[] = {"fmap_readpage: pread", "fmap_readpage: fstat",
                                       "fmap_readpage: file changed"};
    return std::any_of(std::begin(reasons), std::end(reasons),
                       [message](const char* reason) { return std::strstr(message, reason) != nullptr; });
}

/// libclamav's code for a file that cannot be opened, as its own open gives it.
int openFailure(int error)
{
    return error == EACCES ? CL_EACCES : CL_EOPEN;
}
} // namespace

CScanFile* CScanFile::_instance = nullptr;
CScanFile::ScanNotes* CScanFile::_notes = nullptr;

CScanFile* CScanFile::getInstance()
{
    if (_instance == nullptr) {
        _instance = new CScanFile;
    }
    return _instance;
}

void CScanFile::releaseInstance()
{
    delete _instance;
    _instance = nullptr;
}

CScanFile::CScanFile() : m_settings(ScanSettings::getInstance())
{
    cl_set_clcb_msg(&CScanFile::clcb_msg_fn);
}

CScanFile::~CScanFile()
{
    releaseEngine();
}

void CScanFile::clcb_msg_fn(cl_msg severity, const char* fullmsg, const char*, void*)
{
    // An archive may hold a name that looks like the directory's: its owner then gets an error for a file
    // that is clean, and nothing else.
    if (_notes != nullptr && severity >= CL_MSG_WARN && fullmsg != nullptr) {
        _notes->isDirectoryUnusable =
            _notes->isDirectoryUnusable || std::strstr(fullmsg, _notes->directory.constData()) != nullptr;
        _notes->isContentUnread = _notes->isContentUnread || isAboutUnreadContent(fullmsg);
    }
}

bool CScanFile::initEngine()
{
    const int result = cl_init(CL_INIT_DEFAULT);
    if (result != CL_SUCCESS) {
        const int error = errno;
        CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Failed to init scan engine!");
        return false;
    }
    m_compiled = false;
    m_engine = cl_engine_new();
    if (m_engine == nullptr) {
        const int error = errno;
        CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Failed to create scan engine!");
        return false;
    }
    m_engineReady = true;
    cl_engine_set_num(m_engine, CL_ENGINE_DISABLE_CACHE, 1);
    provideDirectory();
    CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Successfully Scan Engine Initialize.");
    return true;
}

bool CScanFile::releaseEngine()
{
    // The handle is kept after it was freed; only the flag tells whether there is something to free.
    const int result = m_engineReady ? abandonable([this] { return cl_engine_free(m_engine); }) : CL_ENULLARG;
    if (result != CL_SUCCESS) {
        const int error = errno;
        CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Failed to release engine!");
        return false;
    }
    m_engineReady = false;
    return true;
}

bool CScanFile::loadDatabases()
{
    const QString directory = Common::getDbPath();
    if (!m_engineReady && !initEngine()) {
        return false;
    }
    m_dbLoaded = false;
    m_dbLoading = true;

    // Only whole, signed databases: incremental and loose files beside them are left alone on purpose.
    const QStringList names = QDir(directory).entryList({QStringLiteral("*.cvd")});
    for (const QString& name : names) {
        const QByteArray path = FileName::toBytes(directory + QLatin1Char('/') + name);
        unsigned signatures = 0;
        const int result =
            abandonable([&] { return cl_load(path.constData(), m_engine, &signatures, CL_DB_STDOPT); });
        if (result != CL_SUCCESS) {
            const int error = errno;
            CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error,
                                          "Failed to load database. Path: %s Error: %d",
                                          FileName::toBytes(name).constData(), result);
            m_dbLoading = false;
            return false;
        }
        m_signatureTotal += signatures;
    }

    const int result = m_compiled ? CL_SUCCESS : abandonable([this] { return cl_engine_compile(m_engine); });
    if (result != CL_SUCCESS) {
        const int error = errno;
        CLogger::getInstance()->Error(__PRETTY_FUNCTION__, error, "Failed to compile engine. Error: %d",
                                      result);
        m_dbLoading = false;
        return false;
    }
    m_compiled = true;
    CLogger::getInstance()->Trace(__PRETTY_FUNCTION__, "Successfully Compiled Engine.");
    m_dbLoading = false;
    m_dbLoaded = true;
    return true;
}

bool CScanFile::reloadDatabases()
{
    return releaseEngine() && loadDatabases();
}

bool CScanFile::isDBLoaded() const
{
    return m_dbLoaded;
}

bool CScanFile::isDBLoading() const
{
    return m_dbLoading;
}

bool CScanFile::canScan() const
{
    // An engine that was there keeps counting as ready when a second one could not be made in its place.
    return m_engineReady && m_engine != nullptr;
}

bool CScanFile::provideDirectory() const
{
    if (m_directory.path().isEmpty()) {
        m_directory = EngineDirectory(EngineDirectory::places());
    }
    cl_engine_set_str(m_engine, CL_ENGINE_TMPDIR, m_directory.path().constData());
    return !m_directory.path().isEmpty();
}

void CScanFile::removeTemporaryFiles() const
{
    m_directory.clear();
}

int CScanFile::scan(const EngineCall& call, QString& virusName) const
{
    int code = CL_ETMPDIR;
    int failure = CL_ETMPDIR;
    constexpr int maxTries = 2;
    constexpr std::chrono::seconds worthAnotherTry(1);
    for (int tries = 0; tries < maxTries; ++tries) {
        if (m_directory.path().isEmpty() && !provideDirectory()) {
            failure = CL_ETMPDIR;
            break;
        }
        ScanNotes notes{m_directory.path()};
        const char* name = nullptr;
        _notes = &notes;
        const ClockWatch clock;
        code = abandonable([&] { return call(&name); });
        _notes = nullptr;
        if (code == CL_VIRUS) {
            virusName = QString::fromUtf8(name);
            return code;
        }
        if (notes.isDirectoryUnusable || isAboutTemporaryFiles(code)) {
            failure = CL_ETMPDIR;
            m_directory = EngineDirectory();
        } else if (notes.isContentUnread) {
            failure = CL_EREAD;
            if (clock.elapsed() > worthAnotherTry) {
                // Its owner, who changes it meanwhile, would have it scanned twice as long.
                break;
            }
        } else if (clock.isSetForward()) {
            failure = CL_ETIMEOUT;
        } else {
            return code;
        }
    }
    // Clean is what libclamav says of a file that it could not look into.
    return code == CL_CLEAN ? failure : code;
}

cl_scan_options CScanFile::scanOptions() const
{
    cl_scan_options options = {};
    options.general = CL_SCAN_GENERAL_ALLMATCHES;
    options.parse = CL_SCAN_PARSE_ELF | CL_SCAN_PARSE_PE;
    if (m_settings->ScanForArchives()) {
        options.parse |= CL_SCAN_PARSE_ARCHIVE;
    }
    if (m_settings->ScanForHeuristics()) {
        // The precedence bit and not the general heuristics bit: only broken executables are to be told.
        options.general |= CL_SCAN_GENERAL_HEURISTIC_PRECEDENCE;
        options.heuristic |= CL_SCAN_HEURISTIC_BROKEN;
    }
    if (m_settings->ScanForHTML_XML()) {
        options.parse |= CL_SCAN_PARSE_HTML;
    }
    if (m_settings->ScanForDoc_Xls()) {
        options.parse |= CL_SCAN_PARSE_OLE2 | CL_SCAN_PARSE_XMLDOCS;
    }
    if (m_settings->ScanForSWF()) {
        options.parse |= CL_SCAN_PARSE_SWF;
    }
    if (m_settings->ScanForPDF()) {
        options.parse |= CL_SCAN_PARSE_PDF;
    }
    return options;
}

int CScanFile::scanFile(const QString& path, QString& virusName) const
{
    // Nothing is done to the file later, so its directory need not be held.
    const CheckedFile file(FileName::toBytes(path));
    const int error = errno;
    return scanObject(file, error, virusName);
}

int CScanFile::scanFile(const HeldFile& file, QString& virusName) const
{
    return scanObject(file.object(), file.error(), virusName);
}

int CScanFile::scanObject(const CheckedFile& file, int error, QString& virusName) const
{
    if (!canScan()) {
        return CL_ENULLARG;
    }
    if (file.kind() == CheckedFile::Kind::Missing) {
        errno = error;
        return openFailure(error);
    }
    if (file.kind() == CheckedFile::Kind::Special) {
        return CL_CLEAN;
    }
    const UniqueFd opened = file.openForReading();
    if (!opened.isValid()) {
        return openFailure(errno);
    }
    if (file.kind() == CheckedFile::Kind::Directory) {
        // As libclamav calls it, which cannot read from one.
        return CL_CLEAN;
    }
    // Some unpackers open the file once more, by the name given here: this one cannot be swapped.
    const QByteArray self = "/proc/self/fd/" + QByteArray::number(opened.get());
    cl_scan_options options = scanOptions();
    return scan(
        [&](const char** name) {
            return cl_scandesc_callback(opened.get(), self.constData(), name, nullptr, m_engine, &options,
                                        nullptr);
        },
        virusName);
}

int CScanFile::scanUrl(const QString& url, QString& virusName) const
{
    if (!canScan()) {
        return CL_ENULLARG;
    }
    const QByteArray text = url.toUtf8();
    cl_scan_options options = scanOptions();
    // As many bytes as the text has UTF-16 units: beyond ASCII the tail is left out, and stays so.
    cl_fmap_t* map = cl_fmap_open_memory(text.constData(), static_cast<size_t>(url.length()));
    if (map == nullptr) {
        return CL_EMEM;
    }
    const int result = scan(
        [&](const char** name) {
            return cl_scanmap_callback(map, nullptr, name, nullptr, m_engine, &options, nullptr);
        },
        virusName);
    cl_fmap_close(map);
    return result;
}
