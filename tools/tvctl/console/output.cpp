#include "tvctl/console/output.h"

#include "tvctl/console/jsontext.h"
#include "tvctl/console/printable.h"
#include "tvctl/console/toolerror.h"

#include <cstdio>
#include <cstring>

#include <unistd.h>

namespace
{
bool isTerminal(int descriptor)
{
    const char* type = ::getenv("TERM");
    return ::isatty(descriptor) == 1 && type != nullptr && std::strcmp(type, "dumb") != 0;
}

const char* sequenceOf(Output::Colour colour)
{
    switch (colour) {
    case Output::Colour::Good:
        return "32";
    case Output::Colour::Bad:
        return "1;31";
    case Output::Colour::Warning:
        return "33";
    case Output::Colour::Faint:
        return "2";
    default:
        return "1";
    }
}
} // namespace

Output::Output()
{
    const char* refusal = ::getenv("NO_COLOR");
    m_areColoursRefused = refusal != nullptr && *refusal != '\0';
    m_hasColours = isTerminal(STDOUT_FILENO) && !m_areColoursRefused;
}

void Output::forbidColours()
{
    m_areColoursRefused = true;
    m_hasColours = false;
}

bool Output::showsProgress() const
{
    return isTerminal(STDERR_FILENO);
}

void Output::line(const QString& text)
{
    if (!m_isJson) {
        raw(text.toUtf8() + '\n');
    }
}

void Output::lines(const QStringList& texts)
{
    for (const QString& text : texts) {
        line(text);
    }
}

void Output::document(const QJsonObject& object)
{
    raw(JsonText::write(QJsonDocument(object), QJsonDocument::Indented));
}

void Output::raw(const QByteArray& bytes)
{
    const auto size = static_cast<size_t>(bytes.size());
    if (std::fwrite(bytes.constData(), 1, size, stdout) != size || std::fflush(stdout) != 0) {
        throw ToolError(QStringLiteral("standard output takes no more: %1").arg(qt_error_string(errno)));
    }
}

void Output::note(const QString& text)
{
    complain(text);
}

void Output::warning(const QString& text)
{
    complain(QStringLiteral("warning: ") + text);
}

void Output::error(const QString& text)
{
    complain(text);
}

QString Output::coloured(const QString& text, Colour colour) const
{
    return m_hasColours ? QStringLiteral("\033[%1m%2\033[0m").arg(QLatin1String(sequenceOf(colour)), text)
                        : text;
}

void Output::complain(const QString& text)
{
    std::fprintf(stderr, "tvctl: %s\n", printable(text).toUtf8().constData());
}
