#include "platform/tvnotify/send/dispatcher.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <sys/stat.h>

namespace
{

/// Where the library that starts this program puts its socket.
constexpr int serviceSocket = 3;
/// Long enough for a notification server that the first popup has to start.
constexpr std::chrono::seconds deliveryLimit(10);

} // namespace

int main()
{
    struct stat status;
    if (::fstat(serviceSocket, &status) != 0 || !S_ISSOCK(status.st_mode)) {
        std::fputs("tvnotify-send is started by libtvnotify, to show its popups\n", stderr);
        return EXIT_FAILURE;
    }
    const char* const address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    Dispatcher dispatcher(UniqueFd(serviceSocket), address != nullptr ? address : "", "/run/user",
                          deliveryLimit);
    return dispatcher.run() ? EXIT_SUCCESS : EXIT_FAILURE;
}
