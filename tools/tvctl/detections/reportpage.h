#pragma once

#include <QByteArray>
#include <QJsonObject>

/// The report as one HTML page that needs nothing else, neither a network nor other files.
namespace ReportPage
{
/// The page that shows `data`. Nothing in `data` becomes markup or script: it is put in as data, and the
/// page's policy lets a browser run the page's own script and no other.
QByteArray build(const QJsonObject& data);
} // namespace ReportPage
