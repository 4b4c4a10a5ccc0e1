#include "platform/tvnotify/helperprocess.h"

#include <cerrno>
#include <utility>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace
{

constexpr int helperSocket = 3;

/// What the child does to itself before the program runs. Each step only records; a full memory is the one
/// way to fail, and it is kept until the end.
class SpawnPlan
{
public:
    explicit SpawnPlan(int socket)
    {
        ::posix_spawn_file_actions_init(&m_actions);
        ::posix_spawnattr_init(&m_attributes);

        note(::posix_spawn_file_actions_addopen(&m_actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0));
        note(::posix_spawn_file_actions_addopen(&m_actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0));
        note(::posix_spawn_file_actions_addopen(&m_actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0));
        note(::posix_spawn_file_actions_adddup2(&m_actions, socket, helperSocket));
        note(::posix_spawn_file_actions_addclosefrom_np(&m_actions, helperSocket + 1));
        note(::posix_spawn_file_actions_addchdir_np(&m_actions, "/"));

        // This process may ignore or block signals that the helper lives by. A session of its own keeps the
        // terminal's interrupt for the service, which then lets the helper finish.
        sigset_t none;
        sigset_t all;
        ::sigemptyset(&none);
        ::sigfillset(&all);
        note(::posix_spawnattr_setsigmask(&m_attributes, &none));
        note(::posix_spawnattr_setsigdefault(&m_attributes, &all));
        note(::posix_spawnattr_setflags(&m_attributes,
                                        POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID));
    }
    ~SpawnPlan()
    {
        ::posix_spawnattr_destroy(&m_attributes);
        ::posix_spawn_file_actions_destroy(&m_actions);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    /// 0 and the child's id, or an error number.
    int run(pid_t& pid, const std::string& program, char* const environment[]) const
    {
        if (m_error != 0) {
            return m_error;
        }
        std::string name = program;
        char* const arguments[] = {name.data(), nullptr};
        return ::posix_spawn(&pid, program.c_str(), &m_actions, &m_attributes, arguments, environment);
    }

private:
    void note(int error)
    {
        if (m_error == 0) {
            m_error = error;
        }
    }

    posix_spawn_file_actions_t m_actions;
    posix_spawnattr_t m_attributes;
    int m_error = 0;
};

} // namespace

std::optional<HelperProcess> HelperProcess::start(const std::string& program,
                                                  const std::string& sessionAddress)
{
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) {
        return std::nullopt;
    }
    UniqueFd ownEnd(ends[0]);
    UniqueFd helperEnd(ends[1]);
    if (helperEnd.get() <= helperSocket) {
        // A service started with closed standard streams gets their numbers here; opening /dev/null on them
        // in the child would close the socket.
        UniqueFd moved(::fcntl(helperEnd.get(), F_DUPFD_CLOEXEC, helperSocket + 1));
        if (!moved.isValid()) {
            return std::nullopt;
        }
        helperEnd = std::move(moved);
    }

    std::string address = "DBUS_SESSION_BUS_ADDRESS=" + sessionAddress;
    char* const environment[] = {sessionAddress.empty() ? nullptr : address.data(), nullptr};
    pid_t pid = -1;
    const int error = SpawnPlan(helperEnd.get()).run(pid, program, environment);
    if (error != 0) {
        errno = error;
        return std::nullopt;
    }
    return HelperProcess(pid, std::move(ownEnd));
}

HelperProcess::HelperProcess(pid_t pid, UniqueFd socket) : m_pid(pid), m_socket(std::move(socket))
{
}

HelperProcess::HelperProcess(HelperProcess&& other) noexcept
    : m_pid(std::exchange(other.m_pid, -1)),
      m_socket(std::move(other.m_socket))
{
}

HelperProcess::~HelperProcess()
{
    if (m_pid < 0) {
        return;
    }
    ::kill(m_pid, SIGKILL);
    // Any other failure than an interruption means that it is gone already: a process that ignores SIGCHLD
    // keeps no children to wait for.
    while (::waitpid(m_pid, nullptr, 0) < 0 && errno == EINTR) {
    }
}
