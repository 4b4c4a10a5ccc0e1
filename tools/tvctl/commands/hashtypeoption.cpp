#include "tvctl/commands/hashtypeoption.h"

CommandOption HashTypeOption::addTo(const Command& command, const char* description)
{
    std::vector<std::string> names;
    for (const IOCScanConfig::HASH_TYPE type : HashPages::types()) {
        names.push_back(HashPages::nameOf(type).toStdString());
    }
    return command.addOption("--type", m_name, description).oneOf(names);
}

std::vector<IOCScanConfig::HASH_TYPE> HashTypeOption::types() const
{
    if (!isGiven()) {
        return HashPages::types();
    }
    std::vector<IOCScanConfig::HASH_TYPE> named;
    for (const IOCScanConfig::HASH_TYPE type : HashPages::types()) {
        if (HashPages::nameOf(type).toStdString() == m_name) {
            named.push_back(type);
        }
    }
    return named;
}
