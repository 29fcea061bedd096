// interface_context: what a JavaScript dispatcher knows of its script object.
//
// One field, the global handle of the object, so that the dispatcher can
// reach the object (and its creation context) from native code, and can cut
// the object loose when the dispatcher ends first. Which side owns which
// depends on how the pair was made:
//
//   - weak handle: the script object holds one reference to the dispatcher,
//     given back when the collector takes the object (wrapper creator and
//     script-side creator);
//   - strong handle: native references hold the dispatcher, and the object
//     lives at least as long as the dispatcher (maker and context creator).
//
// No virtual functions: it is a plain base beside the interface class.
#pragma once

#include <v8.h>

namespace velk::js {

class interface_context
{
public:
    interface_context() = default;
    interface_context(const interface_context&) = delete;
    interface_context& operator=(const interface_context&) = delete;

    // The script object of the dispatcher, strong or weak; empty if none.
    v8::Global<v8::Object> object;
};

} // namespace velk::js
