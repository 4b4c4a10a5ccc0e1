#include "socket/clientreply.h"

namespace
{
QByteArray hashTypeOf(const QString& hash)
{
    switch (hash.size()) {
    case 64:
        return "SHA256";
    case 40:
        return "SHA1";
    default:
        return "MD5";
    }
}
} // namespace

QByteArray ClientReply::registered()
{
    return "REGISTERED!";
}

QByteArray ClientReply::invalidCommand()
{
    return "INVALID COMMAND!";
}

QByteArray ClientReply::scan(int result, const QString& virusName)
{
    switch (result) {
    case 0:
        return "CLEAN";
    case 1:
        return "INFECTED " + virusName.toUtf8();
    default:
        return "ERROR " + QByteArray::number(result);
    }
}

QByteArray ClientReply::clean(int result, int lastError)
{
    // The other way round than the words say. Every module of the suite reads it so: a file that was removed
    // is answered with FAILED and the error of some earlier removal.
    return result == 0 ? "FAILED " + QByteArray::number(lastError) : QByteArray("CLEANED");
}

QByteArray ClientReply::scanIoc(int result, const QString& hash)
{
    switch (result) {
    case 0:
        return "CLEAN";
    case 1:
        return hashTypeOf(hash) + ":IA:" + hash.toUtf8();
    case 2:
        return hashTypeOf(hash) + ":IR:" + hash.toUtf8();
    case 3:
        return hashTypeOf(hash) + ":ID:" + hash.toUtf8();
    default:
        return hashTypeOf(hash) + ':' + hash.toUtf8() + ":ERROR";
    }
}

QByteArray ClientReply::reload(bool succeeded)
{
    return succeeded ? "SUCCESS" : "FAILED";
}
