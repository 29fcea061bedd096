// creation_context: the context that a call on an interface object runs in.
//
// A method runs in the creation context of its dispatcher's object (the
// current context when the dispatcher has no object). Which context is
// entered shows only in what V8 makes during the call: the exceptions of a
// conversion that runs script code, and the errors thrown for native
// failures. A number argument, an integer or text result, and the native
// call itself are the same in any context. So the context is looked up and
// entered on the first step that can show it, and a plain call never pays
// for the lookup, which walks the object's map.
//
//   velk::js::creation_context in_context(isolate, d->object);
//   v8::Local<v8::Context> c = in_context.enter();   // when a step needs it
#pragma once

#include <v8.h>

namespace velk::js {

class creation_context
{
public:
    creation_context(v8::Isolate* isolate, const v8::Global<v8::Object>& object)
        : _isolate(isolate), _object(object)
    {
    }
    // Leaves the context if this entered it.
    ~creation_context()
    {
        if (_entered)
            _context->Exit();
    }
    creation_context(const creation_context&) = delete;
    creation_context& operator=(const creation_context&) = delete;

    // The object's creation context, entered unless it is current already,
    // or the current context when there is no object. The first call
    // decides; later calls give the same context.
    v8::Local<v8::Context> enter()
    {
        if (!_context.IsEmpty())
            return _context;
        _context = _isolate->GetCurrentContext();
        v8::Local<v8::Context> created;
        if (!_object.IsEmpty() && v8::Object::GetCreationContext(_object).ToLocal(&created) &&
            created != _context) {
            created->Enter();
            _context = created;
            _entered = true;
        }
        return _context;
    }

private:
    v8::Isolate* _isolate;
    const v8::Global<v8::Object>& _object;
    v8::Local<v8::Context> _context;
    bool _entered = false;
};

} // namespace velk::js
