#pragma once

#include <QByteArray>
#include <QHash>

#include <chrono>
#include <list>
#include <optional>

/// The files that could not be opened when they were to be scanned, since another program holds a lease on
/// them. Opening such a file waits for up to 45 s until the kernel takes the lease away, which nobody may do
/// to the main thread: they are tried now and then instead, without waiting.
///
/// Paths only: what a path leads to is found out at each try. Not for files without a path. For one thread.
class LeasedFiles
{
public:
    using Clock = std::chrono::steady_clock;

    /// How long a file is left alone after a try.
    static constexpr std::chrono::seconds pause{3};
    /// How many are kept: a user may lease any number, and all are tried within each pause. That many take
    /// 40 MB at most, and some hundredths of a core.
    static constexpr int limit = 10000;
    /// How long one call tries, so that other work has its turn in between. A path through dozens of links
    /// takes milliseconds.
    static constexpr std::chrono::milliseconds timeAtOnce{10};

    /// Has `path` tried from `now` + `pause` on, also when it is kept already. With too many, the one that
    /// was tried longest ago is given up. False for the first that is, and again only after half of all were
    /// gone.
    bool add(const QByteArray& path, Clock::time_point now);
    /// The file was scanned, or is not to be.
    void remove(const QByteArray& path);

    /// Tries what is due, up to the first that is not leased any more, which is returned and not kept.
    /// What is gone is not kept either. Nothing when there is no such file among those that are due, or among
    /// those that could be tried in `timeAtOnce`.
    std::optional<QByteArray> takeFree(Clock::time_point now);

    /// When to call `takeFree` next; nothing while there are no files.
    std::optional<Clock::time_point> nextDue() const;

    int size() const
    {
        return m_places.size();
    }

private:
    struct File
    {
        QByteArray path;
        Clock::time_point due;
    };

    void append(File file);
    File takeFirst();

    /// In the order in which they are due, which is that of their last tries.
    std::list<File> m_files;
    QHash<QByteArray, std::list<File>::iterator> m_places;
    bool m_isOverflowTold = false;
};
