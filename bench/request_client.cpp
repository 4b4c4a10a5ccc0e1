// Sends requests over one or several connections, each after the reply to the one before, and times each.
//
//   request_client PROTOCOL ADDRESS SESSIONS COUNT EXPECTED LIST
//
// PROTOCOL is "scan", "scanurl" or "scanioc" of the command port, or "clamd-scan" or "clamd-instream" of a
// clamd session. The lines of LIST, gone through as often as COUNT requests need, are the arguments. A reply
// in which EXPECTED is not found ends the program.
#include "kit/clock.h"
#include "kit/connection.h"
#include "kit/program.h"
#include "kit/report.h"

#include <future>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>

namespace
{
const std::map<std::string, std::string> commandsOfPort = {
    {"scan", "SCAN "}, {"scanurl", "SCANURL "}, {"scanioc", "SCANIOC "}};

std::string withZero(const std::string& text)
{
    return text + '\0';
}

std::string lengthOf(const std::string& text)
{
    const uint32_t length = htonl(static_cast<uint32_t>(text.size()));
    return {reinterpret_cast<const char*>(&length), sizeof(length)};
}

/// One connection, and how it asks.
class Session
{
public:
    Session(const std::string& protocol, const std::string& address) : m_connection(address)
    {
        const auto command = commandsOfPort.find(protocol);
        m_isClamd = command == commandsOfPort.end();
        if (!m_isClamd) {
            m_prefix = command->second;
            m_connection.send("MODULE bench");
            m_connection.receive();
        } else if (protocol == "clamd-scan" || protocol == "clamd-instream") {
            m_isStream = protocol == "clamd-instream";
            m_connection.send(withZero("zIDSESSION"));
        } else {
            Program::fail("no such protocol: " + protocol);
        }
    }

    std::string ask(const std::string& argument)
    {
        if (!m_isClamd) {
            m_connection.send(m_prefix + argument);
            return m_connection.receive();
        }
        std::string request = withZero(m_isStream ? "zINSTREAM" : "zSCAN " + argument);
        if (m_isStream) {
            request.append(lengthOf(argument)).append(argument).append(lengthOf(std::string()));
        }
        m_connection.send(request);
        return m_connection.receiveLine();
    }

private:
    Connection m_connection;
    bool m_isClamd = false;
    bool m_isStream = false;
    std::string m_prefix;
};
} // namespace

int main(int argc, char* argv[])
{
    Program::expectArguments(argc, 6, "request_client PROTOCOL ADDRESS SESSIONS COUNT EXPECTED LIST");
    const auto sessionCount = static_cast<size_t>(Program::number(argv[3]));
    const auto count = static_cast<size_t>(Program::number(argv[4])) / sessionCount;
    const std::string expected = argv[5];
    const std::vector<std::string> arguments = Program::linesOf(argv[6]);

    std::vector<Session> sessions;
    std::vector<std::vector<int64_t>> times(sessionCount);
    for (size_t i = 0; i < sessionCount; ++i) {
        sessions.emplace_back(argv[1], argv[2]);
    }
    std::promise<void> start;
    const std::shared_future<void> started = start.get_future().share();
    const auto run = [&](size_t session) {
        started.wait();
        for (size_t i = 0; i < count; ++i) {
            const std::string& argument = arguments[(session * count + i) % arguments.size()];
            const int64_t begin = nanosecondsNow();
            const std::string reply = sessions[session].ask(argument);
            times[session].push_back(nanosecondsNow() - begin);
            if (reply.find(expected) == std::string::npos) {
                Program::fail(argument + " was answered by " + reply);
            }
        }
    };
    std::vector<std::thread> threads;
    for (size_t i = 0; i < sessionCount; ++i) {
        times[i].reserve(count);
        threads.emplace_back(run, i);
    }
    const int64_t begin = nanosecondsNow();
    start.set_value();
    for (std::thread& thread : threads) {
        thread.join();
    }
    const int64_t whole = nanosecondsNow() - begin;
    std::vector<int64_t> all;
    for (const std::vector<int64_t>& some : times) {
        all.insert(all.end(), some.begin(), some.end());
    }
    Report().add("whole", whole).add("each", all).print();
    return 0;
}
