// What the tool and the service say to each other: the tool believes no reply but the exact ones, reads each
// reply of the service as what the service meant, and sends no request that the service would read as
// another.
//
// The first letter of the input chooses: 'r' a reply as it came, 's' a result of the service, else a request.

#include "common/filename.h"
#include "fuzz/pieces.h"
#include "fuzz/property.h"
#include "socket/clientreply.h"
#include "socket/clientrequest.h"
#include "tvctl/client/request.h"
#include "tvctl/client/servicereply.h"

#include <array>

namespace
{
using Scan = ServiceReply::Scan;
using IocScan = ServiceReply::IocScan;

void checkForeignReply(const QByteArray& reply)
{
    const Scan scan = ServiceReply::scan(reply);
    require((scan.result == Scan::Result::Clean) == (reply == "CLEAN"), "only CLEAN is clean");
    require((scan.result == Scan::Result::Infected) == reply.startsWith("INFECTED "),
            "INFECTED begins an infection");
    require(scan.result != Scan::Result::Infected || "INFECTED " + FileName::toBytes(scan.virusName) == reply,
            "the name of a virus is the rest of the reply");
    require(scan.result != Scan::Result::Failed || reply == "ERROR " + QByteArray::number(scan.errorCode),
            "ERROR and a number are a failure");
    require(!ServiceReply::scanErrorText(scan.errorCode).isEmpty(), "each failure has words");

    const IocScan ioc = ServiceReply::iocScan(reply);
    require((ioc.result == IocScan::Result::Clean) == (reply == "CLEAN"), "only CLEAN is on no list");
    const bool hasHash = ioc.result != IocScan::Result::Clean && ioc.result != IocScan::Result::Unknown;
    require(hasHash || (ioc.hash.isEmpty() && ioc.hashType.isEmpty()), "what is on no list has no hash");
    const QByteArray hash = FileName::toBytes(ioc.hash);
    require(!hasHash || (reply.startsWith(ioc.hashType.toLatin1() + ':') && reply.contains(':' + hash) &&
                         reply.size() == ioc.hashType.size() + hash.size() +
                                             (ioc.result == IocScan::Result::ActionFailed ? 7 : 4)),
            "what is on a list is told with its hash");

    require((ServiceReply::clean(reply) == ServiceReply::Clean::Removed) == reply.startsWith("FAILED "),
            "FAILED and a code stand for a file that was removed");
    require((ServiceReply::reload(reply) == ServiceReply::Reload::Succeeded) == (reply == "SUCCESS"),
            "only SUCCESS is one");
    require(ServiceReply::isRegistered(reply) == (reply == "REGISTERED!"), "only REGISTERED! is one");
}

void checkOwnReply(int result, const QByteArray& name)
{
    const QString virus = QString::fromUtf8(name);
    const Scan scan = ServiceReply::scan(ClientReply::scan(result, virus));
    require(scan.result == (result == 0   ? Scan::Result::Clean
                            : result == 1 ? Scan::Result::Infected
                                          : Scan::Result::Failed),
            "the result of a scan is understood");
    require(result != 1 || scan.virusName == virus, "the name of a virus comes through");
    require(result == 0 || result == 1 || scan.errorCode == result, "the code of a failure comes through");

    require((ServiceReply::clean(ClientReply::clean(result, 0)) == ServiceReply::Clean::Removed) ==
                (result == 0),
            "the result of a clean is understood");

    constexpr std::array<int, 3> lengths = {32, 40, 64};
    constexpr std::array<const char*, 3> types = {"MD5", "SHA1", "SHA256"};
    constexpr std::array<IocScan::Result, 4> meanings = {IocScan::Result::Clean, IocScan::Result::Allowed,
                                                         IocScan::Result::Renamed, IocScan::Result::Deleted};
    for (std::size_t i = 0; i < lengths.size(); ++i) {
        const QString hash = QString::fromLatin1(name.toHex().leftJustified(lengths.at(i), '0', true));
        const IocScan ioc = ServiceReply::iocScan(ClientReply::scanIoc(result, hash));
        require(ioc.result == (result >= 0 && result < 4 ? meanings.at(static_cast<std::size_t>(result))
                                                         : IocScan::Result::ActionFailed),
                "the result of a look at the lists is understood");
        require(result == 0 || (ioc.hash == hash && ioc.hashType == QLatin1String(types.at(i))),
                "a hash and its type come through");
    }
}

void checkRequest(char choice, const QByteArray& argument)
{
    constexpr std::array<const char*, 5> commands = {"MODULE", "SCAN", "CLEAN", "SCANURL", "SCANIOC"};
    constexpr int longestRequest = 4096;
    const QByteArray command = commands.at(static_cast<unsigned char>(choice) % commands.size());
    const QString text = FileName::toText(argument);
    const Request request = makeRequest(command, text);
    require(request.isValid() == request.problem.isEmpty(), "what cannot be sent has a reason");
    if (!request.isValid()) {
        return;
    }
    require(request.bytes.size() <= longestRequest, "a request is read at once");
    // As the service takes it: up to the first zero byte.
    const ClientRequest understood = parseRequest(QString::fromUtf8(request.bytes.constData()));
    require(understood.command == QString::fromLatin1(command), "the command is understood");
    require(FileName::toBytes(understood.argument) == argument, "the argument comes through to the byte");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const QByteArray rest(reinterpret_cast<const char*>(data + 1), static_cast<int>(size - 1));
    if (data[0] == 'r') {
        checkForeignReply(rest);
    } else if (data[0] == 's') {
        Pieces pieces(data + 1, size - 1);
        const int result = static_cast<int>(pieces.nextNumber());
        checkOwnReply(result, pieces.next());
    } else {
        checkRequest(static_cast<char>(data[0]), rest);
    }
    return 0;
}
