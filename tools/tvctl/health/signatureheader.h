#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QString>

#include <optional>

/// What the head of a signature file says about it.
struct SignatureHeader
{
    /// How many bytes of a file are its head.
    static constexpr int size = 512;

    /// When it was made; invalid when the text names no time.
    QDateTime built;
    uint version = 0;
    uint signatures = 0;
    /// What an engine has to know to use all of it.
    uint functionalityLevel = 0;
    QString builder;
};

/// Reads the first bytes of a signature file: "ClamAV-VDB:22 Jun 2021 21-31 -0400:5:13:81:..." padded with
/// blanks. The month is English whatever the locale. Nothing when this is the head of no signature file.
/// Pure.
std::optional<SignatureHeader> parseSignatureHeader(const QByteArray& head);
