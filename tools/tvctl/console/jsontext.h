#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

/// How values that JSON has no type for are written, the same in every document. Pure.
namespace JsonText
{
/// Puts a file name into `object` under `key`. Bytes that are no UTF-8 are shown as "\xNN", and the exact
/// bytes stand beside under `key` + "_base64".
void insertPath(QJsonObject& object, const QString& key, const QString& path);

/// ISO 8601 in UTC with milliseconds, "2026-11-21T12:00:00.000Z"; null for an invalid time.
QJsonValue time(const QDateTime& time);
} // namespace JsonText
