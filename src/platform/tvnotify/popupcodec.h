#pragma once

#include "platform/tvnotify/popup.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

/// No encoded popup is longer: far above the bounds that PopupSender's callers keep, far below what one
/// datagram of a local socket can carry.
constexpr std::size_t maximumEncodedPopup = 65536;

/// The datagram by which the helper says that it had to drop popups.
constexpr char popupsDroppedNotice = 'D';

/// A popup as one datagram between library and helper, which are of one build and one machine: the time to
/// close (64 bits, the lowest value for none), then application name, icon path, summary and body, each as
/// a length (32 bits) and that many bytes; integers in the machine's own order.
/// Empty when the popup is longer than `maximumEncodedPopup`.
std::string encodePopup(const Popup& popup);

/// The popup in `datagram`; none when it is cut short, too long, or has bytes left over.
std::optional<Popup> decodePopup(std::string_view datagram);
