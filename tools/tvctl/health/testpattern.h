#pragma once

#include <QByteArray>

/// The text that every engine reports and that harms nobody (EICAR). Put together when it is asked for, so
/// that no scanner takes this program for it. Pure.
QByteArray testPattern();
