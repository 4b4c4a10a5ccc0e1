// Watches a directory and those below it, five levels in all: two system calls each, and what reading takes.
//
//   bare_walk DIRECTORY
#include "kit/clock.h"
#include "kit/program.h"
#include "kit/report.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include <dirent.h>
#include <sys/inotify.h>

namespace
{
constexpr int deepestLevel = 5;
constexpr uint32_t watchMask = IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO | IN_CREATE |
                               IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;

struct CloseDirectory
{
    void operator()(DIR* directory) const
    {
        ::closedir(directory);
    }
};

/// Returns how many directories are watched now.
int64_t watch(int inotify, const std::string& path, int level)
{
    if (::inotify_add_watch(inotify, path.c_str(), watchMask) < 0) {
        Program::fail(path, errno);
    }
    int64_t count = 1;
    if (level == deepestLevel) {
        return count;
    }
    const std::unique_ptr<DIR, CloseDirectory> directory(::opendir(path.c_str()));
    if (directory == nullptr) {
        Program::fail(path, errno);
    }
    while (const dirent* entry = ::readdir(directory.get())) {
        if (entry->d_type == DT_DIR && entry->d_name[0] != '.') {
            count += watch(inotify, path + '/' + entry->d_name, level + 1);
        }
    }
    return count;
}
} // namespace

int main(int argc, char* argv[])
{
    Program::expectArguments(argc, 1, "bare_walk DIRECTORY");
    const int64_t begin = nanosecondsNow();
    const int inotify = ::inotify_init1(IN_CLOEXEC);
    const int64_t count = watch(inotify, argv[1], 1);
    Report().add("whole", nanosecondsNow() - begin).add("count", count).print();
    return 0;
}
