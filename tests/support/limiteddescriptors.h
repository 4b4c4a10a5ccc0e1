#pragma once

#include <sys/resource.h>

/// As many descriptors as this process may have, until the end of the object.
class LimitedDescriptors
{
public:
    explicit LimitedDescriptors(rlim_t limit)
    {
        ::getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit limited = {limit, m_before.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &limited);
    }
    ~LimitedDescriptors()
    {
        ::setrlimit(RLIMIT_NOFILE, &m_before);
    }
    LimitedDescriptors(const LimitedDescriptors&) = delete;
    LimitedDescriptors& operator=(const LimitedDescriptors&) = delete;

private:
    rlimit m_before = {};
};
