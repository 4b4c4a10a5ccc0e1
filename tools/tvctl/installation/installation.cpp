#include "tvctl/installation/installation.h"

#include "common/common.h"

#include <QDir>

Installation::Installation(const QString& root) : m_root(QDir(root).absolutePath())
{
}

Installation Installation::own()
{
    return Installation(Common::getRootPath());
}
