#include "unit/tvctl/hashlists/listreading.h"

#include <QBuffer>

#include <algorithm>

QByteArray md5Of(char digit)
{
    return QByteArray(32, digit);
}

QByteArray sha1Of(char digit)
{
    return QByteArray(40, digit);
}

QByteArray sha256Of(char digit)
{
    return QByteArray(64, digit);
}

void RecordingSink::accept(const HashIndicator& indicator)
{
    const QStringList types = {QStringLiteral("md5"), QStringLiteral("sha1"), QStringLiteral("sha256")};
    const QString digits =
        QString::fromLatin1(indicator.digits.data(), static_cast<int>(indicator.digits.size()));
    const bool isRepeated = digits.count(digits.at(0)) == digits.size();
    accepted.append(QStringLiteral("%1 %2 %3")
                        .arg(indicator.line)
                        .arg(types.at(indicator.type), isRepeated ? digits.left(1) : digits));
}

void RecordingSink::reject(qint64 line, const QString& reason)
{
    rejected.append(QStringLiteral("%1 %2").arg(line).arg(reason));
}

Reading readList(const QByteArray& list, const HashListOptions& options, const QString& name)
{
    QBuffer buffer;
    buffer.setData(list);
    buffer.open(QIODevice::ReadOnly);
    RecordingSink sink;
    const HashListResult result = readHashList(buffer, name, options, sink);
    return {sink.accepted, sink.rejected, result};
}

Reading readList(const QByteArray& list, HashListFormat format)
{
    HashListOptions options;
    options.format = format;
    return readList(list, options);
}

QStringList lines(const char* text)
{
    return QString::fromLatin1(text).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}
