// script_object: the failures that every method callback may throw.
#include "bindings/js/script_object.h"

namespace velk::js {

void throw_argument_count(v8::Isolate* isolate, const char* full_name)
{
    charstr text;
    text << "Wrong number of arguments in " << full_name;
    throw_script_error(isolate, &v8::Exception::SyntaxError, text);
}

void throw_null_interface(v8::Isolate* isolate, const char* full_name)
{
    charstr text;
    text << "Null interface object in " << full_name;
    throw_script_error(isolate, &v8::Exception::ReferenceError, text);
}

} // namespace velk::js
