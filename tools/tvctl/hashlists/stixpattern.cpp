#include "tvctl/hashlists/stixpattern.h"

#include "tvctl/hashlists/hashlabel.h"

#include <algorithm>
#include <string>
#include <vector>

namespace
{
struct Token
{
    enum Kind
    {
        End,
        /// A keyword, a number or an object path.
        Word,
        /// What stood in quotes.
        Literal,
        Symbol
    };

    Kind kind = End;
    std::string text;
};

std::string inLowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return text;
}

/// Cuts a pattern into tokens.
class Tokens
{
public:
    explicit Tokens(std::string_view pattern) : m_rest(pattern)
    {
    }

    Token next()
    {
        m_rest.remove_prefix(std::min(m_rest.find_first_not_of(" \t\n\r"), m_rest.size()));
        if (m_rest.empty()) {
            return {};
        }
        if (m_rest.front() == '\'' || m_rest.front() == '"') {
            return {Token::Literal, quoted()};
        }
        if (isWordLetter(m_rest.front())) {
            return {Token::Word, inLowerCase(word())};
        }
        const std::size_t size = isOneOf(m_rest.substr(0, 2), {"!=", "==", "<>", "<=", ">="}) ? 2 : 1;
        Token token = {Token::Symbol, std::string(m_rest.substr(0, size))};
        m_rest.remove_prefix(size);
        return token;
    }

private:
    static bool isOneOf(std::string_view text, std::initializer_list<std::string_view> choices)
    {
        return std::find(choices.begin(), choices.end(), text) != choices.end();
    }

    static bool isWordLetter(char letter)
    {
        return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z') ||
               (letter >= '0' && letter <= '9') || letter == '_' || letter == ':' || letter == '.' ||
               letter == '-' || letter == '*';
    }

    /// A path holds names in quotes (`hashes.'SHA-256'`) and indices (`sections[*]`).
    std::string word()
    {
        std::string word;
        bool isPath = false;
        bool isIndex = false;
        char last = '\0';
        while (!m_rest.empty()) {
            const char letter = m_rest.front();
            if (isWordLetter(letter) || (isPath && letter == '[') || (isIndex && letter == ']')) {
                isPath = isPath || letter == ':';
                isIndex = letter == '[' || (isIndex && letter != ']');
                last = letter;
                append(word, letter);
                m_rest.remove_prefix(1);
            } else if (isPath && (letter == '\'' || letter == '"') && (last == '.' || last == ':')) {
                last = letter;
                for (const char quotedLetter : quoted()) {
                    append(word, quotedLetter);
                }
            } else {
                break;
            }
        }
        return word;
    }

    std::string quoted()
    {
        const char quote = m_rest.front();
        std::string text;
        std::size_t i = 1;
        for (; i < m_rest.size() && m_rest[i] != quote; ++i) {
            i += m_rest[i] == '\\' && i + 1 < m_rest.size() ? 1 : 0;
            append(text, m_rest[i]);
        }
        m_rest.remove_prefix(std::min(i + 1, m_rest.size()));
        return text;
    }

    /// No path to a hash, and no hash, is longer. A path is looked at again for each of its values.
    static void append(std::string& text, char letter)
    {
        constexpr std::size_t longest = 256;
        if (text.size() < longest) {
            text += letter;
        }
    }

    std::string_view m_rest;
};

/// Follows the comparisons of a pattern.
class Comparisons
{
public:
    Comparisons(qint64 line, HashListSink& sink) : m_line(line), m_sink(sink)
    {
    }

    void take(const Token& token)
    {
        if (token.kind == Token::Word) {
            takeWord(token.text);
        } else if (token.kind == Token::Symbol) {
            takeSymbol(token.text);
        } else {
            takeLiteral(token.text);
        }
    }

private:
    void takeWord(const std::string& word)
    {
        if (word == "not") {
            m_isNegated = !m_isNegated;
        } else if (word == "and" || word == "or" || word == "followedby") {
            endComparison();
        } else if (word.find(':') != std::string::npos) {
            m_path = word;
        } else {
            m_operator = word;
        }
    }

    void takeSymbol(const std::string& symbol)
    {
        if (symbol == "(" && m_path.empty()) {
            m_groups.push_back(m_isNegated != isInNegatedGroup());
            m_isNegated = false;
        } else if (symbol == ")") {
            // The one that ends the values of IN ends the comparison as well.
            if (m_path.empty() || m_operator != "in") {
                if (!m_groups.empty()) {
                    m_groups.pop_back();
                }
            }
            endComparison();
        } else if (symbol == "[" || symbol == "]") {
            endComparison();
        } else if (symbol != "(" && symbol != ",") {
            m_operator = symbol;
        }
    }

    void takeLiteral(const std::string& literal)
    {
        constexpr std::string_view fileHashes = "file:hashes";
        const bool isOfFile =
            m_path.compare(0, fileHashes.size(), fileHashes) == 0 && m_path.size() > fileHashes.size() + 1;
        if (!isOfFile) {
            if (m_path.find("hashes.") != std::string::npos) {
                m_sink.reject(m_line, QStringLiteral("the hash of something else than a file"));
            }
            return;
        }
        const std::string function = m_path.substr(fileHashes.size() + 1);
        if (hashLabelOf(function) != HashLabel::FileHash) {
            m_sink.rejectKind(function, m_line);
        } else if (m_operator == "!=" || m_operator == "<>" || m_isNegated != isInNegatedGroup()) {
            m_sink.reject(m_line, QStringLiteral("the comparison is negated"));
        } else if (m_operator != "=" && m_operator != "==" && m_operator != "in") {
            m_sink.reject(m_line, QStringLiteral("the comparison is neither = nor IN"));
        } else {
            m_sink.offer(literal, m_line);
        }
    }

    void endComparison()
    {
        m_path.clear();
        m_operator.clear();
        m_isNegated = false;
    }

    bool isInNegatedGroup() const
    {
        return !m_groups.empty() && m_groups.back();
    }

    const qint64 m_line;
    HashListSink& m_sink;
    std::string m_path;
    std::string m_operator;
    bool m_isNegated = false;
    /// For each parenthesis that is open, whether what is in it is negated.
    std::vector<bool> m_groups;
};
} // namespace

void readStixPattern(std::string_view pattern, qint64 line, HashListSink& sink)
{
    Tokens tokens(pattern);
    Comparisons comparisons(line, sink);
    for (Token token = tokens.next(); token.kind != Token::End; token = tokens.next()) {
        comparisons.take(token);
    }
}
