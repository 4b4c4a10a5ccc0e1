#pragma once

#include "common/uniquefd.h"

/// The port takes no more descriptors than leave this many free, or half of all where there are few: whoever
/// connects again and again must not keep a file from being scanned, cleaned, recorded or told of in the log.
/// A scan takes most, for what it unpacks: two for each of at most 17 levels.
constexpr unsigned descriptorReserve = 256;

/// `descriptor`, just made, as long as the reserve is untouched; otherwise it is closed, and the result is
/// invalid with errno EMFILE, as if the process might have no more. An invalid one is returned with errno as
/// it was.
UniqueFd outsideReserve(UniqueFd descriptor);

/// Whether one more could be had.
bool isRoomOutsideReserve();
