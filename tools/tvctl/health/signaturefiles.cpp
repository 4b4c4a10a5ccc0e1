#include "tvctl/health/signaturefiles.h"

#include "common/checkedfile.h"
#include "common/filename.h"
#include "tvctl/installation/updatestatus.h"

#include <QDir>
#include <QSet>

#include <cerrno>

#include <unistd.h>

namespace
{
/// Endings of what else libclamav takes for signatures.
bool isSignatureName(const QString& name)
{
    static const QSet<QString> endings = {
        QStringLiteral("cld"), QStringLiteral("cud"), QStringLiteral("cbc"), QStringLiteral("cdb"),
        QStringLiteral("crb"), QStringLiteral("hdb"), QStringLiteral("hdu"), QStringLiteral("hsb"),
        QStringLiteral("hsu"), QStringLiteral("ldb"), QStringLiteral("ldu"), QStringLiteral("mdb"),
        QStringLiteral("msb"), QStringLiteral("ndb"), QStringLiteral("ndu"), QStringLiteral("pdb"),
        QStringLiteral("yar"), QStringLiteral("yara")};
    return endings.contains(name.section(QLatin1Char('.'), -1).toLower());
}

SignatureFile lookAt(const QString& directory, const QString& name)
{
    SignatureFile result{name, {}, {}};
    const CheckedFile file(FileName::toBytes(directory + QLatin1Char('/') + name));
    if (file.kind() == CheckedFile::Kind::Missing) {
        result.problem = qt_error_string(errno);
        return result;
    }
    if (file.kind() != CheckedFile::Kind::Regular) {
        result.problem = QStringLiteral("not a file");
        return result;
    }
    const UniqueFd opened = file.openForReading();
    if (!opened.isValid()) {
        result.problem = qt_error_string(errno);
        return result;
    }
    QByteArray head(SignatureHeader::size, Qt::Uninitialized);
    const ssize_t got =
        TEMP_FAILURE_RETRY(::pread(opened.get(), head.data(), static_cast<size_t>(head.size()), 0));
    head.truncate(static_cast<int>(qMax<ssize_t>(got, 0)));
    result.header = parseSignatureHeader(head);
    if (got < 0) {
        result.problem = QStringLiteral("cannot be read");
    } else if (!result.header) {
        result.problem = QStringLiteral("not a signature database");
    }
    return result;
}
} // namespace

const SignatureFile* SignatureFiles::freshest() const
{
    const SignatureFile* youngest = nullptr;
    for (const SignatureFile& file : loaded) {
        if (!file.header || !file.header->built.isValid()) {
            continue;
        }
        if (file.name.compare(QLatin1String("daily.cvd"), Qt::CaseInsensitive) == 0) {
            return &file;
        }
        if (youngest == nullptr || file.header->built > youngest->header->built) {
            youngest = &file;
        }
    }
    return youngest;
}

SignatureFiles readSignatureFiles(const QString& directory)
{
    SignatureFiles files;
    const QByteArray path = FileName::toBytes(directory);
    if (::access(path.constData(), R_OK | X_OK) != 0) {
        files.problem = qt_error_string(errno);
        return files;
    }
    // As the service lists them, the order and the letter case included.
    for (const QString& name : QDir(directory).entryList({QStringLiteral("*.cvd")})) {
        files.loaded += lookAt(directory, name);
    }
    for (const QString& name : QDir(directory).entryList(QDir::Files)) {
        if (isSignatureName(name)) {
            files.ignored += name;
        }
    }
    return files;
}

SignatureFiles signaturesOf(const Installation& installation,
                            const std::function<bool(const QString& root)>& isUpdating)
{
    SignatureFiles files = readSignatureFiles(installation.databases());
    if (files.loaded.isEmpty() && files.problem.isEmpty()) {
        // A server that hangs keeps an update running nearly all the time: that one runs promises nothing
        // then.
        const std::optional<UpdateStatus> last = UpdateStatus::read(installation.updateStatusFile());
        files.areComing = (!last || last->isGood()) && isUpdating(installation.root());
    }
    return files;
}
