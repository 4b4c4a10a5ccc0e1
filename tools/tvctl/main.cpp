#include "tvctl/commandline.h"

#include <QCoreApplication>
#include <QTextCodec>

int main(int argc, char* argv[])
{
    // File names are UTF-8 whatever the environment says; in the "C" locale Qt would find no others.
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("UTF-8"));

    // Qt takes options of its own out of a command line, which here is all the tool's.
    int programNameOnly = 1;
    const QCoreApplication application(programNameOnly, argv);
    return static_cast<int>(runCommandLine(argc, argv));
}
