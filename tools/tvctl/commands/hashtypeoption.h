#pragma once

#include "tvctl/commands/hashpages.h"
#include "tvctl/commandtree/command.h"

#include <string>
#include <vector>

/// The option `--type` of a command that works on one of the lists of hashes or on all.
class HashTypeOption
{
public:
    /// Declares it; this object must outlive the parsing.
    CommandOption addTo(const Command& command, const char* description);

    bool isGiven() const
    {
        return !m_name.empty();
    }
    /// The one that was named, or all.
    std::vector<IOCScanConfig::HASH_TYPE> types() const;

private:
    std::string m_name;
};
