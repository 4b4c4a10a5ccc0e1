#include "socket/clientrequest.h"

#include <QTest>

#include <random>
#include <string>

Q_DECLARE_METATYPE(ClientCommand)

class TestClientRequest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void parses_data();
    void parses();
    void recognises_data();
    void recognises();
    void asksForRegistration_data();
    void asksForRegistration();
    void agreesWithANaiveModel();
};

void TestClientRequest::parses_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("argument");
    const auto row = [](const char* name, const char* message, const char* command, const char* argument) {
        QTest::newRow(name) << QString::fromUtf8(message) << QString::fromUtf8(command)
                            << QString::fromUtf8(argument);
    };
    row("nothing", "", "", "");
    row("word", "SCAN", "SCAN", "");
    row("word and space", "SCAN ", "SCAN", "");
    row("path", "SCAN /home/u/a", "SCAN", "/home/u/a");
    row("path with spaces", "SCAN /home/u/a b  c ", "SCAN", "/home/u/a b  c ");
    row("two spaces", "SCAN  /a", "SCAN", " /a");
    row("leading space", " SCAN x", " SCAN x", "");
    row("leading space and line end", " SCAN x\r\n", " SCAN x\r\n", "");
    row("only a space", " ", " ", "");
    row("tab is no space", "SCAN\t/a", "SCAN\t/a", "");
    row("no-break space is no space", "SCAN\u00A0/a", "SCAN\u00A0/a", "");
    row("line end of an argument", "SCAN /a\r\n", "SCAN", "/a");
    row("line ends within an argument", "SCAN \r/a\nb\r\r\n\nc", "SCAN", "/abc");
    row("line end of a command", "RELOADDB\r\n", "RELOADDB\r\n", "");
    row("line end between command and space", "SCAN\n /a", "SCAN\n", "/a");
    row("argument of line ends only", "MODULE \r\n", "MODULE", "");
    row("two commands run together", "SCAN /aSCAN /b", "SCAN", "/aSCAN /b");
    row("text beyond ASCII", "SCAN /h\u00F6me/\u4E2D", "SCAN", "/h\u00F6me/\u4E2D");
    row("other line separators stay", "SCAN /a\u2028\u0085\v", "SCAN", "/a\u2028\u0085\v");
    row("control characters stay", "SCAN \x01\x1B[2J", "SCAN", "\x01\x1B[2J");
}

void TestClientRequest::parses()
{
    QFETCH(QString, message);
    const ClientRequest request = parseRequest(message);
    QTEST(request.command, "command");
    QTEST(request.argument, "argument");
}

void TestClientRequest::recognises_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<ClientCommand>("command");
    const auto row = [](const char* text, ClientCommand command) {
        QTest::newRow(text) << QString::fromUtf8(text) << command;
    };
    row("MODULE", ClientCommand::Module);
    row("module", ClientCommand::Module);
    row("MoDuLe", ClientCommand::Module);
    row("MODULE\n", ClientCommand::Invalid);
    row("MODULES", ClientCommand::Invalid);
    row("MODUL", ClientCommand::Invalid);
    row("SCAN", ClientCommand::Scan);
    row("scan", ClientCommand::Scan);
    row("SCAN\r\n", ClientCommand::Invalid);
    row("SCAN\n", ClientCommand::Invalid);
    row("SCA", ClientCommand::Invalid);
    row("SCANS", ClientCommand::Invalid);
    row("\u017FCAN", ClientCommand::Scan);
    row("CLEAN", ClientCommand::Clean);
    row("clean", ClientCommand::Clean);
    row("CLEANED", ClientCommand::Invalid);
    row("SCANURL", ClientCommand::ScanUrl);
    row("scanurl", ClientCommand::ScanUrl);
    row("SCANURLS", ClientCommand::Invalid);
    row("SCANIOC", ClientCommand::ScanIoc);
    row("ScanIoc", ClientCommand::ScanIoc);
    row("SCANIO", ClientCommand::Invalid);
    row("RELOADDB", ClientCommand::ReloadDb);
    row("reloaddb", ClientCommand::ReloadDb);
    row("RELOADDB\r\n", ClientCommand::ReloadDb);
    row("RELOADDBASE", ClientCommand::ReloadDb);
    row("RELOADD", ClientCommand::Invalid);
    row("XRELOADDB", ClientCommand::Invalid);
    row("RELOADSETT", ClientCommand::ReloadSettings);
    row("RELOADSETTINGS", ClientCommand::ReloadSettings);
    row("reloadsettings\n", ClientCommand::ReloadSettings);
    row("RELOAD\u017FETT", ClientCommand::ReloadSettings);
    row("RELOADSET", ClientCommand::Invalid);
    row("RELOADIOCDB", ClientCommand::ReloadIocDb);
    row("reloadiocdb\r", ClientCommand::ReloadIocDb);
    row("RELOADIOCDB2", ClientCommand::ReloadIocDb);
    row("RELOADIOC", ClientCommand::Invalid);
    row("RELOADIOCSETT", ClientCommand::ReloadIocSettings);
    row("RELOADIOCSETTINGS", ClientCommand::ReloadIocSettings);
    row("reloadiocsett", ClientCommand::ReloadIocSettings);
    row("RELOADIOCSET", ClientCommand::Invalid);
    row("RELOAD", ClientCommand::Invalid);
    row("", ClientCommand::Invalid);
    row(" SCAN x", ClientCommand::Invalid);
    row("\uFFFD", ClientCommand::Invalid);
}

