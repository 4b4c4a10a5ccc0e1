#pragma once

#include "tvctl/health/packagefacts.h"
#include "tvctl/health/signatureheader.h"
#include "tvctl/installation/installation.h"

#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>
#include <optional>

/// A file that the service loads as signatures.
struct SignatureFile
{
    /// Without the directory.
    QString name;
    /// Why it cannot be what it should be; empty when nothing is wrong as far as its head tells.
    QString problem;
    std::optional<SignatureHeader> header;
};

/// What lies in a directory of signature databases.
struct SignatureFiles
{
    /// Why the directory cannot be read; empty when it can.
    QString problem;
    /// In the order in which the service loads them.
    QVector<SignatureFile> loaded;
    /// Signatures in other forms, which the service leaves alone.
    QStringList ignored;
    /// There is none to load, and an update that is to get them is running; not so when the one before
    /// failed, as most likely this one will.
    bool areComing = false;

    /// The file whose age is that of the whole set: "daily.cvd", the one that is renewed every day, or else
    /// the youngest. Null when no file says its age.
    const SignatureFile* freshest() const;
};

/// Looks into `directory` and at the head of each file there.
SignatureFiles readSignatureFiles(const QString& directory);

/// Those of `installation`. Where there are none, `isUpdating` is asked as well.
SignatureFiles
signaturesOf(const Installation& installation,
             const std::function<bool(const QString& root)>& isUpdating = PackageFacts::isUpdating);
