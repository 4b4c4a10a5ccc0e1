#include "tvctl/hashlists/hashcollector.h"

#include "tvctl/hashlists/harmlesshashes.h"

#include <utility>

HashCollector::HashCollector(Flush flush, int piece, std::size_t mostRemembered)
    : m_flush(std::move(flush)),
      m_piece(piece),
      m_remembered(mostRemembered)
{
}

void HashCollector::accept(const HashIndicator& indicator)
{
    const QString harmless = harmlessContentOf(indicator.type, indicator.digits);
    if (!harmless.isEmpty()) {
        ++m_counts.harmless;
        note(indicator.line, QStringLiteral("the hash of %1").arg(harmless));
        return;
    }
    if (m_remembered.insert(indicator.digits) == DigestSet::Answer::Known) {
        ++m_counts.duplicates;
        return;
    }
    const auto type = static_cast<std::size_t>(indicator.type);
    ++m_counts.accepted[type];
    m_kept[type].append(
        QString::fromLatin1(indicator.digits.data(), static_cast<int>(indicator.digits.size())));
    if (m_kept[type].size() >= m_piece) {
        handOn(indicator.type);
    }
}

void HashCollector::reject(qint64 line, const QString& reason)
{
    ++m_counts.rejected;
    note(line, reason);
}

bool HashCollector::finish()
{
    for (const auto type : {IOCScanConfig::MD5, IOCScanConfig::SHA1, IOCScanConfig::SHA256}) {
        handOn(type);
    }
    return !m_hasFailed;
}

void HashCollector::beginList()
{
    m_counts = Counts();
    m_rejections.clear();
}

void HashCollector::note(qint64 line, const QString& reason)
{
    if (m_rejections.size() < mostRejections) {
        m_rejections.append({line, reason});
    }
}

void HashCollector::handOn(IOCScanConfig::HASH_TYPE type)
{
    const QStringList hashes = std::exchange(m_kept[static_cast<std::size_t>(type)], QStringList());
    if (!hashes.isEmpty() && !m_hasFailed) {
        m_hasFailed = !m_flush(type, hashes);
    }
}
