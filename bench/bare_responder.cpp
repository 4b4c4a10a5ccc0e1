// The least program that does the work of the file monitor: reads an event, scans, copies, syncs, removes.
//
//   bare_responder DIRECTORY DATABASES TEMPORARY QUARANTINE
//
// Says "ready" and goes on until it is killed.
#include "common/uniquefd.h"
#include "kit/engine.h"
#include "kit/program.h"

#include <array>
#include <cerrno>
#include <string>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{
/// So that neither a file nor its copy can be missing after a crash.
void keepCopy(int file, const std::string& quarantine, const UniqueFd& directory)
{
    static int64_t number = 0;
    struct stat status = {};
    const std::string path = quarantine + '/' + std::to_string(number++);
    const UniqueFd copy(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0400));
    off_t offset = 0;
    if (::fstat(file, &status) != 0 ||
        ::sendfile(copy.get(), file, &offset, static_cast<size_t>(status.st_size)) != status.st_size ||
        ::fsync(copy.get()) != 0 || ::fsync(directory.get()) != 0) {
        Program::fail(path, errno);
    }
}
} // namespace

int main(int argc, char* argv[])
{
    Program::expectArguments(argc, 4, "bare_responder DIRECTORY DATABASES TEMPORARY QUARANTINE");
    const std::string watched = argv[1];
    const Engine engine(argv[2], argv[3]);
    const std::string quarantine = argv[4];
    const UniqueFd directory(::open(quarantine.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const UniqueFd inotify(::inotify_init1(IN_CLOEXEC));
    if (::inotify_add_watch(inotify.get(), watched.c_str(),
                            IN_CREATE | IN_MODIFY | IN_MOVED_TO | IN_CLOSE_WRITE) < 0) {
        Program::fail(watched, errno);
    }
    Program::tellReady();

    alignas(inotify_event) std::array<char, 65536> buffer = {};
    while (true) {
        const ssize_t size = ::read(inotify.get(), buffer.data(), buffer.size());
        if (size <= 0) {
            Program::fail("inotify", errno);
        }
        for (ssize_t offset = 0; offset < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + offset);
            offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
            if ((event->mask & (IN_CREATE | IN_MODIFY | IN_MOVED_TO)) == 0) {
                continue;
            }
            const std::string path = watched + '/' + event->name;
            const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
            if (file.isValid() && engine.scanDescriptor(file.get(), path)) {
                keepCopy(file.get(), quarantine, directory);
                ::unlink(path.c_str());
            }
        }
    }
}
