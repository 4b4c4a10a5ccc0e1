#include "tvctl/hashlists/openiocparser.h"

#include "tvctl/hashlists/hashlistinput.h"
#include "tvctl/hashlists/hashlistsink.h"

#include <QStringList>
#include <QXmlStreamReader>

#include <algorithm>

namespace
{
/// The reader keeps what it has of an element, of a text or of a comment that has not ended.
constexpr std::size_t longestToken = 256 * 1024;
/// And the names of all elements that are open. Indicators in indicators make some ten.
constexpr int deepestElement = 100;
/// Longer contents are no hash, and nobody has to know how long.
constexpr int longestText = 512;

bool asksForHash(const QString& search, const QString& contentType)
{
    static const QStringList functions = {QStringLiteral("md5"), QStringLiteral("sha1"),
                                          QStringLiteral("sha256")};
    return functions.contains(contentType) ||
           std::any_of(functions.cbegin(), functions.cend(), [&search](const QString& function) {
               return search.endsWith(function) || search.endsWith(function + QLatin1String("sum"));
           });
}

/// The paths that lead to something smaller than a file, or to another number of the same look.
bool leadsElsewhere(const QString& search)
{
    static const QStringList parts = {QStringLiteral("section"), QStringLiteral("import"),
                                      QStringLiteral("signature"), QStringLiteral("certificate"),
                                      QStringLiteral("peinfo")};
    return std::any_of(parts.cbegin(), parts.cend(),
                       [&search](const QString& part) { return search.contains(part); });
}

/// `text` for as long as it may be one of the values that are known.
QString shortened(const QStringRef& text)
{
    return text.left(longestText).toString().trimmed().toLower();
}
} // namespace

QString OpenIocParser::parse(HashListInput& input, HashListSink& sink)
{
    QXmlStreamReader reader;
    // Paths and types are all that is looked at, and prefixes without a declaration do occur.
    reader.setNamespaceProcessing(false);
    std::size_t tokenSize = 0;
    QString problem;
    while (problem.isEmpty() && !reader.atEnd()) {
        if (reader.readNext() != QXmlStreamReader::Invalid) {
            tokenSize = 0;
            problem = take(reader, sink);
            continue;
        }
        if (reader.error() != QXmlStreamReader::PrematureEndOfDocumentError) {
            problem = reader.errorString();
            continue;
        }
        const std::string_view text = input.read();
        tokenSize += text.size();
        if (text.empty()) {
            problem = QStringLiteral("it ends too early");
        } else if (tokenSize > longestToken) {
            problem = QStringLiteral("an element or a text is too long");
        } else {
            // As text, so that an encoding that the list declares, and no longer has, is not applied again.
            // A character beyond ASCII that a piece tears apart is part of nothing that is looked at.
            reader.addData(QString::fromUtf8(text.data(), static_cast<int>(text.size())));
        }
    }
    return problem.isEmpty() ? problem : QStringLiteral("line %1: %2").arg(reader.lineNumber()).arg(problem);
}

QString OpenIocParser::take(const QXmlStreamReader& reader, HashListSink& sink)
{
    switch (reader.tokenType()) {
    case QXmlStreamReader::DTD:
        return QStringLiteral("document type declarations are not read");
    case QXmlStreamReader::StartElement:
        if (++m_depth > deepestElement) {
            return QStringLiteral("it is nested too deep");
        }
        beginElement(reader);
        break;
    case QXmlStreamReader::EndElement:
        --m_depth;
        endElement(reader, sink);
        break;
    case QXmlStreamReader::Characters:
        if (m_item.isInContent && m_item.content.size() < longestText) {
            m_item.content += reader.text().left(longestText);
        }
        break;
    default:
        break;
    }
    return {};
}

void OpenIocParser::beginElement(const QXmlStreamReader& reader)
{
    const QXmlStreamAttributes attributes = reader.attributes();
    const auto attribute = [&attributes](const char* name) {
        return shortened(attributes.value(QLatin1String(name)));
    };
    if (reader.name() == QLatin1String("IndicatorItem")) {
        m_item = Item();
        m_item.isOpen = true;
        m_item.line = reader.lineNumber();
        m_item.condition = attribute("condition");
        m_item.isNegated =
            attribute("negate") == QLatin1String("true") || attribute("negate") == QLatin1String("1");
    } else if (m_item.isOpen && reader.name() == QLatin1String("Context")) {
        m_item.search = attribute("search");
    } else if (m_item.isOpen && reader.name() == QLatin1String("Content")) {
        m_item.isInContent = true;
        m_item.contentType = attribute("type");
        m_item.line = reader.lineNumber();
    }
}

void OpenIocParser::endElement(const QXmlStreamReader& reader, HashListSink& sink)
{
    if (reader.name() == QLatin1String("Content")) {
        m_item.isInContent = false;
    } else if (m_item.isOpen && reader.name() == QLatin1String("IndicatorItem")) {
        judgeItem(sink);
        m_item = Item();
    }
}

void OpenIocParser::judgeItem(HashListSink& sink) const
{
    if (!asksForHash(m_item.search, m_item.contentType)) {
        return;
    }
    if (leadsElsewhere(m_item.search)) {
        sink.reject(m_item.line, QStringLiteral("the hash of a part of a file"));
    } else if (m_item.isNegated) {
        sink.reject(m_item.line, QStringLiteral("the item is negated"));
    } else if (m_item.condition != QLatin1String("is")) {
        sink.reject(m_item.line, QStringLiteral("the condition is not \"is\""));
    } else {
        sink.offer(m_item.content.toStdString(), m_item.line);
    }
}
