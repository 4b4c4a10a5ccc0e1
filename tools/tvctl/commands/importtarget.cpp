#include "tvctl/commands/importtarget.h"

#include "tvctl/commands/hashpages.h"
#include "tvctl/console/jsontext.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/installation/storeaccess.h"

#include <QSet>

namespace
{
/// Those of `hashes` that the store does not hold. Throws ToolError when it cannot be read.
QStringList missing(IOCScanConfig::HASH_TYPE type, const QStringList& hashes)
{
    const QSet<QString> wanted(hashes.begin(), hashes.end());
    QSet<QString> stored;
    HashPages::forEach(type, [&wanted, &stored](const QStringList& page) {
        for (const QString& hash : page) {
            if (wanted.contains(hash)) {
                stored.insert(hash);
            }
        }
    });
    QStringList result;
    for (const QString& hash : hashes) {
        if (!stored.contains(hash)) {
            result += hash;
        }
    }
    return result;
}
} // namespace

ImportTarget::ImportTarget(Output& output, bool isDryRun) : m_output(output), m_isDryRun(isDryRun)
{
}

bool ImportTarget::take(IOCScanConfig::HASH_TYPE type, const QStringList& hashes)
{
    if (!m_isDryRun) {
        return store(type, hashes);
    }
    try {
        show(type, missing(type, hashes));
    } catch (const ToolError& error) {
        // Kept, and not thrown through whoever reads the list.
        m_problem = error.message();
    }
    return m_problem.isEmpty();
}

bool ImportTarget::store(IOCScanConfig::HASH_TYPE type, const QStringList& hashes)
{
    const int count = IOCScanConfig().addHashes(type, hashes);
    if (count < 0) {
        m_problem =
            QStringLiteral("%1 hashes were added, then ").arg(m_added) +
            StoreAccess::notWritten(QStringLiteral("a piece of the %1 hashes").arg(HashPages::nameOf(type)));
        return false;
    }
    m_added += count;
    return true;
}

void ImportTarget::show(IOCScanConfig::HASH_TYPE type, const QStringList& hashes)
{
    const QString name = HashPages::nameOf(type);
    QByteArray bytes;
    for (const QString& hash : hashes) {
        if (m_output.isJson()) {
            bytes += (m_added == 0 ? "\n" : ",\n");
            bytes += "{\"type\": \"" + name.toLatin1() + "\", \"hash\": \"" + hash.toLatin1() + "\"}";
        } else {
            bytes += name.leftJustified(8).toLatin1() + hash.toLatin1() + '\n';
        }
        ++m_added;
    }
    m_output.raw(bytes);
}

void ImportTarget::begin()
{
    if (m_isDryRun && m_output.isJson()) {
        m_output.raw("{\"hashes\": [");
    }
}

void ImportTarget::end(const QJsonObject& document)
{
    if (!m_output.isJson()) {
        return;
    }
    if (m_isDryRun) {
        // What `begin` began goes on with the fields of this one.
        m_output.raw("\n],\n" + JsonText::write(QJsonDocument(document), QJsonDocument::Indented).mid(2));
    } else {
        m_output.document(document);
    }
}
