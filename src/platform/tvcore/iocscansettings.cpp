#include "platform/tvcore/iocscansettings.h"

IOCScanSettings::IOCScanSettings() = default;

bool IOCScanSettings::getEnable() const
{
    return m_enable;
}

void IOCScanSettings::setEnable(bool enable)
{
    m_enable = enable;
}

int IOCScanSettings::getAction() const
{
    return m_action;
}

void IOCScanSettings::setAction(int action)
{
    m_action = action;
}
