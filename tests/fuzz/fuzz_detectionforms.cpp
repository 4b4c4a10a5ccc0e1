// Detections in the forms in which they are given to other programs: each can be read back by the rules of
// its form, the exact bytes of the path come with it, and nothing in it is a line, a formula or an escape
// sequence of an attacker's.
//
// The input is a path, names of file, virus, module and version, the status, and the time.

#include "common/filename.h"
#include "fuzz/pieces.h"
#include "fuzz/property.h"
#include "tvctl/detections/detectionforms.h"

#include <QJsonDocument>
#include <QTextCodec>
#include <QVector>

namespace
{
constexpr int csvFields = 10;
enum Field
{
    VirusField = 4,
    PathField = 5,
    BytesField = 6,
    NameField = 7,
    ModuleField = 8,
    VersionField = 9
};

QString textOf(const QByteArray& bytes)
{
    return FileName::toText(bytes);
}

/// Strictly by RFC 4180.
QVector<QString> csvRow(const QByteArray& line)
{
    require(line.endsWith("\r\n") && line.count('\n') == 1 && line.count('\r') == 1, "a row is one line");
    const QString text = QString::fromUtf8(line.chopped(2));
    QVector<QString> fields = {QString()};
    bool isQuoted = false;
    for (int i = 0; i < text.size(); ++i) {
        const QChar letter = text.at(i);
        if (letter == QLatin1Char('"')) {
            if (isQuoted && i + 1 < text.size() && text.at(i + 1) == letter) {
                fields.last() += letter;
                ++i;
                continue;
            }
            const bool isAtEdge = isQuoted ? i + 1 == text.size() || text.at(i + 1) == QLatin1Char(',')
                                           : i == 0 || text.at(i - 1) == QLatin1Char(',');
            require(isAtEdge, "quotes stand around a whole field");
            isQuoted = !isQuoted;
        } else if (letter == QLatin1Char(',') && !isQuoted) {
            fields.append(QString());
        } else {
            fields.last() += letter;
        }
    }
    require(!isQuoted, "quotes are closed");
    return fields;
}

/// Whether a spreadsheet that begins a cell here runs what stands in it.
bool isFormula(const QString& cell)
{
    for (const QChar letter : cell) {
        if (!letter.isSpace() && letter != QLatin1Char('"')) {
            return QStringLiteral("=+-@\uFF1D\uFF0B\uFF0D\uFF20").contains(letter);
        }
    }
    return false;
}

void checkHarmless(const QByteArray& line)
{
    QTextCodec::ConverterState state;
    const QString text = QTextCodec::codecForName("UTF-8")->toUnicode(line.constData(), line.size(), &state);
    require(state.invalidChars == 0 && state.remainingChars == 0, "a line is UTF-8");
    for (const uint codePoint : text.toUcs4()) {
        const auto category = QChar::category(codePoint);
        require(category != QChar::Other_Format && category != QChar::Separator_Line &&
                    category != QChar::Separator_Paragraph,
                "nothing turns or hides text");
        require(category != QChar::Other_Control || codePoint == '\n' || codePoint == '\r',
                "nothing steers a terminal");
    }
}

void checkCsv(const VirusReport& report)
{
    const QByteArray line = DetectionForms::csv(report);
    checkHarmless(line);
    const QVector<QString> row = csvRow(line);
    require(row.size() == csvFields, "a row has a field for each name");
    for (const int field : {VirusField, PathField, NameField, ModuleField, VersionField}) {
        const QString& cell = row.at(field);
        require(!isFormula(cell), "no cell is a formula");
        for (int i = cell.indexOf(QLatin1Char(';')); i >= 0; i = cell.indexOf(QLatin1Char(';'), i + 1)) {
            require(!isFormula(cell.mid(i + 1)), "no part of a cell is a formula");
        }
    }
    const QByteArray bytes = QByteArray::fromBase64(row.at(BytesField).toLatin1());
    require((bytes.isEmpty() ? row.at(PathField).toUtf8() : bytes) == FileName::toBytes(report.getFilePath()),
            "the path comes back to the byte");
}

QJsonObject readBack(const QByteArray& line)
{
    checkHarmless(line);
    require(line.endsWith('\n') && line.count('\n') == 1 && !line.contains('\r'), "an object is one line");
    const QJsonDocument document = QJsonDocument::fromJson(line);
    require(document.isObject(), "a line is a JSON object");
    return document.object();
}

void checkJson(const VirusReport& report)
{
    const QJsonObject object = DetectionForms::json(report);
    const QJsonObject read = readBack(DetectionForms::line(object));
    require(read == object, "what is written can be read");
    for (const auto& [key, value] :
         {std::pair("path", report.getFilePath()), std::pair("file_name", report.getFileName())}) {
        const QString shown = read.value(QLatin1String(key)).toString();
        const QJsonValue exact = read.value(QLatin1String(key) + QLatin1String("_base64"));
        const QByteArray bytes =
            exact.isUndefined() ? shown.toUtf8() : QByteArray::fromBase64(exact.toString().toLatin1());
        require(bytes == FileName::toBytes(value), "a name comes back to the byte");
    }
}

void checkEcs(const VirusReport& report)
{
    constexpr int longestJournalLine = 48 * 1024;
    const QJsonObject object = DetectionForms::ecs(report, {QStringLiteral("host"), QStringLiteral("ab12")});
    const QByteArray line = DetectionForms::line(object);
    require(readBack(line) == object, "what is written can be read");
    require(line.size() < longestJournalLine, "an event is one line of the journal");
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Pieces pieces(data, size);
    // No name holds a zero byte, and the service's are no longer than this.
    constexpr int longestPath = 4096;
    constexpr int longestName = 255;
    const auto next = [&pieces](int longest) {
        return textOf(pieces.next().replace('\0', "").left(longest));
    };
    VirusReport report;
    report.setFilePath(next(longestPath));
    report.setFileName(next(longestName));
    report.setVirusName(next(longestPath));
    report.setModuleName(next(longestName));
    report.setModuleVersion(next(longestName));
    report.setCleanStatus(static_cast<int>(pieces.nextNumber()));
    if (!pieces.isAtEnd()) {
        report.setDateTime(QDateTime::fromMSecsSinceEpoch(pieces.nextNumber(), Qt::UTC));
    }
    checkCsv(report);
    checkJson(report);
    checkEcs(report);
    return 0;
}
