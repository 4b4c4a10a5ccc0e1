// Scans one file after the other and nothing else: what the engine takes, at the least.
//
//   bare_scan DATABASES TEMPORARY COUNT file|text LIST
//
// LIST names the files, or is the texts; it is gone through as often as COUNT scans need.
#include "kit/clock.h"
#include "kit/engine.h"
#include "kit/processmemory.h"
#include "kit/program.h"
#include "kit/report.h"

#include <cstring>

int main(int argc, char* argv[])
{
    Program::expectArguments(argc, 5, "bare_scan DATABASES TEMPORARY COUNT file|text LIST");
    const Engine engine(argv[1], argv[2]);
    const int64_t count = Program::number(argv[3]);
    const bool isText = std::strcmp(argv[4], "text") == 0;
    const std::vector<std::string> items = Program::linesOf(argv[5]);

    const int64_t residentBefore = residentKibibytes();
    int64_t infected = 0;
    const auto scan = [&](int64_t number) {
        const std::string& item = items[static_cast<size_t>(number) % items.size()];
        if (isText ? engine.scanText(item) : engine.scanFile(item)) {
            ++infected;
        }
    };
    // As warm as a server that is asked for the second time.
    scan(0);
    infected = 0;
    const int64_t begin = nanosecondsNow();
    for (int64_t number = 0; number < count; ++number) {
        scan(number);
    }
    Report()
        .add("whole", nanosecondsNow() - begin)
        .add("infected", infected)
        .add("residentBefore", residentBefore)
        .add("residentAfter", residentKibibytes())
        .print();
    return 0;
}
