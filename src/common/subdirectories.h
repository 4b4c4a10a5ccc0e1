#pragma once

#include <QByteArray>
#include <QVector>

/// The names of the directories in the one that `directory`, any descriptor, stands for: no links to
/// directories, no hidden ones (a leading dot), in no order. Empty when the directory cannot be read. What it
/// says of the kinds of its entries is believed when they are `trusted`: on an own device, see OwnDevices.
///
/// It is opened anew: some file systems list what was there when the directory was opened.
QVector<QByteArray> subdirectoriesOf(int directory, bool trusted);
