// host_interface: the identity slots of the host's object.
#include "host/host_interface.h"

namespace host {

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

} // namespace host
