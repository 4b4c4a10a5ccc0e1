#include "tvctl/installation/updatestatus.h"

#include "common/checkedfile.h"
#include "common/filename.h"

#include <QFile>
#include <QHash>

namespace
{
/// The file has four lines, the longest of 300 characters.
constexpr qint64 largestFile = 4096;

QDateTime timeOf(const QByteArray& text)
{
    return QDateTime::fromString(QString::fromLatin1(text), Qt::ISODate).toUTC();
}
} // namespace

std::optional<UpdateStatus> UpdateStatus::parse(const QByteArray& text)
{
    QHash<QByteArray, QByteArray> values;
    for (const QByteArray& line : text.split('\n')) {
        const int sign = line.indexOf('=');
        if (sign > 0) {
            values.insert(line.left(sign), line.mid(sign + 1));
        }
    }
    UpdateStatus status;
    status.tried = timeOf(values.value("tried"));
    status.result = QString::fromLatin1(values.value("result"));
    status.succeeded = timeOf(values.value("succeeded"));
    status.message = QString::fromLatin1(values.value("message"));
    return status.tried.isValid() && !status.result.isEmpty() ? std::make_optional(status) : std::nullopt;
}

std::optional<UpdateStatus> UpdateStatus::read(const QString& file)
{
    const CheckedFile checked(FileName::toBytes(file));
    if (checked.kind() != CheckedFile::Kind::Regular) {
        return std::nullopt;
    }
    const UniqueFd opened = checked.openForReading();
    QFile content;
    if (!opened.isValid() || !content.open(opened.get(), QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    return parse(content.read(largestFile));
}
