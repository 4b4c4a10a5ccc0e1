#pragma once

#include "common/owndevices.h"

#include <QByteArray>
#include <QVector>

/// The names of the directories in the one that `directory`, any descriptor, stands for: no links to
/// directories, no hidden ones (a leading dot), in no order. Empty when the directory cannot be read. What a
/// directory says of the kinds of its entries is believed on `trusted` devices only.
QVector<QByteArray> subdirectoriesOf(int directory, const OwnDevices& trusted);
