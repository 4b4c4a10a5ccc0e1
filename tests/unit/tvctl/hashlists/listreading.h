#pragma once

#include "tvctl/hashlists/hashlistimport.h"
#include "tvctl/hashlists/hashlistsink.h"

#include <QByteArray>
#include <QStringList>

/// Hashes of one repeated digit, which a table of expectations can tell in few letters.
QByteArray md5Of(char digit);
QByteArray sha1Of(char digit);
QByteArray sha256Of(char digit);

/// Writes down what it gets: "3 md5 a" for a hash of one repeated digit in line 3, with all digits otherwise;
/// "3 reason" for a rejection.
class RecordingSink : public HashListSink
{
public:
    void accept(const HashIndicator& indicator) override;
    void reject(qint64 line, const QString& reason) override;

    QStringList accepted;
    QStringList rejected;
};

/// What came of one list.
struct Reading
{
    QStringList accepted;
    QStringList rejected;
    HashListResult result;
};

Reading readList(const QByteArray& list, const HashListOptions& options = {}, const QString& name = {});
Reading readList(const QByteArray& list, HashListFormat format);

/// Text of a table of expectations: one entry a line.
QStringList lines(const char* text);
