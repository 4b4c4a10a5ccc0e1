#pragma once

#include <QString>
#include <QStringList>

/// Stands in for the two scan managers that the command server uses: what it asks of them is noted, what they
/// answer is set here. Linked into a test in their place.
struct FakeScanners
{
    static void reset();

    /// What was done, in order: "scan PATH", "url TEXT", "clean PATH", "ioc PATH", "reload db" and so on.
    static QStringList calls;

    static int scanResult;
    static int urlResult;
    /// Filled in for result 1; of a URL, the URL itself when it is empty.
    static QString virusName;
    static int cleanResult;
    static int lastError;
    static int iocResult;
    /// Filled in for any result but 0.
    static QString hash;
    static bool reloadResult;

    /// How many times the next questions are answered with "loading".
    static int timesLoading;
    static int timesIocLoading;
    static int loadingAsked;
    static int iocLoadingAsked;
};
