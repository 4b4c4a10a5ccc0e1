#include "processes.h"

#include <QDir>
#include <QFile>

namespace
{

/// The fields of /proc/PID/stat from the state on; the name before it may contain anything.
QList<QByteArray> statusFields(pid_t process)
{
    QFile file(QStringLiteral("/proc/%1/stat").arg(process));
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    const QByteArray line = file.readAll();
    return line.mid(line.lastIndexOf(')') + 2).split(' ');
}

} // namespace

QList<pid_t> childrenOf(pid_t parent)
{
    QList<pid_t> children;
    const QStringList names = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString& name : names) {
        const pid_t process = name.toInt();
        const QList<QByteArray> fields = statusFields(process);
        if (process > 0 && fields.size() > 1 && fields[1].toInt() == parent) {
            children += process;
        }
    }
    return children;
}

char stateOf(pid_t process)
{
    const QList<QByteArray> fields = statusFields(process);
    return fields.isEmpty() || fields[0].isEmpty() ? '\0' : fields[0][0];
}

bool hasEnded(pid_t process)
{
    const char state = stateOf(process);
    return state == '\0' || state == 'Z' || state == 'X';
}

int descriptorCount(pid_t process)
{
    return QDir(QStringLiteral("/proc/%1/fd").arg(process))
        .entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot)
        .size();
}
