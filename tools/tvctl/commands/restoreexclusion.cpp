#include "tvctl/commands/restoreexclusion.h"

#include "platform/tvcore/scanconfig.h"
#include "tvctl/commands/exclusioncheck.h"
#include "tvctl/commands/servicereload.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/toolerror.h"
#include "tvctl/installation/storeaccess.h"

namespace
{
constexpr int fileList = static_cast<int>(ExclusionList::Files);
} // namespace

RestoreExclusion::RestoreExclusion(Session& session, const QString& path) : m_session(session), m_path(path)
{
}

bool RestoreExclusion::isStored() const
{
    try {
        m_session.requireSettings();
        const bool isStored = ScanConfig().getExcludeList(fileList).contains(m_path);
        StoreAccess::confirmSettings(m_session.installation());
        return isStored;
    } catch (const ToolError&) {
        return false;
    }
}

void RestoreExclusion::add(QJsonObject& document)
{
    m_session.requireSettings();
    bool isNew = false;
    const bool isStored = ScanConfig().changeExcludeList(fileList, [this, &isNew](QSet<QString>& paths) {
        isNew = !paths.contains(m_path);
        paths.insert(m_path);
    });
    if (!isStored) {
        throw ToolError(StoreAccess::notWritten(QStringLiteral("the exclusion")));
    }
    m_isAdded = isNew;
    m_session.output().line((isNew ? QStringLiteral("excluded: ") : QStringLiteral("is excluded already: ")) +
                            printable(m_path));
    // Also when it was stored already: the service may not have been told then.
    const QString problem = ServiceReload(m_session, true).attempt({ReloadPart::Settings}, document);
    if (!problem.isEmpty()) {
        takeBack();
        throw ToolError(QStringLiteral("nothing was restored: tvfilemon did not reload, and would detect the "
                                       "file again at once: %1")
                            .arg(problem));
    }
    m_isServiceTold = document.value(QStringLiteral("reload")) == QLatin1String("done");
}

void RestoreExclusion::takeBack()
{
    if (!m_isAdded) {
        return;
    }
    m_isAdded = false;
    if (!ScanConfig().changeExcludeList(fileList, [this](QSet<QString>& paths) { paths.remove(m_path); })) {
        m_session.output().error(
            QStringLiteral("%1 is still excluded; see tvctl exclude remove --help").arg(m_path));
        return;
    }
    m_session.output().line(QStringLiteral("not excluded any more: ") + printable(m_path));
    if (m_isServiceTold) {
        QJsonObject unused;
        ServiceReload(m_session, true).run({ReloadPart::Settings}, unused);
    }
}
