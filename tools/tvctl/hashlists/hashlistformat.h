#pragma once

#include <QString>
#include <QStringList>

#include <optional>

/// How a list of hashes is written.
enum class HashListFormat
{
    Plain,
    Csv,
    Loki,
    Hdb,
    Cdb,
    Misp,
    Stix,
    OpenIoc
};

/// The name by which people call it, in lower case.
QString nameOf(HashListFormat format);

/// The format of that name, also by its other names ("hsb"); nothing for a name that is unknown.
std::optional<HashListFormat> hashListFormatOf(const QString& name);

/// Every name that `hashListFormatOf` knows.
QStringList hashListFormatNames();
