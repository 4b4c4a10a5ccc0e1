#pragma once

#include <QByteArray>
#include <QVector>

/// The names of the directories in the one that `directory`, any descriptor, stands for: no links to
/// directories, no hidden ones (a leading dot), in no order. Empty when the directory cannot be read.
QVector<QByteArray> subdirectoriesOf(int directory);
