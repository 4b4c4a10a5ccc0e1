#pragma once

#include "platform/tvcore/tvcoreexport.h"

#include <QDateTime>
#include <QString>
#include <QtGlobal>

/// What is remembered about one file: its hashes, and the size and dates it had when they were computed. A
/// plain value; a new one is empty, with size 0 and invalid dates.
class TVCORE_EXPORT FileIOCInfo
{
public:
    FileIOCInfo();

    /// The full path, which is the key of a stored record.
    QString getFilePath() const;
    void setFilePath(const QString& path);
    /// In bytes.
    long long getFileSize() const;
    void setFileSize(long long size);
    /// Dates are kept with millisecond precision; a record from the store has them in UTC. An invalid
    /// date comes back invalid.
    QDateTime getFileCreateDate() const;
    void setFileCreateDate(const QDateTime& date);
    QDateTime getFileModDate() const;
    void setFileModDate(const QDateTime& date);
    /// Hashes in lower-case hexadecimal; empty for a file that could not be read.
    QString getFileMD5() const;
    void setFileMD5(const QString& hash);
    QString getFileSHA1() const;
    void setFileSHA1(const QString& hash);
    QString getFileSHA256() const;
    void setFileSHA256(const QString& hash);
    /// Who signed it.
    QString getFileSign() const;
    void setFileSign(const QString& sign);

private:
    QString m_path;
    long long m_size = 0;
    QDateTime m_createDate;
    QDateTime m_modDate;
    QString m_md5;
    QString m_sha1;
    QString m_sha256;
    QString m_sign;
};
