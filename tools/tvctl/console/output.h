#pragma once

#include <QJsonObject>
#include <QString>
#include <QStringList>

/// Where a command puts what it has to say.
///
/// Text goes to standard output line by line; with `--json` there is instead exactly one JSON document, and
/// `line` is not printed. Notes and warnings go to standard error in both cases. What standard output does
/// not take (a full disk, a closed pipe) ends the command with a ToolError.
class Output
{
public:
    enum class Colour
    {
        Good,
        Bad,
        Warning,
        Faint,
        Bold
    };

    Output();

    void setJson(bool isJson)
    {
        m_isJson = isJson;
    }
    bool isJson() const
    {
        return m_isJson;
    }
    /// Colours are used only where standard output is a terminal that has them and NO_COLOR is not set.
    void forbidColours();
    /// Whether standard error shows what is going on to somebody.
    bool showsProgress() const;
    /// Whether that may be coloured: as for standard output.
    bool hasProgressColours() const
    {
        return showsProgress() && !m_areColoursRefused;
    }

    /// Prints `text`, which is printable already.
    void line(const QString& text);
    void lines(const QStringList& texts);
    /// Prints the one document.
    void document(const QJsonObject& object);
    /// Prints `bytes` as they are, whatever the form of the output, and hands them on at once.
    void raw(const QByteArray& bytes);

    /// One line each on standard error, without control characters.
    void note(const QString& text);
    void warning(const QString& text);
    void error(const QString& text);

    /// `text` in a colour, where there are any.
    QString coloured(const QString& text, Colour colour) const;

private:
    void complain(const QString& text);

    bool m_isJson = false;
    bool m_areColoursRefused = false;
    bool m_hasColours = false;
};
