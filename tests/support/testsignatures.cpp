#include "support/testsignatures.h"

#include "common/common.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

namespace
{
QString sourceDirectory()
{
    if (!qEnvironmentVariableIsSet("TVFILEMON_SOURCE_DIR")) {
        qFatal("TVFILEMON_SOURCE_DIR is not set: run this test by ctest");
    }
    return QFile::decodeName(qgetenv("TVFILEMON_SOURCE_DIR"));
}

QString findDirectory()
{
    QString directory = QFile::decodeName(qgetenv("TVFILEMON_TEST_SIGNATURES"));
    if (directory.isEmpty()) {
        directory = sourceDirectory() + QStringLiteral("/../shared/testdata/signatures");
    }
    if (QDir(directory).exists()) {
        return directory;
    }
    if (qgetenv("CI") == "true") {
        qFatal("the signed signatures are not there: %s", qPrintable(directory));
    }
    static const QTemporaryDir made;
    const QString maker = sourceDirectory() + QStringLiteral("/tests/support/make_signatures.py");
    if (QProcess::execute(QStringLiteral("/usr/bin/python3"), {maker, made.path()}) != 0) {
        qFatal("no signatures could be made");
    }
    return made.path();
}
} // namespace

QString TestSignatures::path(const QString& name)
{
    static const QString directory = QDir(findDirectory()).absolutePath();
    return directory + QLatin1Char('/') + name;
}

bool TestSignatures::install(const QString& name, const QString& installedName)
{
    return QFile::link(path(name), Common::getDbPath() + QLatin1Char('/') + installedName);
}

bool TestSignatures::removeAll()
{
    QDir directory(Common::getDbPath());
    return directory.removeRecursively() && directory.mkpath(directory.path());
}

QByteArray TestSignatures::eicar()
{
    // In pieces, so that no scanner takes this program for the test file itself.
    return QByteArray("X5O!P%@AP[4\\PZX54(P^)7CC)7}") + "$EICAR" + "-STANDARD" + "-ANTIVIRUS" +
           "-TEST-FILE!" + "$H+H*";
}

QByteArray TestSignatures::klez()
{
    return QByteArray::fromHex(
        "2d4000bd08104000e89eeaffff80bd08104000be7d2d4000e849eaffff6a00e83500000064756d6d792e65786500653a5c77"
        "69"
        "6e646f77735c53795374656d33325c644c6c63616368655c6464642e65786500ff254c404000ff25544040");
}
