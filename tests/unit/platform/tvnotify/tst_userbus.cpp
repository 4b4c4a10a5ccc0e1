#include "platform/tvnotify/send/userbus.h"

#include "common/uniquefd.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

class TestUserBus : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void findsUsersByName();
    void findsNobodyInAMissingDirectory();
    void boundsTheNumberOfUsers();
    void givesTheAddressOfARealBus();
    void refuses_data();
    void refuses();
    void staysItself();
    void becomesAnotherForGoodOrNotAtAll();
    void takesNoHalfChange_data();
    void takesNoHalfChange();

private:
    std::string root() const
    {
        return m_directory->path().toStdString();
    }
    std::string home(uid_t user) const
    {
        return root() + '/' + std::to_string(user);
    }

    std::unique_ptr<QTemporaryDir> m_directory;
};

namespace
{

bool bindSocket(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
}

constexpr uid_t pretendedUser = 60001;

/// A change of the user that only seems to be made, but for the step that fails.
struct Pretence
{
    std::string failing;
};
const Pretence* pretence = nullptr;

bool fails(const char* step)
{
    return pretence->failing == step;
}

int refusedIf(bool refused)
{
    errno = EPERM;
    return refused ? -1 : 0;
}

template <typename Function> Function* real(const char* name)
{
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

int setgroups(size_t size, const gid_t* groups) noexcept
{
    static const auto next = real<int(size_t, const gid_t*)>("setgroups");
    return pretence == nullptr ? next(size, groups) : refusedIf(fails("losing the groups"));
}

int setresgid(gid_t group, gid_t effective, gid_t saved) noexcept
{
    static const auto next = real<int(gid_t, gid_t, gid_t)>("setresgid");
    return pretence == nullptr ? next(group, effective, saved) : refusedIf(fails("changing the group"));
}

int setresuid(uid_t user, uid_t effective, uid_t saved) noexcept
{
    static const auto next = real<int(uid_t, uid_t, uid_t)>("setresuid");
    return pretence == nullptr ? next(user, effective, saved) : refusedIf(fails("changing the user"));
}

int getresuid(uid_t* user, uid_t* effective, uid_t* saved) noexcept
{
    static const auto next = real<int(uid_t*, uid_t*, uid_t*)>("getresuid");
    if (pretence == nullptr) {
        return next(user, effective, saved);
    }
    *user = fails("keeping the user") ? 0 : pretendedUser;
    *effective = fails("keeping the effective user") ? 0 : pretendedUser;
    *saved = fails("keeping the saved user") ? 0 : pretendedUser;
    return refusedIf(fails("looking"));
}

int setuid(uid_t user) noexcept
{
    static const auto next = real<int(uid_t)>("setuid");
    return pretence == nullptr ? next(user) : refusedIf(!fails("a way back to the user"));
}

int setgid(gid_t group) noexcept
{
    static const auto next = real<int(gid_t)>("setgid");
    return pretence == nullptr ? next(group) : refusedIf(!fails("a way back to the group"));
}

int prctl(int option, ...) noexcept
{
    static const auto next = real<int(int, ...)>("prctl");
    va_list arguments;
    va_start(arguments, option);
    const auto second = va_arg(arguments, unsigned long);
    va_end(arguments);
    return pretence == nullptr ? next(option, second, 0, 0, 0) : refusedIf(fails("hiding the memory"));
}

} // extern "C"

void TestUserBus::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    QVERIFY(m_directory->isValid());
}

void TestUserBus::findsUsersByName()
{
    for (const char* name : {"0", "1000", "4294967294", "4294967295", "4294967296", "01000", "1000x", " 7",
                             "-1", "+5", "x", "0x10", "1.5"}) {
        QVERIFY(QDir(m_directory->path()).mkdir(QString::fromLatin1(name)));
    }
    std::vector<uid_t> users = usersIn(root());
    std::sort(users.begin(), users.end());
    QCOMPARE(users, (std::vector<uid_t>{0, 1000, 4294967294}));
}

void TestUserBus::findsNobodyInAMissingDirectory()
{
    QVERIFY(usersIn(root() + "/missing").empty());
}

void TestUserBus::boundsTheNumberOfUsers()
{
    for (int user = 1000; user < 1600; ++user) {
        QVERIFY(QDir(m_directory->path()).mkdir(QString::number(user)));
    }
    QCOMPARE(usersIn(root()).size(), std::size_t(512));
}

void TestUserBus::givesTheAddressOfARealBus()
{
    const uid_t user = ::geteuid();
    QCOMPARE(::mkdir(home(user).c_str(), 0700), 0);
    QVERIFY(bindSocket(home(user) + "/bus"));
    QCOMPARE(userBusAddress(root(), user), "unix:path=" + home(user) + "/bus");
}

