// Writes files into a directory that somebody watches, and sleeps until the infected ones are gone.
//
//   file_writer each    DIRECTORY INFECTED COUNT PAUSE     COUNT infected files, each when the one before is
//   gone and
//                                                          PAUSE microseconds have passed
//   file_writer burst   DIRECTORY INFECTED COUNT           COUNT infected files at once
//   file_writer copy    DIRECTORY INFECTED LIST            copies of the files of LIST, then an infected one
//   file_writer batches DIRECTORY INFECTED CLEAN COUNT     COUNT clean files; after each 1000 an infected
//   one, which
//                                                          has to go before the next, so that the kernel's
//                                                          queue has room for any number
//
// INFECTED and CLEAN are files with the content. A file that is still there after some seconds counts as
// left: "left" tells how many of them there were, and "whole" is -1 then.
#include "kit/clock.h"
#include "kit/program.h"
#include "kit/removalwatch.h"
#include "kit/report.h"

#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

namespace
{
/// Nothing that works needs as long for one file, or from one file to the next.
constexpr int patienceSeconds = 10;
constexpr int patienceWithOne = 1;
constexpr int64_t batchSize = 1000;
const std::string infectedSuffix = ".infected";

/// The directory that is written to.
class Target
{
public:
    Target(const char* directory, const char* infected)
        : m_directory(directory),
          m_infected(Program::contentOf(infected)),
          m_removals(m_directory)
    {
    }

    /// Returns the file's name, which no other ends in.
    std::string writeInfected()
    {
        std::string name = nextName() + infectedSuffix;
        Program::writeFile(m_directory + '/' + name, m_infected);
        return name;
    }
    /// Returns the file's path.
    std::string write(const std::string& content)
    {
        std::string path = m_directory + '/' + nextName();
        Program::writeFile(path, content);
        return path;
    }
    /// Returns when the file is gone, and the time; -1 when it is left.
    int64_t waitForOne(const std::string& name)
    {
        return m_removals.waitFor(name, 1, patienceWithOne);
    }
    /// The same of that many infected files.
    int64_t waitForAll(int64_t count)
    {
        return m_removals.waitFor(infectedSuffix, count, patienceSeconds);
    }

private:
    std::string nextName()
    {
        constexpr size_t digits = 8;
        const std::string number = std::to_string(m_number++);
        return std::string(digits - number.size(), '0') + number;
    }

    std::string m_directory;
    std::string m_infected;
    RemovalWatch m_removals;
    int64_t m_number = 0;
};

void writeEach(Target& target, int64_t count, int64_t pause)
{
    std::vector<int64_t> times;
    for (int64_t i = 0; i < count; ++i) {
        const int64_t begin = nanosecondsNow();
        const int64_t gone = target.waitForOne(target.writeInfected());
        if (gone >= 0) {
            times.push_back(gone - begin);
        }
        if (pause > 0) {
            ::usleep(static_cast<useconds_t>(pause));
        }
    }
    Report().add("each", times).add("left", count - static_cast<int64_t>(times.size())).print();
}

void reportWhole(int64_t begin, int64_t end)
{
    Report().add("whole", end < 0 ? -1 : end - begin).print();
}

void writeBurst(Target& target, int64_t count)
{
    const int64_t begin = nanosecondsNow();
    for (int64_t i = 0; i < count; ++i) {
        target.writeInfected();
    }
    reportWhole(begin, target.waitForAll(count));
}

void copyFiles(Target& target, const std::vector<std::string>& sources)
{
    const int64_t begin = nanosecondsNow();
    for (const std::string& source : sources) {
        target.write(Program::contentOf(source));
    }
    target.writeInfected();
    reportWhole(begin, target.waitForAll(1));
}

void writeBatches(Target& target, const std::string& content, int64_t count)
{
    int64_t spent = 0;
    std::vector<std::string> paths;
    for (int64_t done = 0; done < count; done += batchSize) {
        const int64_t begin = nanosecondsNow();
        for (int64_t i = 0; i < batchSize; ++i) {
            paths.push_back(target.write(content));
        }
        target.writeInfected();
        const int64_t gone = target.waitForAll(1);
        if (gone < 0) {
            reportWhole(begin, gone);
            return;
        }
        spent += gone - begin;
        for (const std::string& path : paths) {
            ::unlink(path.c_str());
        }
        paths.clear();
    }
    reportWhole(0, spent);
}

bool isMode(const char* given, const char* mode, int argc, int arguments)
{
    return std::strcmp(given, mode) == 0 && argc == arguments + 1;
}
} // namespace

int main(int argc, char* argv[])
{
    if (argc < 5) {
        Program::fail("usage: file_writer each|burst|copy|batches DIRECTORY INFECTED ARGUMENT...");
    }
    Target target(argv[2], argv[3]);
    if (isMode(argv[1], "each", argc, 5)) {
        writeEach(target, Program::number(argv[4]), Program::number(argv[5]));
    } else if (isMode(argv[1], "burst", argc, 4)) {
        writeBurst(target, Program::number(argv[4]));
    } else if (isMode(argv[1], "copy", argc, 4)) {
        copyFiles(target, Program::linesOf(argv[4]));
    } else if (isMode(argv[1], "batches", argc, 5)) {
        writeBatches(target, Program::contentOf(argv[4]), Program::number(argv[5]));
    } else {
        Program::fail("no such mode, or not its arguments");
    }
    return 0;
}
