#pragma once

#include "platform/tvnotify/popup.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

/// How long a popup that closes at `closeAt` is asked to stay when it is sent at `now` (both by
/// `popupClock`): at least a second, so that a late one is seen at all; -1, the server's choice, without
/// time.
std::int32_t expireTimeout(std::optional<std::int64_t> closeAt, std::int64_t now);

/// Every bus's queue shares the popups: there may be many users.
using PopupQueue = std::deque<std::shared_ptr<const Popup>>;

/// Asks the notification server on the bus at `address` to show `popups`, in order, and waits until it has
/// answered each: a server that is only being started forgets the calls of those who left.
///
/// Blocks for as long as the bus and the server like; the caller sees to the limit from outside.
void showPopups(const std::string& address, const PopupQueue& popups);
