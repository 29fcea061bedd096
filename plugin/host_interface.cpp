// host_interface: the identity slots of the smallest host object.
#include "plugin/host_interface.h"

namespace xt {

const velk::tokenhash& host_interface::interface_name() const
{
    static const velk::tokenhash name("host_interface");
    return name;
}

const velk::token& host_interface::wrapper_key(velk::backend) const
{
    static const velk::token none;
    return none;
}

} // namespace xt
