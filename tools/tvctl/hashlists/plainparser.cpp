#include "tvctl/hashlists/plainparser.h"

#include "tvctl/hashlists/hashlistinput.h"
#include "tvctl/hashlists/hashscanner.h"

namespace
{
/// What is known about the line so far.
struct LineState
{
    bool isComment = false;
    bool isBlank = true;
    /// A '#' or the first '/' of a comment may stand here.
    bool followsBlank = true;
    /// The letter before is a '/' that begins a comment if another follows.
    bool mayBecomeComment = false;
};

/// A letter that belongs to no word, and ends none of the comments.
void look(LineState& state, char letter)
{
    const bool isBlank = letter == ' ' || letter == '\t' || letter == '\v' || letter == '\f';
    state.isComment = (letter == '#' && state.followsBlank) || (letter == ';' && state.isBlank) ||
                      (letter == '/' && state.mayBecomeComment);
    state.mayBecomeComment = letter == '/' && state.followsBlank;
    // A comment alone leaves the line blank.
    state.isBlank = state.isBlank && (isBlank || state.isComment || state.mayBecomeComment);
    state.followsBlank = isBlank;
}
} // namespace

QString PlainParser::parse(HashListInput& input, HashListSink& sink)
{
    HashScanner scanner(sink);
    LineState state;
    qint64 line = 1;
    const auto endLine = [&] {
        if (!scanner.endLine(line) && !state.isBlank) {
            sink.reject(line, QStringLiteral("no hash in this line"));
        }
        state = LineState();
        ++line;
    };
    for (std::string_view text = input.read(); !text.empty(); text = input.read()) {
        for (std::size_t i = 0; i < text.size(); ++i) {
            const char letter = text[i];
            if (letter == '\n') {
                endLine();
            } else if (state.isComment) {
                const std::size_t end = text.find('\n', i);
                i = (end == std::string_view::npos ? text.size() : end) - 1;
            } else if (HashScanner::isWordLetter(letter)) {
                scanner.append(letter);
                state.isBlank = false;
                state.followsBlank = false;
                state.mayBecomeComment = false;
            } else {
                scanner.endWord(line);
                look(state, letter);
            }
        }
    }
    endLine();
    return {};
}
