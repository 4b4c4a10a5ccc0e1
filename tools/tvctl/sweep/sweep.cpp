#include "tvctl/sweep/sweep.h"

#include "tvctl/files/filesystems.h"

#include <QCryptographicHash>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <utility>

#include <unistd.h>

namespace
{
constexpr qint64 keepEveryMs = 2000;
constexpr int longestPathKept = 4096;

constexpr const char* stateEnding = ".state";
constexpr const char* journalEnding = ".progress";
constexpr const char* stumblingBlockEnding = ".at";

/// Where removable media are mounted.
constexpr const char* media = "/media";

/// In one order, so that the same roots are the same sweep.
QVector<QByteArray> sortedOnce(QVector<QByteArray> roots)
{
    std::sort(roots.begin(), roots.end());
    roots.erase(std::unique(roots.begin(), roots.end()), roots.end());
    return roots;
}

QByteArray nameFor(const QVector<QByteArray>& roots)
{
    constexpr int digits = 16;
    QCryptographicHash hash(QCryptographicHash::Sha256);
    for (const QByteArray& root : roots) {
        // With the zero byte behind it, which is in no path.
        hash.addData(root.constData(), root.size() + 1);
    }
    return "tvsweep-" + hash.result().toHex().left(digits);
}

qint64 changeTimeMs(const struct stat& status)
{
    constexpr qint64 msecsPerSecond = 1000;
    constexpr qint64 nsecsPerMsec = 1000000;
    return status.st_ctim.tv_sec * msecsPerSecond + status.st_ctim.tv_nsec / nsecsPerMsec;
}

/// `path`, or above it, but not above `root`: thousands of directories with long names would have each step
/// of the journal take megabytes.
QByteArray placeToGoOn(const QByteArray& path, const QByteArray& root)
{
    return path.size() <= longestPathKept
               ? path
               : path.left(std::max(path.lastIndexOf('/', longestPathKept), root.size()));
}

bool isBelow(const QByteArray& path, const QByteArray& directory)
{
    return !directory.isEmpty() && path.size() > directory.size() && path.startsWith(directory) &&
           (directory == "/" || path.at(directory.size()) == '/');
}
} // namespace

Sweep::Sweep(const StateDirectory& directory, const QVector<QByteArray>& roots, bool isFull,
             const TreeWalker::SkipRule& isSkipped, const SweepTime& now)
    : m_directory(directory),
      m_roots(sortedOnce(roots)),
      m_isSkipped(isSkipped),
      m_name(nameFor(m_roots)),
      m_stumblingBlock(directory, m_name + stumblingBlockEnding)
{
    const QByteArray state = m_directory.read(m_name + stateEnding);
    m_last = decodeState(state);
    m_isStateDamaged = !state.isEmpty() && !m_last;
    const auto since = m_last && !isFull ? changedSince(m_last->begun, now) : std::nullopt;
    m_begin = {now, !since};
    resume(isFull);
    if (!m_begin.isFull) {
        m_since = since;
    }
}

void Sweep::resume(bool isFull)
{
    const auto journal = SweepJournal::decode(m_directory.read(m_name + journalEnding));
    if (!journal || (isFull && !journal->begin.isFull) || !isBelowRoot(journal->done) ||
        // It came to its end, and was killed before it could be removed.
        (m_last && m_last->begun.msecsSinceEpoch == journal->begin.begun.msecsSinceEpoch)) {
        return;
    }
    m_begin = {journal->begin.begun, journal->begin.isFull || m_begin.isFull};
    m_journalSize = journal->size;
    m_resume = journal->done;
    m_done = journal->done;
    m_seenBefore = Places(m_resume.directories);
}

bool Sweep::isBelowRoot(const SweepJournal::Step& step) const
{
    const QByteArray root = m_roots.value(step.root);
    return !root.isEmpty() && (step.path == root || isBelow(step.path, root));
}

