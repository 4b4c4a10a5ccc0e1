#include "platform/tvcore/fileiocinfo.h"

FileIOCInfo::FileIOCInfo() = default;

QString FileIOCInfo::getFilePath() const
{
    return m_path;
}

void FileIOCInfo::setFilePath(const QString& path)
{
    m_path = path;
}

long long FileIOCInfo::getFileSize() const
{
    return m_size;
}

void FileIOCInfo::setFileSize(long long size)
{
    m_size = size;
}

QDateTime FileIOCInfo::getFileCreateDate() const
{
    return m_createDate;
}

void FileIOCInfo::setFileCreateDate(const QDateTime& date)
{
    m_createDate = date;
}

QDateTime FileIOCInfo::getFileModDate() const
{
    return m_modDate;
}

void FileIOCInfo::setFileModDate(const QDateTime& date)
{
    m_modDate = date;
}

QString FileIOCInfo::getFileMD5() const
{
    return m_md5;
}

void FileIOCInfo::setFileMD5(const QString& hash)
{
    m_md5 = hash;
}

QString FileIOCInfo::getFileSHA1() const
{
    return m_sha1;
}

void FileIOCInfo::setFileSHA1(const QString& hash)
{
    m_sha1 = hash;
}

QString FileIOCInfo::getFileSHA256() const
{
    return m_sha256;
}

void FileIOCInfo::setFileSHA256(const QString& hash)
{
    m_sha256 = hash;
}

QString FileIOCInfo::getFileSign() const
{
    return m_sign;
}

void FileIOCInfo::setFileSign(const QString& sign)
{
    m_sign = sign;
}
