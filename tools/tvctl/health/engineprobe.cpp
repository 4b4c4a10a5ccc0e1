#include "tvctl/health/engineprobe.h"

#include "tvctl/health/testpattern.h"

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

EngineProbe EngineProbe::ask(ServiceConnection& connection, milliseconds limit)
{
    EngineProbe probe;
    const auto deadline = steady_clock::now() + limit;
    if (connection.open(limit)) {
        const auto left = duration_cast<milliseconds>(deadline - steady_clock::now());
        const auto reply = connection.ask(
            makeRequest(QByteArrayLiteral("SCANURL"), QString::fromLatin1(testPattern())), left);
        if (reply) {
            const ServiceReply::Scan scan = ServiceReply::scan(*reply);
            probe.engine = scan.result;
            probe.errorCode = scan.errorCode;
        }
    }
    probe.state = connection.state();
    probe.problem = connection.problem();
    return probe;
}