bool Sweep::run(Visitor& visitor)
{
    m_journal = m_directory.openForAppending(m_name + journalEnding, m_journalSize);
    if (!m_journal.isValid()) {
        tellNotKept(visitor, errno);
    }
    if (m_journalSize == 0) {
        append(SweepJournal::encode(m_begin), visitor);
    }
    m_lastKept.start();
    for (int root = m_resume.root; root < m_roots.size(); ++root) {
        if (!walk(root, visitor)) {
            return false;
        }
    }
    scanWithheld(visitor);
    m_stumblingBlock.clear();
    keepResult(visitor);
    return true;
}

bool Sweep::walk(int root, Visitor& visitor)
{
    TreeWalker walker(m_roots.at(root), m_isSkipped);
    m_isResuming = root == m_resume.root && !m_resume.path.isEmpty();
    if (m_isResuming && m_resume.isDone) {
        walker.resumeBehind(m_resume.path);
    } else if (m_isResuming) {
        walker.resumeAt(m_resume.path);
    }
    m_new.reset();
    m_step.root = root;
    while (walker.next()) {
        if (visitor.isStopped(walker)) {
            m_stumblingBlock.clear();
            keepProgress(walker, false, visitor);
            return false;
        }
        if (!visit(walker, visitor)) {
            keepProgress(walker, false, visitor);
            return false;
        }
        if (m_lastKept.hasExpired(keepEveryMs)) {
            keepProgress(walker, true, visitor);
        }
    }
    return true;
}

bool Sweep::visit(TreeWalker& walker, Visitor& visitor)
{
    if (walker.kind() == TreeWalker::Kind::Unreadable) {
        appendPlace(m_step.again, pathOf(walker));
        visitor.passed(walker);
        return true;
    }
    if (m_new && walker.depth() <= *m_new) {
        m_new.reset();
    }
    switch (walker.kind()) {
    case TreeWalker::Kind::Directory:
        enter(walker);
        return true;
    case TreeWalker::Kind::File:
        return !isDue(walker) || scan(walker, visitor);
    default:
        visitor.passed(walker);
        return true;
    }
}

void Sweep::enter(TreeWalker& walker)
{
    const Place path = comeTo(walker);
    const Place place = placeOfDirectory(path, walker.status());
    appendPlace(m_step.directories, place);
    if (!sync(walker)) {
        appendPlace(m_step.again, path);
    }
    if (!m_new && m_last && (!m_last->directories.contains(place) || m_last->again.contains(path))) {
        m_new = walker.depth();
    }
    if (m_isResuming && walker.leadsToResume() && !m_seenBefore.contains(place)) {
        // Not the directory in which the sweep was interrupted: in this one nothing is done.
        walker.restartDirectory();
    }
}

/// Has the file system at whose Directory `walker` stands note the changes from now on. False when it cannot.
///
/// Who has a file mapped and has written to a page of it goes on writing without a new change time until
/// the page is on the disk: behind the back of the scan, and no sweep would look there again.
bool Sweep::sync(const TreeWalker& walker)
{
    const dev_t device = walker.status().st_dev;
    if (!hasChangeTimes(walker) || m_synced.count(device) > 0) {
        return true;
    }
    const bool isSynced = ::syncfs(walker.directory()) == 0;
    if (isSynced) {
        m_synced.insert(device);
    }
    return isSynced;
}

bool Sweep::scan(const TreeWalker& walker, Visitor& visitor)
{
    const Place path = pathOf(walker);
    if (m_stumblingBlock.isAt(path)) {
        visitor.stumbled(walker);
        appendPlace(m_step.again, path);
        keepProgress(walker, true, visitor);
        return true;
    }
    if (!m_stumblingBlock.begin(path)) {
        tellNotKept(visitor, errno);
    }
    switch (visitor.changed(walker)) {
    case Visitor::Verdict::Stop:
        return false;
    case Visitor::Verdict::Interrupted:
        m_stumblingBlock.clear();
        return false;
    case Visitor::Verdict::Again:
        appendPlace(m_step.again, path);
        break;
    case Visitor::Verdict::Withheld:
        appendPlace(m_step.again, path);
        withhold(walker, visitor);
        break;
    default:
        break;
    }
    m_stumblingBlock.end(path);
    return true;
}

