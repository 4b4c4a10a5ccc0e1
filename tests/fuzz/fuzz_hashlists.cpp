// Lists of hashes of strangers, in each format that can be imported: what is taken are hashes that the list
// holds, each in the form in which the store keeps it, in memory and time that the size of the list bounds;
// and no line hides another.
//
// The first letter of the input chooses the format, the second the name of the list; the rest is the list.

#include "fuzz/heappeak.h"
#include "fuzz/property.h"
#include "tvctl/hashlists/harmlesshashes.h"
#include "tvctl/hashlists/hashcollector.h"
#include "tvctl/hashlists/hashlistimport.h"

#include <QBuffer>
#include <QSet>

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace
{
constexpr std::array<std::optional<HashListFormat>, 9> listFormats = {
    HashListFormat::Plain, HashListFormat::Csv,     HashListFormat::Loki,
    HashListFormat::Hdb,   HashListFormat::Cdb,     HashListFormat::Misp,
    HashListFormat::Stix,  HashListFormat::OpenIoc, std::nullopt};
constexpr std::array<const char*, 9> listNames = {"list", "a.csv", "hash-iocs.txt", "a.hsb", "a.cdb",
                                                  "misp", "stix",  "a.ioc",         "a.fp"};
constexpr int collectorPiece = 3;
constexpr int collectorMemory = 5;

/// Checks what is handed over, and hands it on to a collector.
class CheckingSink : public HashListSink
{
public:
    explicit CheckingSink(const QByteArray& list)
        : m_lines(1 + list.count('\n') + list.count('\r')),
          m_text(list.toLower()),
          // Where a hash may be written in other letters than its own: in escape sequences, in two bytes
          // each, or with a comment in it.
          m_isPlain(!list.contains('\\') && !list.contains('&') && !list.contains('<') &&
                    !list.contains('\0')),
          m_collector(
              [this](IOCScanConfig::HASH_TYPE, const QStringList& hashes) {
                  m_handedOn += hashes;
                  return true;
              },
              collectorPiece, collectorMemory)
    {
    }

    void accept(const HashIndicator& indicator) override
    {
        constexpr std::array<std::size_t, 3> lengths = {32, 40, 64};
        require(indicator.digits.size() == lengths.at(indicator.type), "a hash has the length of its type");
        require(indicator.digits.find_first_not_of("0123456789abcdef") == std::string_view::npos,
                "a hash has digits in lower case");
        checkLine(indicator.line);
        const QByteArray digits(indicator.digits.data(), static_cast<int>(indicator.digits.size()));
        require(!m_isPlain || m_text.contains(digits), "a hash stands in the list");
        ++m_accepted;
        if (m_first.size() < collectorMemory &&
            harmlessContentOf(indicator.type, indicator.digits).isEmpty()) {
            m_first.insert(QString::fromLatin1(digits));
        }
        m_hasSentinel = digits == sentinel();
        m_collector.accept(indicator);
    }

    void reject(qint64 line, const QString& reason) override
    {
        checkLine(line);
        require(!reason.isEmpty() && reason.size() < 200, "a rejection has a short reason");
        ++m_rejected;
        m_collector.reject(line, reason);
    }

    void checkSums()
    {
        require(m_accepted + m_rejected <= 2 * m_text.size() + 2, "a list names no more than it has letters");
        require(m_collector.finish(), "everything can be handed on");
        const HashCollector::Counts& counts = m_collector.counts();
        const qint64 taken = counts.accepted[0] + counts.accepted[1] + counts.accepted[2];
        require(taken == m_handedOn.size(), "what counts as accepted is handed on");
        require(taken + counts.duplicates + counts.harmless == m_accepted, "each hash is counted once");
        require(counts.rejected == m_rejected, "each rejection is counted");
        for (const QString& hash : qAsConst(m_first)) {
            require(m_handedOn.count(hash) == 1, "a hash that is remembered is handed on once");
        }
    }

    /// Whether what came last is the hash that was put behind the list.
    bool endsWithSentinel() const
    {
        return m_hasSentinel;
    }

    static QByteArray sentinel()
    {
        return "5ea15ea15ea15ea15ea15ea15ea15ea1";
    }

private:
    void checkLine(qint64 line) const
    {
        require(line >= 1 && line <= m_lines, "a line is one of the list");
    }

    const qint64 m_lines;
    const QByteArray m_text;
    const bool m_isPlain;
    HashCollector m_collector;
    QStringList m_handedOn;
    QSet<QString> m_first;
    qint64 m_accepted = 0;
    qint64 m_rejected = 0;
    bool m_hasSentinel = false;
};

HashListResult read(QByteArray list, const QString& name, const HashListOptions& options, HashListSink& sink)
{
    QBuffer device(&list);
    device.open(QIODevice::ReadOnly);
    const HeapPeak heap;
    const HashListResult result = readHashList(device, name, options, sink);
    // A piece of the list, as bytes and as text, and what is made of it.
    constexpr std::size_t always = 320 * 1024;
    require(heap.growth() < always + 32 * static_cast<std::size_t>(list.size()), "memory is bounded");
    return result;
}

/// In these formats a line stands for itself, so that a list cannot keep the next line from being read.
bool isOfLines(const HashListOptions& options, const QByteArray& list)
{
    const auto format = options.format;
    const bool mayBeWide = list.startsWith("\xff\xfe") || list.startsWith("\xfe\xff");
    return !list.contains('\0') && !mayBeWide &&
           (format == HashListFormat::Plain || format == HashListFormat::Loki ||
            format == HashListFormat::Hdb || format == HashListFormat::Cdb);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2) {
        return 0;
    }
    HashListOptions options;
    options.format = listFormats.at((data[0] - '0') % listFormats.size());
    options.misp = data[1] >= 'A' ? MispParser::Take::Everything : MispParser::Take::ForDetection;
    const QString name = QLatin1String(listNames.at((data[1] - '0') % listNames.size()));
    const QByteArray list(reinterpret_cast<const char*>(data + 2), static_cast<int>(size - 2));

    CheckingSink sink(list);
    const HashListResult result = read(list, name, options, sink);
    sink.checkSums();
    require(!result.isCancelled, "nobody has ended the reading");
    require(result.format.has_value() || !result.error.isEmpty(),
            "a list without a format has a reason for it");

    if (isOfLines(options, list)) {
        const QByteArray extended = list + '\n' + CheckingSink::sentinel() + ":1:x\n";
        CheckingSink extendedSink(extended);
        // A colon ends the hash in some of the formats, and no word of it in the others.
        if (options.format == HashListFormat::Loki) {
            read(list + '\n' + CheckingSink::sentinel() + ";\n", name, options, extendedSink);
        } else {
            read(extended, name, options, extendedSink);
        }
        require(extendedSink.endsWithSentinel(), "a line is read whatever stands in the lines before it");
    }
    return 0;
}
