#pragma once

#include "tvctl/files/treewalker.h"
#include "tvctl/sweep/statedirectory.h"
#include "tvctl/sweep/stumblingblock.h"
#include "tvctl/sweep/sweepjournal.h"
#include "tvctl/sweep/sweepstate.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QString>
#include <QVector>

#include <optional>
#include <set>
#include <vector>

/// Finds the files that may have changed since the last finished sweep of the same roots.
///
/// That is by their change time, which others can only set by the clock or on the disk itself, and everything
/// below a directory that was not at its place then: files keep their change times when a directory above
/// them is moved. Each file system is synced before, since a page of a mapped file that waits to be written
/// takes more without a new change time. Where change times cannot be relied on, all files count as changed:
/// on file systems that have none, or not for what is written by a mapping, and below /media and wherever
/// else something is mounted at a root or below, since a medium may come with any times that somebody wrote
/// on it elsewhere. Of an unchanged file nothing but its status is looked at.
///
/// A sweep that ends early goes on in the next one. It counts from its first beginning, so that whatever
/// changed behind its back is due in the sweep after it. A file at which two sweeps in a row end is passed
/// by, and is due again in the next. For one thread.
class Sweep
{
public:
    /// What somebody does with what the sweep comes by.
    class Visitor
    {
    public:
        enum class Verdict
        {
            Done,
            /// It is due again in the next sweep.
            Again,
            /// The same, and somebody holds it by a lease, which the attempt to open it has begun to break:
            /// it comes once more when all others have been.
            Withheld,
            /// The sweep ends here and has not done this one.
            Stop,
            /// The same, and the file has nothing to do with it.
            Interrupted
        };

        virtual ~Visitor() = default;

        /// Called in front of each object, and in front of a root before something below comes once more;
        /// true ends the sweep.
        virtual bool isStopped(const TreeWalker& walker) = 0;
        /// A file that may have changed.
        virtual Verdict changed(const TreeWalker& walker) = 0;
        /// Anything else but directories and files that are unchanged.
        virtual void passed(const TreeWalker& walker) = 0;
        /// A file that was Withheld and does not come any more in this sweep.
        virtual void leftWithheld(const TreeWalker& walker) = 0;
        /// How long such files are waited for in the end.
        virtual int patienceMs() const = 0;
        /// A file that may have changed, and at which two sweeps have ended.
        virtual void stumbled(const TreeWalker& walker) = 0;
        /// The state cannot be kept, which is no reason to end.
        virtual void notKept(const QString& problem) = 0;
    };

    /// `directory` has to live as long; the caller holds its lock. With `isFull` everything counts as
    /// changed.
    Sweep(const StateDirectory& directory, const QVector<QByteArray>& roots, bool isFull,
          const TreeWalker::SkipRule& isSkipped, const SweepTime& now = SweepTime::now());

    /// Everything counts as changed.
    bool isFull() const
    {
        return !m_since;
    }
    /// From which change time on a file counts as changed, in ms since the epoch; nothing when isFull.
    std::optional<qint64> since() const
    {
        return m_since;
    }
    /// It goes on at this path; empty when it is not one that was interrupted.
    const QByteArray& resumedAt() const
    {
        return m_resume.path;
    }
    /// There is a state, but it makes no sense.
    bool isStateDamaged() const
    {
        return m_isStateDamaged;
    }

    /// True when it came to its end; the state is then that of the next sweep. Also when it ended while it
    /// only waited for files that were withheld, which are due again.
    bool run(Visitor& visitor);

private:
    /// A file to come back to.
    struct Withheld
    {
        int root = 0;
        QByteArray path;
    };

    void resume(bool isFull);
    bool isBelowRoot(const SweepJournal::Step& step) const;
    bool walk(int root, Visitor& visitor);
    bool visit(TreeWalker& walker, Visitor& visitor);
    void enter(TreeWalker& walker);
    Place comeTo(const TreeWalker& directory);
    void withhold(const TreeWalker& walker, Visitor& visitor);
    void scanWithheld(Visitor& visitor);
    bool scanAgain(const Withheld& file, Visitor& visitor);
    bool scan(const TreeWalker& walker, Visitor& visitor);
    bool sync(const TreeWalker& walker);
    static bool hasChangeTimes(const TreeWalker& walker);
    bool isDue(const TreeWalker& walker) const;
    Place pathOf(const TreeWalker& walker) const;
    void keepProgress(const TreeWalker& walker, bool isDone, Visitor& visitor);
    void keepResult(Visitor& visitor);
    void append(const QByteArray& block, Visitor& visitor);
    void tellNotKept(Visitor& visitor, int error);

    const StateDirectory& m_directory;
    const QVector<QByteArray> m_roots;
    const TreeWalker::SkipRule m_isSkipped;
    /// How the files of the state are called: each set of roots has its own.
    const QByteArray m_name;

    std::optional<SweepState> m_last;
    bool m_isStateDamaged = false;
    SweepJournal::Begin m_begin;
    std::optional<qint64> m_since;
    /// What the interrupted sweep had done, and of its journal what can be read.
    SweepJournal::Step m_resume;
    Places m_seenBefore;
    int m_journalSize = 0;
    bool m_isResuming = false;

    UniqueFd m_journal;
    bool m_isNotKeptTold = false;
    QElapsedTimer m_lastKept;
    /// What has been done since the journal was written last, and before.
    SweepJournal::Step m_step;
    SweepJournal::Step m_done;
    StumblingBlock m_stumblingBlock;
    /// The file systems that have been.
    std::set<dev_t> m_synced;
    /// The paths of the directories on the way down, from the root.
    std::vector<Place> m_way;
    /// Files that come once more, and whether that is the last time.
    std::vector<Withheld> m_withheld;
    bool m_isLastTime = false;
    /// Below the directory of this depth everything is due.
    std::optional<size_t> m_new;
};