/// Notes the path of the directory on the way down, which is returned.
Place Sweep::comeTo(const TreeWalker& directory)
{
    const Place path = pathOf(directory);
    m_way.resize(directory.depth());
    m_way.push_back(path);
    return path;
}

void Sweep::withhold(const TreeWalker& walker, Visitor& visitor)
{
    // Whoever holds thousands of files does not keep the sweep from its end.
    constexpr size_t most = 64;
    const bool isRemembered = !m_isLastTime && m_withheld.size() < most && walker.depth() > 0 &&
                              walker.path().size() <= longestPathKept;
    if (isRemembered) {
        m_withheld.push_back({m_step.root, walker.path()});
    } else {
        visitor.leftWithheld(walker);
    }
}

/// What was withheld comes once more, until it is let go of or nobody waits any longer.
void Sweep::scanWithheld(Visitor& visitor)
{
    constexpr unsigned long betweenMs = 250;
    QElapsedTimer waited;
    waited.start();
    while (!m_withheld.empty()) {
        m_isLastTime = waited.hasExpired(visitor.patienceMs());
        const std::vector<Withheld> files = std::exchange(m_withheld, {});
        for (const Withheld& file : files) {
            if (!scanAgain(file, visitor)) {
                return;
            }
        }
        if (!m_withheld.empty()) {
            QThread::msleep(betweenMs);
        }
    }
}

/// False when somebody wants to end.
bool Sweep::scanAgain(const Withheld& file, Visitor& visitor)
{
    m_step.root = file.root;
    TreeWalker walker(m_roots.at(file.root), m_isSkipped);
    walker.resumeAt(file.path);
    bool isThere = walker.next();
    if (isThere && walker.kind() == TreeWalker::Kind::Directory && visitor.isStopped(walker)) {
        return false;
    }
    while (isThere && walker.kind() == TreeWalker::Kind::Directory && walker.leadsToResume()) {
        comeTo(walker);
        isThere = walker.next();
    }
    return !isThere || walker.kind() != TreeWalker::Kind::File || walker.path() != file.path ||
           scan(walker, visitor);
}

/// Those of what `walker` stands at can be relied on.
bool Sweep::hasChangeTimes(const TreeWalker& walker)
{
    return FileSystems::keepsChangeTimes(walker.fileSystem()) && !walker.isMounted() &&
           !isBelow(walker.path(), media);
}

bool Sweep::isDue(const TreeWalker& walker) const
{
    return !m_since || m_new || changeTimeMs(walker.status()) >= *m_since || !hasChangeTimes(walker) ||
           (!m_last->again.isEmpty() && m_last->again.contains(pathOf(walker)));
}

Place Sweep::pathOf(const TreeWalker& walker) const
{
    return walker.depth() == 0 ? placeOf(walker.path())
                               : placeBelow(m_way.at(walker.depth() - 1), walker.name());
}

void Sweep::keepProgress(const TreeWalker& walker, bool isDone, Visitor& visitor)
{
    m_step.path = placeToGoOn(walker.path(), m_roots.at(m_step.root));
    m_step.isDone = isDone && m_step.path.size() == walker.path().size();
    append(SweepJournal::encode(m_step), visitor);
    m_done.directories += m_step.directories;
    m_done.again += m_step.again;
    m_step.path.clear();
    m_step.directories.clear();
    m_step.again.clear();
    m_lastKept.start();
}

void Sweep::keepResult(Visitor& visitor)
{
    const SweepState state = {m_begin.begun, Places(m_done.directories + m_step.directories),
                              Places(m_done.again + m_step.again)};
    if (m_directory.replace(m_name + stateEnding, encode(state))) {
        m_directory.remove(m_name + journalEnding);
    } else {
        tellNotKept(visitor, errno);
    }
}

void Sweep::append(const QByteArray& block, Visitor& visitor)
{
    if (!StateDirectory::write(m_journal, block)) {
        tellNotKept(visitor, errno);
    }
}

void Sweep::tellNotKept(Visitor& visitor, int error)
{
    if (!m_isNotKeptTold) {
        m_isNotKeptTold = true;
        visitor.notKept(qt_error_string(error));
    }
}
