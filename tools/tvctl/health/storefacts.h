#pragma once

#include "tvctl/installation/installation.h"

#include <QString>
#include <QStringList>
#include <QtGlobal>

/// What the stores of an installation hold, as far as somebody's protection depends on it.
struct StoreFacts
{
    /// Reads them, by the store library, which StoreAccess has begun to use.
    static StoreFacts read(const Installation& installation);

    bool hasSettings() const
    {
        return settingsProblem.isEmpty();
    }
    bool hasReports() const
    {
        return reportsProblem.isEmpty();
    }

    /// They are for root's eyes, and these are others.
    bool isHidden = false;
    /// Why they cannot be read; empty when they can. What belongs to them means nothing otherwise.
    QString settingsProblem;
    QString reportsProblem;
    bool isRealtimeOn = false;
    int scanAction = 0;
    bool isIocOn = false;
    int iocAction = 0;
    int md5Hashes = 0;
    int sha1Hashes = 0;
    int sha256Hashes = 0;
    qint64 detectionsOfLastDay = 0;
    /// Damaged stores that were set aside, by name.
    QStringList damaged;
};