void TestClientRequest::recognises()
{
    QFETCH(QString, text);
    QFETCH(ClientCommand, command);
    QCOMPARE(static_cast<int>(commandOf(text)), static_cast<int>(command));
}

void TestClientRequest::asksForRegistration_data()
{
    QTest::addColumn<ClientCommand>("command");
    QTest::addColumn<bool>("needed");
    QTest::newRow("MODULE") << ClientCommand::Module << false;
    QTest::newRow("SCAN") << ClientCommand::Scan << true;
    QTest::newRow("CLEAN") << ClientCommand::Clean << true;
    QTest::newRow("SCANURL") << ClientCommand::ScanUrl << true;
    QTest::newRow("SCANIOC") << ClientCommand::ScanIoc << true;
    QTest::newRow("RELOADDB") << ClientCommand::ReloadDb << false;
    QTest::newRow("RELOADSETT") << ClientCommand::ReloadSettings << false;
    QTest::newRow("RELOADIOCDB") << ClientCommand::ReloadIocDb << false;
    QTest::newRow("RELOADIOCSETT") << ClientCommand::ReloadIocSettings << false;
    QTest::newRow("invalid") << ClientCommand::Invalid << false;
}

void TestClientRequest::asksForRegistration()
{
    QFETCH(ClientCommand, command);
    QTEST(needsRegistration(command), "needed");
}

namespace
{
/// What a request means, worked out from its bytes alone, one by one, without Qt.
struct Model
{
    std::string command;
    std::string argument;
    ClientCommand meaning = ClientCommand::Invalid;
};

/// The bytes in upper case; the long s, which is an S to whoever ignores case, becomes one.
std::string raised(const std::string& text)
{
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c >= 'a' && c <= 'z') {
            result += static_cast<char>(c - 'a' + 'A');
        } else if (c == '\xC5' && i + 1 < text.size() && text[i + 1] == '\xBF') {
            result += 'S';
            ++i;
        } else {
            result += c;
        }
    }
    return result;
}

Model modelOf(std::string bytes)
{
    if (bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        bytes.erase(0, 3);
    }
    Model model;
    bool inArgument = false;
    for (const char c : bytes) {
        if (!inArgument && c == ' ' && !model.command.empty() && model.command[0] != ' ') {
            inArgument = true;
        } else if (!inArgument) {
            model.command += c;
        } else if (c != '\r' && c != '\n') {
            model.argument += c;
        }
    }
    const std::string word = raised(model.command);
    if (word == "MODULE") {
        model.meaning = ClientCommand::Module;
    } else if (word == "SCAN") {
        model.meaning = ClientCommand::Scan;
    } else if (word == "CLEAN") {
        model.meaning = ClientCommand::Clean;
    } else if (word == "SCANURL") {
        model.meaning = ClientCommand::ScanUrl;
    } else if (word == "SCANIOC") {
        model.meaning = ClientCommand::ScanIoc;
    } else if (word.rfind("RELOADDB", 0) == 0) {
        model.meaning = ClientCommand::ReloadDb;
    } else if (word.rfind("RELOADSETT", 0) == 0) {
        model.meaning = ClientCommand::ReloadSettings;
    } else if (word.rfind("RELOADIOCDB", 0) == 0) {
        model.meaning = ClientCommand::ReloadIocDb;
    } else if (word.rfind("RELOADIOCSETT", 0) == 0) {
        model.meaning = ClientCommand::ReloadIocSettings;
    }
    return model;
}
} // namespace

void TestClientRequest::agreesWithANaiveModel()
{
    constexpr int messages = 100000;
    const std::vector<std::string> pieces = {
        "MODULE", "module", "SCAN",     "scan",     "CLEAN",        "URL",          "IOC",
        "ioc",    "RELOAD", "Reload",   "DB",       "db",           "SETT",         "sett",
        " ",      " ",      "\r",       "\n",       "\t",           "/home/u",      "a",
        "S",      "s",      "\xC5\xBF", "\xC3\xB6", "\xE4\xB8\xAD", "\xEF\xBB\xBF", "\xF0\x9F\x98\x80",
        "%1",     "%s",     "\x01",     "\x1B",     "\xC2\xA0"};
    std::mt19937 random(20240501);
    std::uniform_int_distribution<size_t> pick(0, pieces.size() - 1);
    std::uniform_int_distribution<int> length(0, 7);
    int meaningful = 0;
    for (int i = 0; i < messages; ++i) {
        std::string bytes;
        for (int left = length(random); left > 0; --left) {
            bytes += pieces[pick(random)];
        }
        const Model model = modelOf(bytes);
        const ClientRequest request = parseRequest(QString::fromUtf8(bytes.c_str()));
        QCOMPARE(request.command.toUtf8().toStdString(), model.command);
        QCOMPARE(request.argument.toUtf8().toStdString(), model.argument);
        QVERIFY2(commandOf(request.command) == model.meaning, bytes.c_str());
        meaningful += model.meaning == ClientCommand::Invalid ? 0 : 1;
    }
    // The messages are of use only when many of them are commands.
    QVERIFY(meaningful > messages / 50);
}

QTEST_GUILESS_MAIN(TestClientRequest)
#include "tst_clientrequest.moc"
