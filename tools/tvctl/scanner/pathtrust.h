#pragma once

#include <QByteArray>
#include <QString>

/// Why somebody else could have `path`, an absolute one, lead to another object at any moment; empty when
/// only root and whoever runs this could.
///
/// Each directory on the way has to be one itself and no link, to be owned by root or by the caller, and not
/// to be writable by others; a sticky one is, since its rule protects only what is there already.
QString distrustOf(const QByteArray& path);
