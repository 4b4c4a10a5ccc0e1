#pragma once

#include "platform/tvcore/virusreport.h"
#include "tvctl/detections/hostidentity.h"

#include <QByteArray>
#include <QJsonObject>

/// The forms in which a detection is given to other programs. Pure. The fields are documented in
/// docs/tvctl.md, and stay.
namespace DetectionForms
{
/// The element of the JSON documents, and the line of the stream.
QJsonObject json(const VirusReport& report);

/// The same in the field names of the Elastic Common Schema.
QJsonObject ecs(const VirusReport& report, const HostIdentity& host);

/// One line of a CSV file by RFC 4180, with its end.
QByteArray csv(const VirusReport& report);
/// The line of the names above them.
QByteArray csvHeader();

/// `object` on one line, with a line feed.
QByteArray line(const QJsonObject& object);
} // namespace DetectionForms
