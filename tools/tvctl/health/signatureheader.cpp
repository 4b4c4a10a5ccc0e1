#include "tvctl/health/signatureheader.h"

#include <QList>
#include <QRegularExpression>
#include <QStringList>

namespace
{
enum Field
{
    MagicField,
    BuiltField,
    VersionField,
    SignaturesField,
    LevelField,
    BuilderField = 7,
    LeastFields = 8
};

QDateTime parseBuilt(const QString& text)
{
    static const QRegularExpression pattern(QStringLiteral(
        "^([0-9]{1,2}) ([A-Z][a-z]{2}) ([0-9]{4}) ([0-9]{2})-([0-9]{2}) ([+-])([0-9]{2})([0-9]{2})$"));
    static const QStringList months = {QStringLiteral("Jan"), QStringLiteral("Feb"), QStringLiteral("Mar"),
                                       QStringLiteral("Apr"), QStringLiteral("May"), QStringLiteral("Jun"),
                                       QStringLiteral("Jul"), QStringLiteral("Aug"), QStringLiteral("Sep"),
                                       QStringLiteral("Oct"), QStringLiteral("Nov"), QStringLiteral("Dec")};
    const QRegularExpressionMatch match = pattern.match(text);
    const auto number = [&match](int group) {
        return match.captured(group).toInt();
    };
    const QDate date(number(3), months.indexOf(match.captured(2)) + 1, number(1));
    const QTime time(number(4), number(5));
    if (!match.hasMatch() || !date.isValid() || !time.isValid()) {
        return {};
    }
    const int offset = (number(7) * 60 + number(8)) * 60;
    return {date, time, Qt::OffsetFromUTC, match.captured(6) == QLatin1String("-") ? -offset : offset};
}
} // namespace

std::optional<SignatureHeader> parseSignatureHeader(const QByteArray& head)
{
    const QList<QByteArray> fields = head.left(SignatureHeader::size).split(':');
    if (head.size() < SignatureHeader::size || fields.size() < LeastFields ||
        fields.at(MagicField) != "ClamAV-VDB") {
        return std::nullopt;
    }
    SignatureHeader header;
    bool isVersion = false;
    bool isCount = false;
    bool isLevel = false;
    header.built = parseBuilt(QString::fromLatin1(fields.at(BuiltField)));
    header.version = fields.at(VersionField).toUInt(&isVersion);
    header.signatures = fields.at(SignaturesField).toUInt(&isCount);
    header.functionalityLevel = fields.at(LevelField).toUInt(&isLevel);
    header.builder = QString::fromUtf8(fields.at(BuilderField).trimmed());
    return isVersion && isCount && isLevel ? std::make_optional(header) : std::nullopt;
}