void TestUserBus::refuses_data()
{
    QTest::addColumn<QString>("what");
    for (const char* what : {"no directory", "no socket", "a file for a socket", "a link to a socket",
                             "a link to a directory", "a file for a directory", "a directory of another"}) {
        QTest::newRow(what) << QString::fromLatin1(what);
    }
    if (::geteuid() == 0) {
        // Only root can make one.
        QTest::newRow("a socket of another") << QStringLiteral("a socket of another");
    }
}

void TestUserBus::refuses()
{
    QFETCH(QString, what);
    const uid_t user = ::geteuid();
    const uid_t stranger = user + 1;
    const std::string own = home(user);
    uid_t asked = user;
    if (what == QLatin1String("no socket")) {
        QCOMPARE(::mkdir(own.c_str(), 0700), 0);
    } else if (what == QLatin1String("a file for a socket")) {
        QCOMPARE(::mkdir(own.c_str(), 0700), 0);
        QVERIFY(QFile(QString::fromStdString(own + "/bus")).open(QIODevice::WriteOnly));
    } else if (what == QLatin1String("a link to a socket")) {
        QCOMPARE(::mkdir(own.c_str(), 0700), 0);
        QVERIFY(bindSocket(own + "/real"));
        QCOMPARE(::symlink("real", (own + "/bus").c_str()), 0);
    } else if (what == QLatin1String("a link to a directory")) {
        QCOMPARE(::mkdir((root() + "/real").c_str(), 0700), 0);
        QVERIFY(bindSocket(root() + "/real/bus"));
        QCOMPARE(::symlink("real", own.c_str()), 0);
    } else if (what == QLatin1String("a socket of another")) {
        QCOMPARE(::mkdir(own.c_str(), 0700), 0);
        QVERIFY(bindSocket(own + "/bus"));
        QCOMPARE(::chown((own + "/bus").c_str(), stranger, stranger), 0);
    } else if (what == QLatin1String("a file for a directory")) {
        QVERIFY(QFile(QString::fromStdString(own)).open(QIODevice::WriteOnly));
    } else if (what == QLatin1String("a directory of another")) {
        asked = stranger;
        QCOMPARE(::mkdir(home(stranger).c_str(), 0755), 0);
        QVERIFY(bindSocket(home(stranger) + "/bus"));
        if (user == 0) {
            // Only the directory is wrong then.
            QCOMPARE(::chown((home(stranger) + "/bus").c_str(), stranger, stranger), 0);
        }
    }
    QCOMPARE(userBusAddress(root(), asked), std::string());
}

void TestUserBus::staysItself()
{
    QVERIFY(becomeUser(::geteuid()));
}

/// As root it must work for good; as anybody else it must fail, and say so.
void TestUserBus::becomesAnotherForGoodOrNotAtAll()
{
    const bool isRoot = ::geteuid() == 0;
    const pid_t child = ::fork();
    if (child == 0) {
        // A group to lose; refused to anybody but root, who has the most of them.
        const gid_t group = 4;
        static_cast<void>(::setgroups(1, &group));
        const bool became = becomeUser(60001);
        if (!isRoot) {
            ::_exit(became ? 10 : 0);
        }
        int result = 0;
        result = became ? result : 1;
        result = ::getuid() == 60001 && ::geteuid() == 60001 ? result : 2;
        result = ::getgid() == 65534 && ::getegid() == 65534 ? result : 3;
        result = ::getgroups(0, nullptr) == 0 ? result : 4;
        result = ::setresuid(0, 0, 0) != 0 && ::setgroups(0, nullptr) != 0 ? result : 5;
        result = ::chown("/", 0, 0) != 0 ? result : 6;
        result = ::prctl(PR_GET_DUMPABLE) == 0 ? result : 7;
        ::_exit(result);
    }
    int status = -1;
    QCOMPARE(::waitpid(child, &status, 0), child);
    QCOMPARE(status, 0);
}

void TestUserBus::takesNoHalfChange_data()
{
    QTest::addColumn<bool>("became");
    QTest::newRow("nothing") << true;
    for (const char* step : {"losing the groups", "changing the group", "changing the user",
                             "hiding the memory", "looking", "keeping the user", "keeping the effective user",
                             "keeping the saved user", "a way back to the user", "a way back to the group"}) {
        QTest::newRow(step) << false;
    }
}

void TestUserBus::takesNoHalfChange()
{
    QFETCH(bool, became);
    const Pretence change{QTest::currentDataTag()};
    pretence = &change;
    const bool result = becomeUser(pretendedUser);
    pretence = nullptr;
    QCOMPARE(result, became);
}

QTEST_GUILESS_MAIN(TestUserBus)
#include "tst_userbus.moc"
