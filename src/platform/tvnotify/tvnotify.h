#pragma once

#include "platform/tvnotify/tvnotifyexport.h"

#include <QString>

#include <memory>

class PopupSender;

/// Shows popups on the desktops of the users who are logged in.
///
/// With DBUS_SESSION_BUS_ADDRESS in the environment at construction, popups go to that session bus. Without
/// it they go to the session bus of every user who has one, each with that user's credentials, which takes
/// a service that runs as root. The talking is done by the program tvnotify-send, which stands beside this
/// library and is started by the first popup; it ends with this object, or with the process.
///
/// Usable from any thread, with or without an event loop.
class TVNOTIFY_EXPORT Tvnotify
{
public:
    Tvnotify();
    /// Gives popups that are still on their way up to a second.
    ~Tvnotify();
    Tvnotify(const Tvnotify&) = delete;
    Tvnotify& operator=(const Tvnotify&) = delete;

    /// Shows one popup with urgency "critical". Returns at once, always; whether anybody saw the popup is
    /// not known. When popups come faster than the desktops take them, some are dropped, which is said once
    /// (logging category "tvnotify").
    ///
    /// `title` is plain text. In `message`, `<br/>` breaks the line and `<b>`...`</b>` is bold, up to the
    /// first slash outside of these; anything else, other markup included, shows as it stands. `iconPath` is
    /// a picture's absolute path, empty for none. The popup stays until `closeAt`, local time as "yyyy-MM-dd
    /// hh:mm:ss"; how long one with any other text stays is left to the desktop. `moduleName` tells who
    /// speaks. The other arguments are what callers of the suite pass and mean nothing on this desktop
    /// interface.
    void showPopupToUser(const QString& title, const QString& message, const QString& popupType,
                         const QString& iconPath, const QString& primaryAction,
                         const QString& secondaryAction, int position, const QString& moduleName,
                         const QString& closeAt);

private:
    std::unique_ptr<PopupSender> m_sender;
};
