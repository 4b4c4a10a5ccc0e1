#include "platform/tvnotify/send/notificationclient.h"

#include <algorithm>
#include <limits>
#include <vector>

#include <dbus/dbus.h>

namespace
{

constexpr std::int64_t minimumTimeout = 1000;
constexpr unsigned char urgencyCritical = 2;

struct CloseConnection
{
    void operator()(DBusConnection* connection) const
    {
        ::dbus_connection_close(connection);
        ::dbus_connection_unref(connection);
    }
};
struct ReleaseMessage
{
    void operator()(DBusMessage* message) const
    {
        ::dbus_message_unref(message);
    }
};
struct ReleaseCall
{
    void operator()(DBusPendingCall* call) const
    {
        ::dbus_pending_call_unref(call);
    }
};
using Connection = std::unique_ptr<DBusConnection, CloseConnection>;
using Message = std::unique_ptr<DBusMessage, ReleaseMessage>;
using Call = std::unique_ptr<DBusPendingCall, ReleaseCall>;

Connection connectTo(const std::string& address)
{
    Connection connection(::dbus_connection_open_private(address.c_str(), nullptr));
    if (connection && !::dbus_bus_register(connection.get(), nullptr)) {
        connection.reset();
    }
    return connection;
}

// The results of appending are not looked at: only a full memory makes it fail, and the message is then
// refused when it is sent.

void appendHint(DBusMessageIter* hints, const char* name, const char* signature, int type, const void* value)
{
    DBusMessageIter entry;
    DBusMessageIter variant;
    ::dbus_message_iter_open_container(hints, DBUS_TYPE_DICT_ENTRY, nullptr, &entry);
    ::dbus_message_iter_append_basic(&entry, DBUS_TYPE_STRING, &name);
    ::dbus_message_iter_open_container(&entry, DBUS_TYPE_VARIANT, signature, &variant);
    ::dbus_message_iter_append_basic(&variant, type, value);
    ::dbus_message_iter_close_container(&entry, &variant);
    ::dbus_message_iter_close_container(hints, &entry);
}

Message notifyCall(const Popup& popup)
{
    Message message(::dbus_message_new_method_call("org.freedesktop.Notifications",
                                                   "/org/freedesktop/Notifications",
                                                   "org.freedesktop.Notifications", "Notify"));
    if (!message) {
        return message;
    }
    const char* const appName = popup.appName.c_str();
    const dbus_uint32_t replaces = 0;
    const char* const icon = popup.iconPath.c_str();
    const char* const summary = popup.summary.c_str();
    const char* const body = popup.body.c_str();
    const dbus_int32_t timeout = expireTimeout(popup.closeAt, popupClock());

    DBusMessageIter arguments;
    DBusMessageIter container;
    ::dbus_message_iter_init_append(message.get(), &arguments);
    ::dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &appName);
    ::dbus_message_iter_append_basic(&arguments, DBUS_TYPE_UINT32, &replaces);
    ::dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &icon);
    ::dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &summary);
    ::dbus_message_iter_append_basic(&arguments, DBUS_TYPE_STRING, &body);
    ::dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, "s", &container); // no actions
    ::dbus_message_iter_close_container(&arguments, &container);
    ::dbus_message_iter_open_container(&arguments, DBUS_TYPE_ARRAY, "{sv}", &container);
    appendHint(&container, "urgency", "y", DBUS_TYPE_BYTE, &urgencyCritical);
    if (!popup.iconPath.empty()) {
        appendHint(&container, "image-path", "s", DBUS_TYPE_STRING, &icon);
    }
    ::dbus_message_iter_close_container(&arguments, &container);
    ::dbus_message_iter_append_basic(&arguments, DBUS_TYPE_INT32, &timeout);
    return message;
}

} // namespace

std::int32_t expireTimeout(std::optional<std::int64_t> closeAt, std::int64_t now)
{
    if (!closeAt) {
        return -1;
    }
    const std::int64_t maximumTimeout = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(std::clamp(*closeAt - now, minimumTimeout, maximumTimeout));
}

void showPopups(const std::string& address, const PopupQueue& popups)
{
    const Connection connection = connectTo(address);
    if (!connection) {
        return;
    }
    std::vector<Call> calls;
    for (const std::shared_ptr<const Popup>& popup : popups) {
        const Message message = notifyCall(*popup);
        DBusPendingCall* call = nullptr;
        if (message &&
            ::dbus_connection_send_with_reply(connection.get(), message.get(), &call,
                                              DBUS_TIMEOUT_INFINITE) &&
            call != nullptr) {
            calls.emplace_back(call);
        }
    }
    for (const Call& call : calls) {
        ::dbus_pending_call_block(call.get());
    }
}
