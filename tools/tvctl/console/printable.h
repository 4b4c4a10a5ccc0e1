#pragma once

#include <QString>

#include <functional>

/// `text` as it may be shown in a terminal or a log: on one line, and without anything that steers a terminal
/// or turns the direction of writing. Bytes that are no UTF-8 and control characters become "\xNN", what
/// reorders or hides text "\uNNNN" or "\UNNNNNNNN". A backslash stays as it is. Pure.
///
/// Names of files and signatures are other people's: an escape sequence in one could repaint the screen, a
/// line end could forge a line.
QString printable(const QString& text);

/// `text` with what `escaped` gives for each character, as a code point, that `printable` would replace.
/// Pure.
QString replaceSteering(const QString& text, const std::function<QString(uint)>& escaped);
