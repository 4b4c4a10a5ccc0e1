#pragma once

#include "platform/tvcore/virusreport.h"
#include "tvctl/client/serviceconnection.h"
#include "tvctl/console/interruption.h"
#include "tvctl/health/storefacts.h"
#include "tvctl/installation/installation.h"

#include <QString>

#include <chrono>
#include <optional>

class TestFile;

/// What came of a self-test.
struct SelfTestResult
{
    enum class Outcome
    {
        /// The file was removed.
        Removed,
        /// It was reported and left.
        Reported,
        NotDetected,
        /// Nobody can tell, or it was ended before the end.
        Unknown
    };

    Outcome outcome = Outcome::NotDetected;
    /// The file; empty when none was written.
    QString path;
    /// How often it was written, and how long after the first time something happened.
    int tries = 0;
    qint64 milliseconds = 0;
    /// What the service stored about it.
    std::optional<VirusReport> record;
    /// Why that cannot be read; empty when it can.
    QString recordProblem;
    /// Why it was not detected, or what is strange; empty when all is well.
    QString explanation;
    /// What to do about it.
    QString fix;
};

/// Tries on a harmless file whether the service protects: writes it where the service watches, again and
/// again, until the service acts.
class SelfTest
{
public:
    /// Where to write when nothing else is said: a watched root for root, the home directory for others.
    /// Throws ToolError when there is no such place.
    static QString usualDirectory();

    /// `directory` as the service knows it, without links. Throws ToolError when it is none that is watched.
    static QString watchedDirectory(const QString& directory);

    /// `directory` comes from one of the above.
    SelfTest(const Installation& installation, const QString& directory, std::chrono::milliseconds limit);

    /// Writes, waits, asks why not, and removes the file and its copies in quarantine. Throws ToolError when
    /// the service does not run or the file cannot be written.
    SelfTestResult run();

private:
    using Clock = std::chrono::steady_clock;

    void connect();
    /// Rewrites `file` until something comes of it, or somebody interrupts; false when nothing did in time.
    bool watch(TestFile& file, SelfTestResult& result);
    std::optional<VirusReport> findRecord(const QString& name) const;
    void awaitRecord(const QString& name, SelfTestResult& result) const;
    /// Why nothing came of it.
    void explain(SelfTestResult& result);
    void explainBlindness(SelfTestResult& result) const;
    void removeCopies(const QString& path) const;

    const Installation m_installation;
    const QString m_directory;
    const std::chrono::milliseconds m_limit;
    const Interruption m_interruption;
    StoreFacts m_stores;
    /// What was recorded before the test.
    const qint64 m_lastRecord;
    ServiceConnection m_service;
};
