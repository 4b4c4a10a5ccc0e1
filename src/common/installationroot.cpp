#include "common/installationroot.h"

#include <QFileInfo>

QString installationRootOf(const QString& applicationDirPath)
{
    // Exactly two slashes are refused: the suite never lies two levels below "/", but a misplaced
    // copy (/opt/x/bin) would. One slash (/usr) is as good as three.
    constexpr int refusedSlashes = 2;
    QString root = QFileInfo(applicationDirPath + QStringLiteral("/..")).absoluteFilePath();
    if (root.isEmpty() || root.count(QLatin1Char('/')) == refusedSlashes) {
        root = QStringLiteral("/usr/lib/Talvenor");
    }
    return root;
}
