#include "app/descriptorlimit.h"
#include "app/orderlystop.h"
#include "app/standardstreams.h"
#include "monitor/filemonitor.h"
#include "platform/tvcore/virusconfig.h"
#include "scan/cscanfile.h"
#include "socket/csocketmanager.h"

#include <QCoreApplication>
#include <QTextCodec>

namespace
{
/// What is left to do when the process ends in the middle of a scan.
void doLastWork()
{
    VirusConfig().storeKeptReports();
    CScanFile::getInstance()->removeTemporaryFiles();
}
} // namespace

int main(int argc, char* argv[])
{
    openMissingStandardStreams();
    raiseDescriptorLimit();
    // File names are UTF-8 whatever the environment says; in the "C" locale Qt would find no others.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));

    const QCoreApplication application(argc, argv);
    const OrderlyStop stop(&doLastWork);

    // Whatever fails to start, the rest runs without it.
    CSocketManager::getInstance()->startListening();

    CScanFile* engine = CScanFile::getInstance();
    engine->initEngine();
    engine->loadDatabases();

    FileMonitor monitor;
    monitor.startMonitoring();
    const int status = QCoreApplication::exec();

    CSocketManager::getInstance()->stop();
    return status;
}
