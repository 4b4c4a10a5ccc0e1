// Messages of several clients at the dispatcher of the command port, over scanners that only take notes. Each
// is answered as docs/protocol.md tells, and nothing is scanned, cleaned or loaded that was not asked for.
//
// A piece of the input begins with a letter that chooses the client, what the scanners answer and, with '8'
// for example, that the client leaves; the rest is the message.

#include "common/common.h"
#include "fuzz/pieces.h"
#include "fuzz/property.h"
#include "socket/csocketmanager.h"
#include "support/fakescanners.h"

#include <QCoreApplication>
#include <QFileInfo>

#include <array>
#include <cerrno>

#include <sys/socket.h>
#include <unistd.h>

namespace
{
constexpr int longestMessage = 4096;

struct Client
{
    int served = -1;
    int peer = -1;
    QString name;
};
std::array<Client, 4> clients;

/// What the scanners answer.
struct Outcome
{
    int scan;
    int clean;
    int ioc;
    bool isLoaded;
};
constexpr std::array<Outcome, 4> outcomes = {
    {{0, 0, 0, true}, {1, 1, 1, true}, {8, -1, 3, false}, {-5, 0, 4, true}}};

/// A command as the document describes it.
struct Command
{
    const char* word;
    bool isBeginning;
    bool needsName;
    const char* call;
};
constexpr std::array<Command, 9> commands = {{{"MODULE", false, false, ""},
                                              {"SCAN", false, true, "scan "},
                                              {"CLEAN", false, true, "clean "},
                                              {"SCANURL", false, true, "url "},
                                              {"SCANIOC", false, true, "ioc "},
                                              {"RELOADDB", true, false, "reload db"},
                                              {"RELOADSETT", true, false, "reload settings"},
                                              {"RELOADIOCDB", true, false, "reload ioc db"},
                                              {"RELOADIOCSETT", true, false, "reload ioc settings"}}};

/// Whether `text` begins with `word`, whatever the case.
bool beginsWith(const QString& text, const QString& word)
{
    bool isEqual = text.size() >= word.size();
    for (int i = 0; isEqual && i < word.size(); ++i) {
        isEqual = text.at(i).toCaseFolded() == word.at(i).toCaseFolded();
    }
    return isEqual;
}

struct Expected
{
    QByteArray reply = "INVALID COMMAND!";
    QStringList calls;
};

QByteArray verdict(int result)
{
    return result == 0   ? QByteArrayLiteral("CLEAN")
           : result == 1 ? QByteArrayLiteral("INFECTED Test-Name")
                         : "ERROR " + QByteArray::number(result);
}

QByteArray replyTo(const Command& command, const Outcome& outcome)
{
    const QString call = QLatin1String(command.call);
    if (call.isEmpty()) {
        return "REGISTERED!";
    }
    if (call == QLatin1String("scan ") || call == QLatin1String("url ")) {
        return verdict(outcome.scan);
    }
    if (call == QLatin1String("clean ")) {
        return outcome.clean == 0 ? "FAILED 9" : "CLEANED";
    }
    if (call == QLatin1String("ioc ")) {
        constexpr std::array<const char*, 5> replies = {"CLEAN", "MD5:IA:ab", "MD5:IR:ab", "MD5:ID:ab",
                                                        "MD5:ab:ERROR"};
        return replies.at(static_cast<std::size_t>(outcome.ioc));
    }
    return outcome.isLoaded ? "SUCCESS" : "FAILED";
}

/// What is to come of `message`. Takes down the client's name.
Expected expectedOf(const QString& message, Client& client, const Outcome& outcome)
{
    QString word;
    QString argument;
    int i = 0;
    for (; i < message.size() && (message.at(i) != QLatin1Char(' ') || i == 0); ++i) {
        word += message.at(i);
    }
    // A space in front makes all of it the command.
    if (message.startsWith(QLatin1Char(' '))) {
        word = message;
        i = message.size();
    }
    for (++i; i < message.size(); ++i) {
        if (message.at(i) != QLatin1Char('\r') && message.at(i) != QLatin1Char('\n')) {
            argument += message.at(i);
        }
    }
    Expected expected;
    for (const Command& command : commands) {
        const QString known = QLatin1String(command.word);
        if (!beginsWith(word, known) || (!command.isBeginning && word.size() != known.size())) {
            continue;
        }
        if (command.needsName && client.name.isEmpty()) {
            break;
        }
        const QString call = QLatin1String(command.call);
        if (call.isEmpty()) {
            client.name = argument;
        } else {
            expected.calls.append(command.isBeginning ? call : call + argument);
        }
        expected.reply = replyTo(command, outcome);
        break;
    }
    return expected;
}

QByteArray received(int peer)
{
    static std::array<char, 2 * longestMessage> buffer;
    const ssize_t size = ::recv(peer, buffer.data(), buffer.size(), MSG_DONTWAIT);
    return size < 0 ? QByteArray() : QByteArray(buffer.data(), static_cast<int>(size));
}

void serve(Client& client, const QByteArray& bytes, const Outcome& outcome)
{
    FakeScanners::reset();
    FakeScanners::scanResult = outcome.scan;
    FakeScanners::urlResult = outcome.scan;
    FakeScanners::virusName = QStringLiteral("Test-Name");
    FakeScanners::cleanResult = outcome.clean;
    FakeScanners::lastError = 9;
    FakeScanners::iocResult = outcome.ioc;
    FakeScanners::hash = QStringLiteral("ab");
    FakeScanners::reloadResult = outcome.isLoaded;

    // As the client's thread makes it from what it has read.
    const QString message = QString::fromUtf8(bytes.left(longestMessage).constData());
    const Expected expected = expectedOf(message, client, outcome);
    CSocketManager::getInstance()->onClientReceivedMessage(client.served, message);
    require(FakeScanners::calls == expected.calls, "the scanners are asked for what the message says");
    require(received(client.peer) == expected.reply, "the reply is the one that the protocol has");
    require(received(client.peer).isEmpty(), "there is one reply to a message");
}

void disconnect(Client& client)
{
    CSocketManager::getInstance()->onClientDisconnected(client.served);
    client.name.clear();
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    static QCoreApplication application(*argc, *argv);
    // Lines are put together as ever, and kept nowhere.
    const QString program = QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    const QByteArray log =
        (Common::getLogsPath() + QLatin1Char('/') + program + QStringLiteral(".log")).toUtf8();
    ::unlink(log.constData());
    require(::symlink("/dev/null", log.constData()) == 0, "the log can be put aside");
    for (Client& client : clients) {
        std::array<int, 2> ends = {};
        // Packets, so that each reply is seen as it was sent.
        require(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) == 0,
                "there are sockets");
        client.served = ends[0];
        client.peer = ends[1];
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    for (Client& client : clients) {
        disconnect(client);
    }
    Pieces pieces(data, size);
    while (!pieces.isAtEnd()) {
        const QByteArray piece = pieces.next();
        if (piece.isEmpty()) {
            continue;
        }
        const auto choice = static_cast<unsigned char>(piece.at(0));
        Client& client = clients.at(choice & 3U);
        if ((choice & 8U) != 0) {
            disconnect(client);
        } else {
            serve(client, piece.mid(1), outcomes.at((choice >> 4U) & 3U));
        }
    }
    return 0;
}
