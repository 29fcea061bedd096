// interface_context: what a Lua dispatcher knows of the Lua side.
//
// Two handles: the context table in which its object lives (weak: an object
// doesn't keep its context alive), and the object table, when the
// dispatcher holds it. Which side owns which depends on how the pair was
// made:
//
//   - weak object table (wrapper creator, script-side creator): the table's
//     "__cthis" userdata holds one reference to the dispatcher, given back
//     when the collector takes it; object stays null;
//   - strong object table (context creator): object holds the table, and
//     native references hold the dispatcher.
//
// No virtual functions: it is a plain base beside the interface class.
#pragma once

#include "bindings/lua/registry_handle.h"
#include "comm/iref.h"

namespace velk::lua {

class interface_context
{
public:
    // context starts as a weak handle with no state and no reference.
    interface_context() : context(new weak_registry_handle) {}
    interface_context(const interface_context&) = delete;
    interface_context& operator=(const interface_context&) = delete;

    // The context table of the object; never null.
    iref<registry_handle> context;
    // The object table when the dispatcher holds it; null otherwise.
    iref<registry_handle> object;
};

} // namespace velk::lua
