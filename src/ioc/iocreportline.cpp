#include "ioc/iocreportline.h"

#include <QLocale>

namespace
{
constexpr int reservedFields = 6;
} // namespace

QString iocReportFileName(const QDateTime& moment)
{
    return QLocale::c().toString(moment, QStringLiteral("dd-MM-yyyy")) + QStringLiteral(".apmon");
}

QByteArray iocReportLine(const QDateTime& moment, const QString& filePath, const QString& hash,
                         const QString& action, int hashKind)
{
    // One by one and not all at once: the readers of the report know what becomes of a "%7" in a path.
    QString line = QStringLiteral("%1,%2,%3,%4,%5,%6,%7,%8,%9,%10,%11\n")
                       .arg(QLocale::c().toString(moment, QStringLiteral("dd-MM-yyyy hh:mm:ss")))
                       .arg(filePath)
                       .arg(action)
                       .arg(hashKind)
                       .arg(hash);
    for (int field = 0; field < reservedFields; ++field) {
        line = line.arg(QStringLiteral("NA"));
    }
    return line.toLatin1();
}
