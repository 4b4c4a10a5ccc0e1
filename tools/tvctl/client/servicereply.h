#pragma once

#include <QByteArray>
#include <QString>

/// What the service's replies mean. The service's words are older than their meaning; what they say is told
/// here and nowhere else. Pure.
namespace ServiceReply
{
/// To SCAN and SCANURL.
struct Scan
{
    enum class Result
    {
        Clean,
        Infected,
        /// Could not be scanned; see `errorCode`.
        Failed,
        /// No reply that the protocol knows.
        Unknown
    };

    Result result = Result::Unknown;
    /// What was found.
    QString virusName;
    /// libclamav's number of the failure.
    int errorCode = 0;
};
Scan scan(const QByteArray& reply);

/// libclamav's failure `errorCode` in words.
QString scanErrorText(int errorCode);

/// To CLEAN, which reads the wrong way round: "FAILED code" stands for a file that was removed.
enum class Clean
{
    Removed,
    /// It could not be removed, it was not there, or the settings only allow reports.
    NotRemoved,
    Unknown
};
Clean clean(const QByteArray& reply);

/// To SCANIOC.
struct IocScan
{
    enum class Result
    {
        Clean,
        Allowed,
        Renamed,
        Deleted,
        /// Listed, but it could neither be renamed nor deleted as configured.
        ActionFailed,
        Unknown
    };

    Result result = Result::Unknown;
    /// "MD5", "SHA1" or "SHA256", and the hash that is listed; empty for Clean and Unknown.
    QString hashType;
    QString hash;
};
IocScan iocScan(const QByteArray& reply);

/// To the reloads.
enum class Reload
{
    Succeeded,
    Failed,
    Unknown
};
Reload reload(const QByteArray& reply);

/// To MODULE.
bool isRegistered(const QByteArray& reply);
} // namespace ServiceReply
