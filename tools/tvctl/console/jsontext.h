#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

/// How documents, and values that JSON has no type for, are written, the same everywhere. Pure.
namespace JsonText
{
/// The text of `document`. JSON itself only demands that control characters below U+0020 are escaped; here
/// all that steer a terminal or turn the direction of writing are, as "\uNNNN": a document ends up on a
/// screen too.
QByteArray write(const QJsonDocument& document, QJsonDocument::JsonFormat format);

/// Puts a file name into `object` under `key`. Bytes that are no UTF-8 are shown as "\xNN", and the exact
/// bytes stand beside under `key` + "_base64".
void insertPath(QJsonObject& object, const QString& key, const QString& path);

/// ISO 8601 in UTC with milliseconds, "2026-11-21T12:00:00.000Z"; null for an invalid time.
QJsonValue time(const QDateTime& time);
} // namespace JsonText
