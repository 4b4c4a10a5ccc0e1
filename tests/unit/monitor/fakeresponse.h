#pragma once

#include "platform/tvcore/virusreport.h"

#include <QString>
#include <QStringList>
#include <QVector>

/// Stands in for the scan manager, the stores and the popups that a FileMonitor uses: what it asks of them is
/// noted, what they answer is set here. Linked into a test in their place.
struct FakeResponse
{
    static void reset();

    /// What was done, in order: "scan PATH", "clean PATH", "record", "popup".
    static QStringList calls;

    static bool protectionOn;
    static int protectionAsked;

    static int scanResult;
    static int scanErrno;
    static QString virusName;
    static QStringList scanned;
    static QStringList virusNamesPassedIn;

    static int cleanResult;
    static QStringList cleaned;

    static QVector<VirusReport> records;
    static bool recordResult;

    struct Popup
    {
        QString title;
        QString message;
        QString third;
        QString icon;
        QString fifth;
        QString sixth;
        int seventh;
        QString module;
        QString stamp;
    };
    static QVector<Popup> popups;
};
