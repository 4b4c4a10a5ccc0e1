#pragma once

#include <QString>

/// Appends what was detected to the report of the day, a file in the reports directory.
///
/// Keeps nothing between calls: the file is opened and closed for each record, so others may rotate or remove
/// it at any time. Used on the main thread; takes no lock.
class IOCReportManager
{
public:
    static IOCReportManager* getInstance();
    /// Destroys the manager; a pointer from `getInstance` must not be used after it, one from a later call
    /// included.
    static void releaseInstance();

    IOCReportManager(const IOCReportManager&) = delete;
    IOCReportManager& operator=(const IOCReportManager&) = delete;

    /// Appends a record of this moment. 1 when the file could be opened, whatever became of the writing, else
    /// 0 with errno set. For the meaning of the values see iocReportLine.
    int addFileInReport(const QString& filePath, const QString& hash, const QString& action, int hashKind);

private:
    IOCReportManager() = default;
    ~IOCReportManager() = default;

    static IOCReportManager* _instance;
};
