#pragma once

#include <QByteArray>
#include <QVector>

/// The names of the directories in the directory `path`: no links to directories, no hidden ones (a leading
/// dot), in no order. Empty when the directory cannot be read.
QVector<QByteArray> subdirectoriesOf(const QByteArray& path);
