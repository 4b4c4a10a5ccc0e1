#include "tvctl/quarantine/quarantineorigins.h"

#include "common/filename.h"
#include "platform/tvcore/virusconfig.h"
#include "tvctl/quarantine/quarantinename.h"

#include <QCryptographicHash>
#include <QRegularExpression>

#include <algorithm>
#include <tuple>

namespace
{
constexpr int reportOnly = -1;
constexpr int allowedByTheUser = -2;
constexpr qint64 millisecondsOfASecond = 1000;

QByteArray digestOf(const QByteArray& path)
{
    return QCryptographicHash::hash(path, QCryptographicHash::Md5).toHex();
}

/// The paths that `recorded` may stand for: itself, and with each "\xNN", as records show bytes that are no
/// UTF-8, turned into that byte.
QVector<QByteArray> pathsOf(const QString& recorded)
{
    static const QRegularExpression shownByte(QStringLiteral("\\\\x([89a-f][0-9a-f])"));
    QVector<QByteArray> paths = {FileName::toBytes(recorded)};
    QByteArray decoded;
    int end = 0;
    auto matches = shownByte.globalMatch(recorded);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        decoded += FileName::toBytes(recorded.mid(end, match.capturedStart() - end));
        decoded += static_cast<char>(match.capturedRef(1).toInt(nullptr, 16));
        end = match.capturedEnd();
    }
    if (end > 0) {
        paths.append(decoded + FileName::toBytes(recorded.mid(end)));
    }
    return paths;
}
} // namespace

QuarantineOrigins::QuarantineOrigins(const QVector<QuarantineEntry>& entries)
{
    for (const QuarantineEntry& entry : entries) {
        m_origins.insert(entry.pathDigest, Origin());
    }
}

bool QuarantineOrigins::readRecords(int pieceSize)
{
    const VirusConfig config;
    QVector<VirusReport> reports;
    qint64 last = 0;
    do {
        if (!config.getVirusReports({}, {}, reports, last, pieceSize)) {
            return false;
        }
        for (const VirusReport& report : qAsConst(reports)) {
            addRecord(report);
            last = report.getId();
        }
    } while (reports.size() == pieceSize);
    return true;
}

void QuarantineOrigins::addRecord(const VirusReport& report)
{
    for (const QByteArray& path : pathsOf(report.getFilePath())) {
        const auto origin = m_origins.find(digestOf(path));
        if (origin == m_origins.end()) {
            continue;
        }
        const QByteArray sharedPath = *m_paths.insert(path);
        if (origin->recordedPath.isNull()) {
            origin->recordedPath = sharedPath;
        }
        origin->isAmbiguous = origin->isAmbiguous || origin->recordedPath != sharedPath;
        // Of what was left in its place there is no copy.
        const bool wasLeft =
            report.getCleanStatus() == reportOnly || report.getCleanStatus() == allowedByTheUser;
        if (!wasLeft && report.getDateTime().isValid()) {
            origin->records.append({report.getDateTime().toMSecsSinceEpoch(), report.getId(), sharedPath,
                                    *m_virusNames.insert(report.getVirusName())});
            origin->isSorted = false;
        }
    }
}

void QuarantineOrigins::addCandidate(const QByteArray& path)
{
    const auto origin = m_origins.find(digestOf(path));
    if (origin != m_origins.end()) {
        origin->candidate = path;
    }
}

void QuarantineOrigins::identify(QVector<QuarantineEntry>& entries)
{
    for (QuarantineEntry& entry : entries) {
        identify(entry);
    }
}

void QuarantineOrigins::identify(QuarantineEntry& entry)
{
    const auto origin = m_origins.find(entry.pathDigest);
    const auto name = QuarantineName::parse(entry.name);
    if (origin == m_origins.end() || !name) {
        return;
    }
    if (!origin->isSorted) {
        std::sort(origin->records.begin(), origin->records.end(),
                  [](const Record& left, const Record& right) {
                      return std::tie(left.time, left.id) < std::tie(right.time, right.id);
                  });
        origin->isSorted = true;
    }
    const Record* found = nullptr;
    for (const qint64 moment : name->moments()) {
        // Clocks are put back by more than the tolerance: of two moments only one can have a record.
        if (const Record* record = recordAfter(*origin, moment)) {
            found = record;
            entry.time = QDateTime::fromSecsSinceEpoch(moment);
        }
    }
    if (found != nullptr) {
        entry.originalPath = found->path;
        entry.virusName = found->virusName;
        entry.recordId = found->id;
    } else if (!origin->candidate.isEmpty()) {
        entry.originalPath = origin->candidate;
    } else if (!origin->isAmbiguous) {
        entry.originalPath = origin->recordedPath;
    }
}

const QuarantineOrigins::Record* QuarantineOrigins::recordAfter(const Origin& origin, qint64 moment)
{
    const qint64 earliest = moment * millisecondsOfASecond;
    const qint64 latest = (moment + tolerance) * millisecondsOfASecond;
    const auto record =
        std::lower_bound(origin.records.cbegin(), origin.records.cend(), earliest,
                         [](const Record& candidate, qint64 time) { return candidate.time < time; });
    return record == origin.records.cend() || record->time > latest ? nullptr : &*record;
}
