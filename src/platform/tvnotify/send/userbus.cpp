#include "platform/tvnotify/send/userbus.h"

#include "common/uniquefd.h"

#include <charconv>
#include <cstring>
#include <memory>
#include <optional>

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr std::size_t maximumUsers = 512;

/// A bus asks for the user id only, so the user's groups are left where they are: "nogroup".
constexpr gid_t groupOfNobody = 65534;

/// Only the one way to write a user id: "01000" is nobody's directory.
std::optional<uid_t> parseUser(const char* name)
{
    uid_t user = 0;
    const char* const end = name + std::strlen(name);
    const auto [parsed, error] = std::from_chars(name, end, user);
    // The highest number means "leave as it is" to the kernel.
    const bool isUser = error == std::errc() && parsed == end && user != static_cast<uid_t>(-1);
    return isUser && std::to_string(user) == name ? std::optional<uid_t>(user) : std::nullopt;
}

} // namespace

std::vector<uid_t> usersIn(const std::string& runtimeRoot)
{
    std::vector<uid_t> users;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(runtimeRoot.c_str()), ::closedir);
    if (!directory) {
        return users;
    }
    while (const dirent* entry = ::readdir(directory.get())) {
        const std::optional<uid_t> user = parseUser(entry->d_name);
        if (user && users.size() < maximumUsers) {
            users.push_back(*user);
        }
    }
    return users;
}

bool becomeUser(uid_t user)
{
    if (user == ::geteuid()) {
        return true;
    }
    if (::setgroups(0, nullptr) != 0 || ::setresgid(groupOfNobody, groupOfNobody, groupOfNobody) != 0 ||
        ::setresuid(user, user, user) != 0) {
        return false;
    }
    // The memory still holds what root knew; the user must not look into it or steer this process.
    if (::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0) {
        return false;
    }
    uid_t real = 0;
    uid_t effective = 0;
    uid_t saved = 0;
    const bool isUser =
        ::getresuid(&real, &effective, &saved) == 0 && real == user && effective == user && saved == user;
    // A capability that survived would open the way back.
    return isUser && ::setuid(0) != 0 && ::setgid(0) != 0;
}

std::string userBusAddress(const std::string& runtimeRoot, uid_t user)
{
    const std::string path = runtimeRoot + '/' + std::to_string(user);
    const UniqueFd directory(::open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (!directory.isValid() || ::fstat(directory.get(), &status) != 0 || status.st_uid != user ||
        ::fstatat(directory.get(), "bus", &status, AT_SYMLINK_NOFOLLOW) != 0 || status.st_uid != user ||
        !S_ISSOCK(status.st_mode)) {
        return {};
    }
    return "unix:path=" + path + "/bus";
}
