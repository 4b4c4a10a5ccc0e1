#pragma once

#include <QByteArray>
#include <QString>

/// The replies to clients, as the bytes that are sent: UTF-8 without a terminator or line end. Pure.
namespace ClientReply
{
QByteArray registered();
QByteArray invalidCommand();

/// To SCAN and SCANURL: `result` 0 clean, 1 infected with `virusName`, else an error code.
QByteArray scan(int result, const QString& virusName);

/// To CLEAN. `result` is that of CScanManager::cleanFile: 0 when the file was removed.
QByteArray clean(int result, int lastError);

/// To SCANIOC. `result` is that of IOCScanManager::scanFile; the kind of hash is told by its length.
QByteArray scanIoc(int result, const QString& hash);

QByteArray reload(bool succeeded);
} // namespace ClientReply
