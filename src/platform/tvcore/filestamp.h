#pragma once

#include <QString>

#include <sys/stat.h>

/// Which file lies at a path, and in which state: enough to notice that it is another one, or that
/// somebody worked on it. Links are not followed.
class FileStamp
{
public:
    /// Of nothing: equal only to another that found nothing for the same reason.
    FileStamp() = default;
    static FileStamp of(const QString& path);

    /// 0, or the error number of the failure to look.
    int error() const
    {
        return m_error;
    }
    bool isMissing() const;
    bool isRegularFile() const;
    qint64 size() const
    {
        return m_stat.st_size;
    }
    /// True when both are the same file, changed in between or not.
    bool isSameFile(const FileStamp& other) const;
    /// True when it is the same file and nobody changed it in between, not even its permissions.
    bool isUnchanged(const FileStamp& other) const;

private:
    int m_error = 0;
    struct stat m_stat = {};
};
