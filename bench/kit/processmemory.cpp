#include "kit/processmemory.h"

#include "kit/program.h"

#include <string>

int64_t residentKibibytes()
{
    const std::string name = "VmRSS:";
    for (const std::string& line : Program::linesOf("/proc/self/status")) {
        if (line.compare(0, name.size(), name) == 0) {
            return std::stoll(line.substr(name.size()));
        }
    }
    Program::fail("the kernel does not tell the resident size");
}
