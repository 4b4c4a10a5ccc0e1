// Writes into files at a steady rate, then an infected one, and waits until that is gone.
//
//   event_generator DIRECTORY INFECTED FILES RATE SECONDS
//
// RATE writes a second of 1 KB each go to FILES files in turn. A file grows to 8 KB and is written over then:
// the time that a scan takes is to be that of a small file, all the time. "found" is the time from the
// infected file to its end, or -1 when nobody removed it.
#include "common/uniquefd.h"
#include "kit/clock.h"
#include "kit/program.h"
#include "kit/removalwatch.h"
#include "kit/report.h"

#include <cerrno>
#include <string>
#include <vector>

#include <fcntl.h>
#include <time.h>
#include <unistd.h>

namespace
{
constexpr size_t stepSize = 1024;
constexpr int64_t stepsInFile = 8;
/// A full queue of the kernel is done sooner.
constexpr int timeoutSeconds = 30;
/// What is due is written this often: a sleep for each write would be longer than the time between two.
constexpr int64_t turnNanoseconds = 1000000;
constexpr int64_t secondNanoseconds = 1000000000;

void sleepUntil(int64_t time)
{
    const timespec until = {time / secondNanoseconds, time % secondNanoseconds};
    ::clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr);
}

void writeStep(const UniqueFd& file, const std::string& step, int64_t number)
{
    const auto offset = static_cast<off_t>(number % stepsInFile * static_cast<int64_t>(step.size()));
    if (::pwrite(file.get(), step.data(), step.size(), offset) != static_cast<ssize_t>(step.size())) {
        Program::fail("write", errno);
    }
}
} // namespace

int main(int argc, char* argv[])
{
    Program::expectArguments(argc, 5, "event_generator DIRECTORY INFECTED FILES RATE SECONDS");
    const std::string directory = argv[1];
    const std::string infected = Program::contentOf(argv[2]);
    const int64_t fileCount = Program::number(argv[3]);
    const int64_t rate = Program::number(argv[4]);
    const int64_t writes = rate * Program::number(argv[5]);
    const std::string step = std::string(stepSize - 1, 's') + '\n';

    std::vector<UniqueFd> files;
    for (int64_t i = 0; i < fileCount; ++i) {
        files.emplace_back(::open((directory + "/growing-" + std::to_string(i)).c_str(),
                                  O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644));
    }
    RemovalWatch removals(directory);
    const int64_t begin = nanosecondsNow();
    for (int64_t done = 0; done < writes;) {
        const int64_t due = std::min(writes, (nanosecondsNow() - begin) * rate / secondNanoseconds);
        for (; done < due; ++done) {
            writeStep(files[static_cast<size_t>(done % fileCount)], step, done / fileCount);
        }
        sleepUntil(nanosecondsNow() + turnNanoseconds);
    }
    const int64_t written = nanosecondsNow();
    const std::string name = "last.infected";
    Program::writeFile(directory + '/' + name, infected);
    const int64_t gone = removals.waitFor(name, 1, timeoutSeconds);
    Report()
        .add("writes", writes)
        .add("writing", written - begin)
        .add("found", gone < 0 ? -1 : gone - written)
        .print();
    return 0;
}
