#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

/// The name of the report file of the day of `moment`: "dd-MM-yyyy.apmon".
QString iocReportFileName(const QDateTime& moment);

/// One record of the report, line feed included, as the bytes that are written: eleven comma-separated fields
/// in Latin-1, the last six always "NA".
///
/// Nothing is quoted: a comma in `filePath` shifts the columns behind it. The fields are filled in one after
/// the other, so a value that holds a placeholder such as "%7" takes in the value of a later field.
///
/// Both functions are pure and know no locale.
QByteArray iocReportLine(const QDateTime& moment, const QString& filePath, const QString& hash,
                         const QString& action, int hashKind);
