#pragma once

#include <QString>

/// A popup shows no more characters than these; what is longer is cut and ends in an ellipsis.
constexpr int maximumPopupBody = 2000;
constexpr int maximumPopupTitle = 200;

/// `message` as a notification's body.
///
/// `<br/>` becomes a line break. `<b>` and the next `</b>` of the same line make bold. Everything else is
/// text: names chosen by an attacker stand in the message, so a tag without its partner, any other tag and
/// every entity show as they are written. The first slash that belongs to no tag begins a path: from there to
/// the end of the message everything is text, since names of directories can put any tag together. The result
/// is well-formed markup, whatever the message is.
QString popupMarkup(const QString& message);

/// `text` on one line, without markup: for a title or a name.
///
/// Here as in a body, a control character becomes its picture (a raw line break in a file name would fake a
/// line of the message), and what a bus refuses or what turns the reading direction becomes U+FFFD.
QString popupText(const QString& text);
