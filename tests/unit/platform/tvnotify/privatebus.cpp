#include "privatebus.h"

#include <QFile>
#include <QJsonDocument>
#include <QProcessEnvironment>

#include <grp.h>
#include <unistd.h>

namespace
{

/// A program that runs as another user.
class ProcessOfUser : public QProcess
{
public:
    explicit ProcessOfUser(uid_t user) : m_user(user)
    {
    }

protected:
    void setupChildProcess() override
    {
        if (m_user != ::geteuid() &&
            (::setgroups(0, nullptr) != 0 || ::setresgid(m_user, m_user, m_user) != 0 ||
             ::setresuid(m_user, m_user, m_user) != 0)) {
            ::_exit(EXIT_FAILURE);
        }
    }

private:
    const uid_t m_user;
};

void end(std::unique_ptr<QProcess>& process)
{
    if (process) {
        process->kill();
        process->waitForFinished();
        process.reset();
    }
}

} // namespace

PrivateBus::PrivateBus(const QString& directory, uid_t owner) : m_directory(directory), m_owner(owner)
{
}

PrivateBus::~PrivateBus()
{
    stopServer();
    stop();
}

QByteArray PrivateBus::address() const
{
    return "unix:path=" + QFile::encodeName(m_directory) + "/bus";
}

bool PrivateBus::start()
{
    QFile::remove(m_directory + QStringLiteral("/bus"));
    return startProgram(m_bus, QStringLiteral("dbus-daemon"),
                        {QStringLiteral("--nofork"), QStringLiteral("--nopidfile"),
                         QStringLiteral("--print-address"),
                         QStringLiteral("--config-file=") + copyForOwner(QStringLiteral("session-bus.conf")),
                         QStringLiteral("--address=") + QString::fromLatin1(address())});
}

void PrivateBus::stop()
{
    end(m_bus);
}

bool PrivateBus::startServer(bool hang)
{
    QStringList arguments{copyForOwner(QStringLiteral("notification_recorder.py")),
                          m_directory + QStringLiteral("/calls")};
    if (hang) {
        arguments += QStringLiteral("--hang");
    }
    return startProgram(m_server, QStringLiteral("/usr/bin/python3"), arguments);
}

void PrivateBus::stopServer()
{
    end(m_server);
}

pid_t PrivateBus::busId() const
{
    return static_cast<pid_t>(m_bus->processId());
}

pid_t PrivateBus::serverId() const
{
    return static_cast<pid_t>(m_server->processId());
}

QList<QJsonObject> PrivateBus::calls() const
{
    QList<QJsonObject> calls;
    QFile file(m_directory + QStringLiteral("/calls"));
    if (file.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = file.readAll().split('\n');
        for (const QByteArray& line : lines) {
            if (!line.isEmpty()) {
                calls += QJsonDocument::fromJson(line).object();
            }
        }
    }
    return calls;
}

int PrivateBus::callCount() const
{
    QFile file(m_directory + QStringLiteral("/calls"));
    return file.open(QIODevice::ReadOnly) ? file.readAll().count('\n') : 0;
}

/// Waits for the program's first line, which tells that it serves.
bool PrivateBus::startProgram(std::unique_ptr<QProcess>& process, const QString& program,
                              const QStringList& arguments)
{
    process = std::make_unique<ProcessOfUser>(m_owner);
    process->setStandardErrorFile(QStringLiteral("/dev/null"));
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), QString::fromLatin1(address()));
    process->setProcessEnvironment(environment);
    process->setWorkingDirectory(QStringLiteral("/"));
    process->start(program, arguments);
    while (!process->canReadLine()) {
        if (!process->waitForReadyRead(20000)) {
            return false;
        }
    }
    return true;
}

/// The source tree may stand where the owner of the bus cannot read.
QString PrivateBus::copyForOwner(const QString& name) const
{
    QString copy = m_directory + QLatin1Char('/') + name;
    const QString source = qEnvironmentVariable("TVFILEMON_SOURCE_DIR") + QStringLiteral("/tests/support/");
    QFile::copy(source + name, copy);
    QFile::setPermissions(copy, QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther);
    return copy;
}
