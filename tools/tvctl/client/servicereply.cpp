#include "tvctl/client/servicereply.h"

#include "common/filename.h"

#include <QList>

namespace
{
/// Of libclamav's cl_error_t, what a scan of a file answers.
struct ErrorText
{
    int code;
    const char* text;
};
constexpr ErrorText errorTexts[] = {
    {2, "the engine is not ready (a null argument)"},
    {3, "the engine refused the arguments"},
    {4, "a damaged signature database"},
    {5, "a damaged signature database"},
    {6, "a signature database whose signature is wrong"},
    {7, "it could not be unpacked"},
    {8, "it could not be opened"},
    {9, "it could not be created"},
    {10, "it could not be removed"},
    {11, "it could not be looked at"},
    {12, "it could not be read"},
    {13, "the position in it could not be set"},
    {14, "it could not be written"},
    {15, "its descriptor could not be doubled"},
    {16, "access was denied"},
    {17, "no temporary file could be made"},
    {18, "no temporary directory could be made"},
    {19, "it could not be mapped into memory"},
    {20, "memory ran out"},
    {21, "it took too long"},
    {23, "recursion went too deep"},
    {24, "it is larger than the limit"},
    {25, "it holds more files than the limit"},
    {26, "its format is damaged"},
    {27, "it could not be parsed"},
};
} // namespace

ServiceReply::Scan ServiceReply::scan(const QByteArray& reply)
{
    static const QByteArray infected = "INFECTED ";
    static const QByteArray error = "ERROR ";
    if (reply == "CLEAN") {
        return {Scan::Result::Clean, {}, 0};
    }
    if (reply.startsWith(infected)) {
        return {Scan::Result::Infected, FileName::toText(reply.mid(infected.size())), 0};
    }
    const int code = reply.startsWith(error) ? reply.mid(error.size()).toInt() : 0;
    // To the byte: a conversion to a number passes over blanks, and over all behind a zero byte.
    return reply == error + QByteArray::number(code) ? Scan{Scan::Result::Failed, {}, code} : Scan{};
}

QString ServiceReply::scanErrorText(int errorCode)
{
    for (const ErrorText& known : errorTexts) {
        if (known.code == errorCode) {
            return QLatin1String(known.text);
        }
    }
    return QStringLiteral("the engine failed with code %1").arg(errorCode);
}

ServiceReply::Clean ServiceReply::clean(const QByteArray& reply)
{
    if (reply.startsWith("FAILED ")) {
        return Clean::Removed;
    }
    return reply == "CLEANED" ? Clean::NotRemoved : Clean::Unknown;
}

ServiceReply::IocScan ServiceReply::iocScan(const QByteArray& reply)
{
    using Result = IocScan::Result;
    if (reply == "CLEAN") {
        return {Result::Clean, {}, {}};
    }
    const QList<QByteArray> parts = reply.split(':');
    if (parts.size() != 3) {
        return {};
    }
    const QByteArray& kind = parts.at(0);
    if (kind != "MD5" && kind != "SHA1" && kind != "SHA256") {
        return {};
    }
    const QString type = QString::fromLatin1(kind);
    if (parts.at(2) == "ERROR") {
        return {Result::ActionFailed, type, FileName::toText(parts.at(1))};
    }
    const QString hash = FileName::toText(parts.at(2));
    if (parts.at(1) == "IA") {
        return {Result::Allowed, type, hash};
    }
    if (parts.at(1) == "IR") {
        return {Result::Renamed, type, hash};
    }
    return parts.at(1) == "ID" ? IocScan{Result::Deleted, type, hash} : IocScan{};
}

ServiceReply::Reload ServiceReply::reload(const QByteArray& reply)
{
    if (reply == "SUCCESS") {
        return Reload::Succeeded;
    }
    return reply == "FAILED" ? Reload::Failed : Reload::Unknown;
}

bool ServiceReply::isRegistered(const QByteArray& reply)
{
    return reply == "REGISTERED!";
}
