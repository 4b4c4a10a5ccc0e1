#include "platform/tvnotify/popupcodec.h"

#include <cstring>
#include <limits>

namespace
{

constexpr std::int64_t noTime = std::numeric_limits<std::int64_t>::min();

template <typename Integer> void append(std::string& out, Integer value)
{
    char bytes[sizeof(value)];
    std::memcpy(bytes, &value, sizeof(value));
    out.append(bytes, sizeof(value));
}

void append(std::string& out, const std::string& text)
{
    append(out, static_cast<std::uint32_t>(text.size()));
    out += text;
}

template <typename Integer> bool take(std::string_view& in, Integer& value)
{
    if (in.size() < sizeof(value)) {
        return false;
    }
    std::memcpy(&value, in.data(), sizeof(value));
    in.remove_prefix(sizeof(value));
    return true;
}

bool take(std::string_view& in, std::string& text)
{
    std::uint32_t size = 0;
    if (!take(in, size) || in.size() < size) {
        return false;
    }
    text.assign(in.data(), size);
    in.remove_prefix(size);
    return true;
}

} // namespace

std::string encodePopup(const Popup& popup)
{
    std::string datagram;
    append(datagram, popup.closeAt.value_or(noTime));
    append(datagram, popup.appName);
    append(datagram, popup.iconPath);
    append(datagram, popup.summary);
    append(datagram, popup.body);
    return datagram.size() <= maximumEncodedPopup ? datagram : std::string();
}

std::optional<Popup> decodePopup(std::string_view datagram)
{
    Popup popup;
    std::int64_t closeAt = noTime;
    if (datagram.size() > maximumEncodedPopup || !take(datagram, closeAt) || !take(datagram, popup.appName) ||
        !take(datagram, popup.iconPath) || !take(datagram, popup.summary) || !take(datagram, popup.body) ||
        !datagram.empty()) {
        return std::nullopt;
    }
    if (closeAt != noTime) {
        popup.closeAt = closeAt;
    }
    return popup;
}
