// script_log: $log, a script's line to the log.
#include "bindings/js/script_log.h"

#include "bindings/js/interface_object.h"
#include "bindings/js/js_convert.h"
#include "comm/log/logger.h"
#include "comm/log/logmsg.h"

namespace velk::js {

void log_callback(const v8::FunctionCallbackInfo<v8::Value>& info)
{
    if (info.Length() == 0)
        return;
    v8::Isolate* isolate = info.GetIsolate();
    v8::HandleScope scope(isolate);
    // Called as a method of an interface object, the line is that object's.
    stubsmith_interface* ifc = nullptr;
    uint32_t hash = 0;
    if (!read_interface_fields(info.This(), ifc, hash))
        ifc = nullptr;
    charstr text;
    if (!to_text(isolate, info[0], text))
        return; // its toString threw: that exception is the answer
    static const tokenhash script_source("js");
    const tokenhash& source = ifc ? ifc->interface_name() : script_source;
    token rest = text;
    int32_t type = log_level_from_text(rest);
    if (log_ref msg = create_log_msg(type, source, ifc))
        *msg << rest;
    // The line goes out as the last reference drops, here.
}

} // namespace velk::js
