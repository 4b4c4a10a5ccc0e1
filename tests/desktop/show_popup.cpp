#include "platform/tvnotify/tvnotify.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QLocale>

#include <cstdio>
#include <cstdlib>

/// Shows the popup of a detection, with ICON, until its standard input ends.
int main(int argc, char* argv[])
{
    const QCoreApplication application(argc, argv);
    if (argc != 2) {
        std::fputs("usage: show_popup ICON\n", stderr);
        return EXIT_FAILURE;
    }
    const QString message =
        QStringLiteral("<b>File Name:</b> invoice <img src=x>.pdf.exe<br/>"
                       "<b>Virus Name:</b> Eicar-Test-Signature<br/>"
                       "<b>Clean Status:</b> Cleaned<br/>"
                       "<b>File Path:</b> /home/user/Downloads/invoice <img src=x>.pdf.exe");
    const QString closeAt = QLocale::c().toString(QDateTime::currentDateTime().addSecs(60),
                                                  QStringLiteral("yyyy-MM-dd hh:mm:ss"));
    Tvnotify notify;
    notify.showPopupToUser(QStringLiteral("Infected File Found"), message, QStringLiteral("4"),
                           QString::fromLocal8Bit(argv[1]), QString(), QString(), 3,
                           QStringLiteral("tvfilemon"), closeAt);
    while (std::getchar() != EOF) {
    }
    return EXIT_SUCCESS;
}
