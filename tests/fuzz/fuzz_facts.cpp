// Short texts by which the tool knows the state of things, each of which somebody else may have written or
// named: lines of the log with names in them, names of files in the quarantine, what a file was before, heads
// of signature files.
//
// The first letter of the input chooses what the rest is read as.

#include "common/originalstate.h"
#include "fuzz/property.h"
#include "tvctl/detections/detectionid.h"
#include "tvctl/health/loadoutcome.h"
#include "tvctl/health/processstat.h"
#include "tvctl/health/signatureheader.h"
#include "tvctl/installation/updatestatus.h"
#include "tvctl/quarantine/quarantinename.h"

#include <algorithm>
#include <cstdint>

namespace
{
void checkOriginalState(const QByteArray& text)
{
    const auto state = OriginalState::fromText(text);
    require(!state || (state->toText() == text && (state->mode & ~07777U) == 0), "a state has one spelling");
}

void checkDetectionId(const QByteArray& text)
{
    const auto id = DetectionId::parse(QString::fromLatin1(text.constData(), text.size()));
    if (id) {
        const auto again = DetectionId::parse(id->text());
        require(again && again->text() == id->text() && again->number() == id->number(), "an id comes back");
        require(id->number() >= 0 && std::all_of(text.begin(), text.end(),
                                                 [](char letter) {
                                                     return letter == '-' || (letter >= '0' && letter <= '9');
                                                 }),
                "an id is of digits");
    }
}

void checkQuarantineName(const QByteArray& name)
{
    const auto parsed = QuarantineName::parse(name);
    require(!parsed || (name.size() == 56 && name.endsWith(parsed->pathDigest() + ".tvq") &&
                        parsed->pathDigest().size() == 32),
            "a copy is named after a digest");
    require(!parsed || !name.contains('/'), "a name stays in its directory");
    if (parsed) {
        const QVector<qint64> moments = parsed->moments();
        require(!moments.isEmpty() && moments.size() <= 2 && std::is_sorted(moments.begin(), moments.end()),
                "a name tells a moment");
    }
    require(!QuarantineName::isPassing(name) || (!parsed && QuarantineName::parse(name.left(56))),
            "a copy that grows is named after the copy");
}

void checkLoadOutcome(const QByteArray& line)
{
    const auto outcome = loadOutcomeOfLine(line);
    if (outcome) {
        using Result = LoadOutcome::Result;
        require(outcome->time.isValid() && outcome->result != Result::Unknown,
                "a line that tells something has a time");
        require(outcome->result == Result::Failed || (outcome->file.isEmpty() && outcome->errorCode == 0),
                "only a failure has a file and a number");
        require(outcome->errorCode >= 0 && outcome->errorCode <= 999999999, "the number of a failure is one");
    }
}

void checkProcessStat(const QByteArray& text)
{
    const auto stat = parseProcessStat(text);
    require(!stat || text.contains('(' + stat->name + ')'), "the name of a process stands in parentheses");
}

void checkSignatureHeader(const QByteArray& head)
{
    // A head is padded to its size.
    const auto header = parseSignatureHeader(head.leftJustified(SignatureHeader::size, ' '));
    require(!header || head.startsWith("ClamAV-VDB:"), "the head of a signature file says what it is");
    require(!header || header->builder.size() <= SignatureHeader::size, "a name is no longer than the head");
    if (head.size() < SignatureHeader::size) {
        require(!parseSignatureHeader(head), "a head that is cut short is none");
    }
}

void checkUpdateStatus(const QByteArray& text)
{
    const auto status = UpdateStatus::parse(text);
    require(!status || (status->tried.isValid() && !status->result.isEmpty()),
            "a status says what came of it, and when");
    require(!status ||
                (!status->result.contains(QLatin1Char('\n')) && !status->message.contains(QLatin1Char('\n'))),
            "a value is one line");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const QByteArray text(reinterpret_cast<const char*>(data + 1), static_cast<int>(size - 1));
    switch (data[0]) {
    case 'o':
        checkOriginalState(text);
        break;
    case 'i':
        checkDetectionId(text);
        break;
    case 'q':
        checkQuarantineName(text);
        break;
    case 'l':
        checkLoadOutcome(text);
        break;
    case 'p':
        checkProcessStat(text);
        break;
    case 's':
        checkSignatureHeader(text);
        break;
    case 'u':
        checkUpdateStatus(text);
        break;
    default:
        break;
    }
    return 0;
}
