// Prints what lists of a million known-bad hashes and the cache of file hashes cost.

#include "platform/tvcore/iocdatabaseconfig.h"
#include "platform/tvcore/iocscanconfig.h"
#include "platform/tvcore/tvcore.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDateTime>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace
{
QString hashOfNumber(int number)
{
    return QString::fromLatin1(
        QCryptographicHash::hash(QByteArray::number(number), QCryptographicHash::Sha256).toHex());
}

void require(bool isTrue, const char* what)
{
    if (!isTrue) {
        std::fprintf(stderr, "failed: %s\n", what);
        std::exit(1);
    }
}

class Stopwatch
{
public:
    explicit Stopwatch(const char* what) : m_what(what)
    {
        m_timer.start();
    }
    ~Stopwatch()
    {
        std::printf("%-40s %7.3f s\n", m_what, static_cast<double>(m_timer.nsecsElapsed()) / 1e9);
    }
    Stopwatch(const Stopwatch&) = delete;
    Stopwatch& operator=(const Stopwatch&) = delete;

private:
    const char* m_what;
    QElapsedTimer m_timer;
};

void measureLists()
{
    constexpr int hashCount = 1000000;
    constexpr int changeCount = 1000;
    QStringList hashes;
    QStringList more;
    for (int i = 0; i < hashCount; ++i) {
        hashes.append(hashOfNumber(i));
    }
    for (int i = 0; i < changeCount; ++i) {
        more.append(hashOfNumber(hashCount + i));
    }
    IOCScanConfig config;
    const auto write = [&](const char* what) {
        const Stopwatch stopwatch(what);
        require(config.setHashList(IOCScanConfig::SHA256, hashes), what);
    };
    const auto load = [&](const char* what, const QStringList& expected) {
        QStringList loaded;
        {
            const Stopwatch stopwatch(what);
            loaded = config.getHashList(IOCScanConfig::SHA256);
        }
        require(loaded == expected, what);
    };
    write("write 1,000,000 hashes");
    load("load them", hashes);
    write("replace them");
    load("load them again", hashes);
    {
        const Stopwatch stopwatch("append 1000");
        require(config.addHashes(IOCScanConfig::SHA256, more) == changeCount, "append");
    }
    load("load 1,001,000", hashes + more);
    {
        const Stopwatch stopwatch("remove 1000");
        require(config.removeHashes(IOCScanConfig::SHA256, more) == changeCount, "remove");
    }
    {
        const Stopwatch stopwatch("count");
        require(config.getHashCount(IOCScanConfig::SHA256) == hashCount, "count");
    }
    {
        const Stopwatch stopwatch("list 1000 in the middle");
        QStringList piece;
        require(config.getHashes(IOCScanConfig::SHA256, piece, hashCount / 2) &&
                    piece == hashes.mid(hashCount / 2, 1000),
                "list");
    }
    {
        const Stopwatch stopwatch("clear");
        require(config.clearHashList(IOCScanConfig::SHA256), "clear");
    }
}

void measureCache()
{
    constexpr int fileCount = 100000;
    const auto recordOf = [](int number) {
        FileIOCInfo info;
        info.setFilePath(QStringLiteral("/home/user/documents/project/file-%1.txt").arg(number));
        info.setFileSize(number);
        info.setFileModDate(QDateTime::fromMSecsSinceEpoch(1700000000000 + number));
        const QString hash = hashOfNumber(number);
        info.setFileMD5(hash.left(32));
        info.setFileSHA1(hash.left(40));
        info.setFileSHA256(hash);
        info.setFileSign(QStringLiteral("-"));
        return info;
    };
    IOCDatabaseConfig cache;
    {
        const Stopwatch stopwatch("cache 100,000 files");
        for (int i = 0; i < fileCount; ++i) {
            FileIOCInfo info = recordOf(i);
            require(cache.addFileIOCInfo(info), "add");
        }
    }
    std::vector<qint64> nanoseconds;
    QElapsedTimer whole;
    whole.start();
    for (int i = 0; i < fileCount; ++i) {
        const QString path =
            QStringLiteral("/home/user/documents/project/file-%1.txt").arg(i * 7919LL % fileCount);
        QElapsedTimer timer;
        timer.start();
        FileIOCInfo info;
        const bool isHit = cache.getFileIOCInfo(path, info) && cache.updateFileIOCInfo(info);
        nanoseconds.push_back(timer.nsecsElapsed());
        require(isHit, "hit");
    }
    const double seconds = static_cast<double>(whole.nsecsElapsed()) / 1e9;
    std::sort(nanoseconds.begin(), nanoseconds.end());
    const auto microsecondsAt = [&nanoseconds](double part) {
        return static_cast<double>(nanoseconds.at(static_cast<std::size_t>(part * (fileCount - 1)))) / 1000.0;
    };
    std::printf("look up and update: median %.1f us, 99%% below %.1f us, longest %.1f us, %.0f a second\n",
                microsecondsAt(0.5), microsecondsAt(0.99), microsecondsAt(1), fileCount / seconds);
}
} // namespace

int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    const QTemporaryDir directory;
    TvCore::setDirectory(directory.path());
    measureLists();
    measureCache();
    return 0;
}
