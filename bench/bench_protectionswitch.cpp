// Prints what asking for the real-time protection switch costs, which every file event does.

#include "platform/tvcore/protectionconfig.h"
#include "platform/tvcore/tvcore.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <vector>

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QTemporaryDir directory;
    TvCore::setDirectory(directory.path());
    ProtectionConfig config;
    if (!config.setOnlineProtectionEnabled(true)) {
        std::fputs("the store cannot be written\n", stderr);
        return 1;
    }
    constexpr int callCount = 100000;
    std::vector<qint64> nanoseconds;
    nanoseconds.reserve(callCount);
    QElapsedTimer timer;
    for (int i = 0; i < callCount; ++i) {
        timer.start();
        const bool isEnabled = config.isOnlineProtectionEnabled();
        nanoseconds.push_back(timer.nsecsElapsed());
        if (!isEnabled) {
            std::fputs("the switch was not read\n", stderr);
            return 1;
        }
    }
    std::sort(nanoseconds.begin(), nanoseconds.end());
    const auto microsecondsAt = [&nanoseconds](double part) {
        return static_cast<double>(nanoseconds.at(static_cast<std::size_t>(part * (callCount - 1)))) / 1000.0;
    };
    std::printf("isOnlineProtectionEnabled: median %.2f us, 99%% below %.2f us, %d calls\n",
                microsecondsAt(0.5), microsecondsAt(0.99), callCount);
    return 0;
}
