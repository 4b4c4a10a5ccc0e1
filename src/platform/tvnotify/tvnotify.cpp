#include "platform/tvnotify/tvnotify.h"

#include "platform/tvnotify/popupexpiry.h"
#include "platform/tvnotify/popupmarkup.h"
#include "platform/tvnotify/popupsender.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QtGlobal>

#include <dlfcn.h>
#include <limits.h>

namespace
{

const char helperName[] = "tvnotify-send";

/// The helper stands beside this library, wherever the whole installation was copied.
std::string helperProgram()
{
    Dl_info library;
    if (::dladdr(helperName, &library) == 0) {
        return {};
    }
    const QFileInfo file(QFileInfo(QFile::decodeName(library.dli_fname)).canonicalFilePath());
    return QFile::encodeName(file.path() + QLatin1Char('/') + QLatin1String(helperName)).toStdString();
}

/// Cutting a path makes it another one, and a character that a bus refuses has no place in ours: a path
/// that cannot be sent as it is goes as none.
QString sendablePath(const QString& path)
{
    return path.size() < PATH_MAX && !path.contains(QChar(0)) && path.isValidUtf16() ? path : QString();
}

} // namespace

Tvnotify::Tvnotify()
    : m_sender(
          std::make_unique<PopupSender>(helperProgram(), qgetenv("DBUS_SESSION_BUS_ADDRESS").toStdString()))
{
}

Tvnotify::~Tvnotify() = default;

void Tvnotify::showPopupToUser(const QString& title, const QString& message, const QString&,
                               const QString& iconPath, const QString&, const QString&, int,
                               const QString& moduleName, const QString& closeAt)
{
    Popup popup;
    popup.appName = popupText(moduleName).toStdString();
    popup.iconPath = sendablePath(iconPath).toStdString();
    popup.summary = popupText(title).toStdString();
    popup.body = popupMarkup(message).toStdString();
    if (const std::optional<std::int64_t> time = popupCloseTime(closeAt)) {
        popup.closeAt = *time - QDateTime::currentMSecsSinceEpoch() + popupClock();
    }
    m_sender->send(popup);
}
