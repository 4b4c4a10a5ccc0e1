#pragma once

#include <QString>

/// Where everything of the installation lies, and a few small utilities.
///
/// Static functions only. The root is decided on the first call, which needs a QCoreApplication and must
/// complete on one thread before other threads ask; after that everything here is reentrant.
///
/// A directory that is documented as created is returned also when it could not be: who uses it finds out.
/// Paths are the root and a leaf put together as they are; with the root "/" they start with "//".
class Common
{
public:
    Common() = delete;

    /// The directory above the executable's own; never empty, the same for the whole run.
    static QString getRootPath();

    /// Not created.
    static QString getBinPath();
    static QString getDbPath();
    static QString getIconsPath();
    static QString getLibPath();

    /// Created when missing.
    static QString getServicesPath();
    static QString getSettingsPath();
    static QString getReportsPath();
    static QString getScanReportsPath();
    static QString getQuarantinePath();
    static QString getLogsPath();
    static QString getUpdPath();
    static QString getPolicyDirPath();
    static QString getWebPolicyDirPath();
    static QString getAppPolicyDirPath();
    static QString getEdrDirPath();

    /// "/var/tmp/tvtmp", independent of the root; created when missing, and given mode 0777 on every call.
    static QString getTempDirPath();

    /// Creates `path` with its parents when missing. Returns `path`, also on failure, which goes to
    /// the Qt debug stream only.
    static QString createDirectoryIfNotExists(const QString& path);

    /// When this program was built: "yyyy-MM-dd hh:mm:ss", "yyyy-MM-dd", "yyyy.MM.dd.0".
    static QString getBuildDateTime();
    static QString getBuildDate();
    static QString getBuildVersion();

    /// `bytes` with two decimals in the largest fitting of bytes, KB, MB, GB, TB (steps of 1024).
    static QString getSizeInString(unsigned long long bytes);

    /// Total bytes of the file or of everything below the directory `path`, hidden and special entries left
    /// out; 0 when missing. Follows links and has no guard against loops of them.
    static unsigned long long getPathSize(const QString& path);
};
