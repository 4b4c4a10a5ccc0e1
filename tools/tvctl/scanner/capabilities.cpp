#include "tvctl/scanner/capabilities.h"

#include <memory>
#include <type_traits>

#include <sys/capability.h>

namespace
{
struct FreeCapabilities
{
    void operator()(cap_t capabilities) const
    {
        ::cap_free(capabilities);
    }
};
using Capabilities = std::unique_ptr<std::remove_pointer_t<cap_t>, FreeCapabilities>;
} // namespace

bool dropCapabilities()
{
    constexpr cap_value_t kept = CAP_DAC_OVERRIDE;
    const Capabilities present(::cap_get_proc());
    const Capabilities wanted(::cap_init());
    cap_flag_value_t isThere = CAP_CLEAR;
    return present && wanted && ::cap_get_flag(present.get(), kept, CAP_PERMITTED, &isThere) == 0 &&
           ::cap_set_flag(wanted.get(), CAP_PERMITTED, 1, &kept, isThere) == 0 &&
           ::cap_set_flag(wanted.get(), CAP_EFFECTIVE, 1, &kept, isThere) == 0 &&
           ::cap_set_proc(wanted.get()) == 0;
}
