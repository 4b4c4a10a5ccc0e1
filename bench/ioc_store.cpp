// Fills the stores of known-bad hashes and of file hashes, and times the store's own part of a look-up.
//
//   ioc_store SETTINGS lists COUNT    puts COUNT hashes into each of the three lists
//   ioc_store SETTINGS cache LIST     puts the files into the cache as they are, with hashes that no list has
//   ioc_store SETTINGS lookup LIST    looks each file up and rewrites its record, as each request does
#include "kit/clock.h"
#include "kit/program.h"
#include "kit/report.h"
#include "platform/tvcore/iocdatabaseconfig.h"
#include "platform/tvcore/iocscanconfig.h"
#include "platform/tvcore/tvcore.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>

#include <cstring>
#include <string>
#include <vector>

namespace
{
/// Digits that differ in each position, as those of real hashes do.
QString hashOf(int64_t number, int digits)
{
    QString hash;
    auto state = static_cast<quint64>(number);
    while (hash.size() < digits) {
        state = state * 6364136223846793005ULL + 1442695040888963407ULL;
        hash += QStringLiteral("%1").arg(state >> 32U, 8, 16, QLatin1Char('0'));
    }
    return hash;
}

void expect(bool isDone, const char* what)
{
    if (!isDone) {
        Program::fail(what);
    }
}

void fillLists(int64_t count)
{
    const struct
    {
        IOCScanConfig::HASH_TYPE type;
        int digits;
    } lists[] = {{IOCScanConfig::MD5, 32}, {IOCScanConfig::SHA1, 40}, {IOCScanConfig::SHA256, 64}};
    IOCScanConfig config;
    for (const auto& list : lists) {
        QStringList hashes;
        for (int64_t i = 0; i < count; ++i) {
            hashes.append(hashOf(i, list.digits));
        }
        expect(config.setHashList(list.type, hashes), "the list cannot be stored");
    }
}

void fillCache(const std::vector<std::string>& paths)
{
    IOCDatabaseConfig cache;
    for (const std::string& path : paths) {
        const QFileInfo file(QString::fromStdString(path));
        FileIOCInfo info;
        info.setFilePath(file.filePath());
        info.setFileSize(file.size());
        info.setFileCreateDate(file.birthTime());
        info.setFileModDate(file.lastModified());
        info.setFileMD5(QString(32, QLatin1Char('x')));
        info.setFileSHA1(QString(40, QLatin1Char('x')));
        info.setFileSHA256(QString(64, QLatin1Char('x')));
        info.setFileSign(QStringLiteral("-"));
        expect(cache.addFileIOCInfo(info), "the cache takes nothing");
    }
}

void lookUp(const std::vector<std::string>& paths)
{
    IOCDatabaseConfig cache;
    const int64_t begin = nanosecondsNow();
    for (const std::string& path : paths) {
        FileIOCInfo info;
        expect(cache.getFileIOCInfo(QString::fromStdString(path), info) && cache.updateFileIOCInfo(info),
               "the file is not in the cache");
    }
    Report().add("whole", nanosecondsNow() - begin).print();
}
} // namespace

int main(int argc, char* argv[])
{
    Program::expectArguments(argc, 3, "ioc_store SETTINGS lists|cache|lookup ARGUMENT");
    const QCoreApplication application(argc, argv);
    TvCore::setDirectory(QFile::decodeName(argv[1]));
    if (std::strcmp(argv[2], "lists") == 0) {
        fillLists(Program::number(argv[3]));
    } else if (std::strcmp(argv[2], "cache") == 0) {
        fillCache(Program::linesOf(argv[3]));
    } else if (std::strcmp(argv[2], "lookup") == 0) {
        lookUp(Program::linesOf(argv[3]));
    } else {
        Program::fail("neither \"lists\", \"cache\" nor \"lookup\"");
    }
    return 0;
}
