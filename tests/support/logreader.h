#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QVector>

#include "common/common.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QRegularExpression>

/// One line of the service's log, taken apart.
struct LogLine
{
    QByteArray level;
    QByteArray location;
    QByteArray message;

    bool operator==(const LogLine& other) const
    {
        return level == other.level && location == other.location && message == other.message;
    }
};

/// Reads what this process logs from the moment the reader was made (or last asked). Counter lines of
/// repeated messages count as lines of an empty level whose message is the counter.
class LogReader
{
public:
    LogReader()
    {
        m_position = QFileInfo(path()).size();
    }

    static QString path()
    {
        return Common::getLogsPath() + QLatin1Char('/') +
               QFileInfo(QCoreApplication::applicationFilePath()).fileName() + QStringLiteral(".log");
    }

    QVector<LogLine> takeNew()
    {
        QVector<LogLine> lines;
        QFile file(path());
        if (!file.open(QIODevice::ReadOnly) || !file.seek(m_position)) {
            return lines;
        }
        const QByteArray text = file.readAll();
        m_position += text.size();
        static const QRegularExpression pattern(
            QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d:\\d{3}  (?:\\[(\\w+)\\] )? "
                           "\\[([^\\]]*)\\] :: (.*)$"));
        for (QByteArray line : text.split('\n')) {
            if (line.endsWith('\r')) {
                line.chop(1);
            }
            if (line.isEmpty()) {
                continue;
            }
            const QRegularExpressionMatch match = pattern.match(QString::fromLatin1(line));
            if (match.hasMatch()) {
                lines.append({match.captured(1).toLatin1(), match.captured(2).toLatin1(),
                              match.captured(3).toLatin1()});
            } else {
                lines.append({QByteArray(), QByteArray(), line});
            }
        }
        return lines;
    }

private:
    qint64 m_position = 0;
};

/// How an error number stands in a line of level ERROR.
inline QByteArray errorCode(int code)
{
    return "[0x" + QByteArray::number(code, 16).toUpper().rightJustified(8, '0') + "]: ";
}

inline char* toString(const LogLine& line)
{
    return qstrdup((line.level + '|' + line.location + '|' + line.message).constData());
}
