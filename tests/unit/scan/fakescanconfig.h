#pragma once

#include "platform/tvcore/scansetting.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QVector>

/// Stands in for the configuration store's ScanConfig when linked into a test.
struct FakeScanConfig
{
    static void reset();

    static ScanSetting setting;
    static QHash<int, QSet<QString>> excludeLists;

    static int settingReads;
    /// The numbers of the lists that were read, in order.
    static QVector<int> listReads;
};
