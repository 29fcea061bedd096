#include "plugin/simplugin.h"

#include "comm/commassert.h"
#include "plugin/adapter_text.h"
#include "plugin/mersenne_twister.h"
#include "plugin/os/adapters.h"

namespace xt {

velk::iref<simplugin> simplugin::make(const velk::iref<velk::stubsmith_interface>& host)
{
    if (!host) {
        velk::assert_throw_check();
        return {};
    }
    return velk::iref<simplugin>(new simplugin(host));
}

velk::charstr simplugin::getMAC()
{
    return query_adapter_text(&os::list_adapter_addresses);
}

uint32_t simplugin::mersenne_twister(uint32_t seed)
{
    return mt19937_first_output(seed);
}

int32_t simplugin::testfunction(int32_t x)
{
    // Wraps in 32 bits: 0x40000000 doubles to INT32_MIN.
    return static_cast<int32_t>(static_cast<uint32_t>(x) * 2u);
}

} // namespace xt
