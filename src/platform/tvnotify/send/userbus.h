#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

/// The users who have a directory in `runtimeRoot` ("/run/user"), by the directories' names alone: nothing
/// inside is touched, because what is inside belongs to the users and may hang whoever looks.
/// At most 512, more than a machine has at work; empty when the directory cannot be read.
std::vector<uid_t> usersIn(const std::string& runtimeRoot);

/// Makes this process `user`'s for good: no supplementary groups, no group of use, no way back.
/// Does nothing for the user whose process it is. Returns false when any step fails; the process must then
/// end without touching anything of the user's.
bool becomeUser(uid_t user);

/// The address of `user`'s session bus; empty unless the directory of the user and the socket in it are
/// real ones that belong to the user. Called with the user's credentials.
std::string userBusAddress(const std::string& runtimeRoot, uid_t user);
