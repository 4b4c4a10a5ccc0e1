#pragma once

#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>

#include <memory>

#include <sys/types.h>

/// A session bus of a test's own in `directory`, run as `owner`, and the notification server on it.
class PrivateBus
{
public:
    /// `directory` exists and belongs to `owner`.
    PrivateBus(const QString& directory, uid_t owner);
    ~PrivateBus();

    /// The bus's address, whether or not it runs.
    QByteArray address() const;

    bool start();
    void stop();
    bool startServer(bool hang = false);
    void stopServer();
    pid_t busId() const;
    pid_t serverId() const;

    /// What the server was asked to show, over all its lives.
    QList<QJsonObject> calls() const;
    int callCount() const;

private:
    bool startProgram(std::unique_ptr<QProcess>& process, const QString& program,
                      const QStringList& arguments);
    QString copyForOwner(const QString& name) const;

    const QString m_directory;
    const uid_t m_owner;
    std::unique_ptr<QProcess> m_bus;
    std::unique_ptr<QProcess> m_server;
};
