#include "tvctl/detections/iocreportrecord.h"

#include <QLocale>
#include <QRegularExpression>
#include <QStringList>

namespace
{
constexpr int timeLength = 19;
constexpr int fieldCount = 11;
constexpr int reservedFields = 6;
/// Action, kind and hash.
constexpr int knownFields = 3;

QDateTime timeOf(const QByteArray& line)
{
    return QLocale::c().toDateTime(QString::fromLatin1(line.left(timeLength)),
                                   QStringLiteral("dd-MM-yyyy hh:mm:ss"));
}

/// How many of the known values went into the path instead of their columns. -1 when this is no end of a
/// record.
int shiftOf(const QStringList& fields)
{
    const int last = fields.size() - 1;
    // As many columns at the end kept their placeholder as values went elsewhere.
    int kept = 0;
    while (kept <= knownFields &&
           fields.at(last - kept) == QLatin1Char('%') + QString::number(fieldCount - kept)) {
        ++kept;
    }
    int reserved = 0;
    while (reserved < reservedFields && fields.at(last - kept - reserved) == QLatin1String("NA")) {
        ++reserved;
    }
    if (reserved == reservedFields && kept <= knownFields) {
        return kept;
    }
    // The first digits of the hash, behind a percent sign of the path, made a placeholder of their own, which
    // took in the first of the reserved values.
    return reserved >= reservedFields - 1 && kept > 0 ? kept - 1 : -1;
}

/// By its digits alone; 0 for what is none.
int kindOfHash(const QString& text)
{
    static const QRegularExpression digits(QRegularExpression::anchoredPattern(QStringLiteral("[0-9a-f]*")));
    if (!digits.match(text).hasMatch()) {
        return 0;
    }
    switch (text.size()) {
    case 32:
        return 4;
    case 40:
        return 5;
    default:
        return text.size() == 64 ? 6 : 0;
    }
}
} // namespace

std::optional<IocReportRecord> IocReportRecord::parse(const QByteArray& line)
{
    if (!canBegin(line)) {
        return std::nullopt;
    }
    const QStringList fields = QString::fromLatin1(line).split(QLatin1Char(','));
    if (fields.size() < fieldCount) {
        return std::nullopt;
    }
    const int shift = shiftOf(fields);
    if (shift < 0) {
        return std::nullopt;
    }
    // From the back: a comma in the path moves nothing there.
    IocReportRecord record;
    const int behindHash = fields.size() - reservedFields - shift;
    if (shift < 3) {
        record.hash = fields.at(behindHash - 1);
    }
    if (shift < 2) {
        record.hashKind = fields.at(behindHash - 2).toInt();
    }
    if (shift < 1) {
        record.action = fields.at(behindHash - knownFields);
    }
    // A value that had become a part of a placeholder may have gone in the place of another.
    const int kind = kindOfHash(record.hash);
    if (shift > 0 && (kind == 0 || (shift == 1 && record.hashKind != kind))) {
        record.hash.clear();
        record.hashKind = 0;
    }
    record.time = timeOf(line);
    const int pathEnd = fields.size() - reservedFields - knownFields;
    record.path = QStringList(fields.mid(1, pathEnd - 1)).join(QLatin1Char(','));
    return record;
}

bool IocReportRecord::canBegin(const QByteArray& line)
{
    return line.size() > timeLength && line.at(timeLength) == ',' && timeOf(line).isValid();
}

QString IocReportRecord::result() const
{
    if (action == QLatin1String("ID")) {
        return QStringLiteral("deleted");
    }
    if (action == QLatin1String("IR")) {
        return QStringLiteral("renamed");
    }
    return action == QLatin1String("IA") ? QStringLiteral("allowed") : QStringLiteral("reported");
}

QString IocReportRecord::hashText() const
{
    switch (hashKind) {
    case 4:
        return QStringLiteral("MD5 ") + hash;
    case 5:
        return QStringLiteral("SHA-1 ") + hash;
    case 6:
        return QStringLiteral("SHA-256 ") + hash;
    default:
        return hash.isEmpty() ? QStringLiteral("hash list") : hash;
    }
}
