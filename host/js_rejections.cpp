// js_rejections: the rejection callback and the report.
#include "host/js_rejections.h"

namespace host {

namespace {

// The isolate's data slot that holds the object following its rejections.
// The host makes the isolate and owns its slots, but the last one, which the
// plug-in's binding keeps its mark of the isolate in.
constexpr uint32_t rejections_slot = 0;

} // namespace

js_rejections::js_rejections(v8::Isolate* isolate) : _isolate(isolate)
{
    isolate->SetData(rejections_slot, this);
    isolate->SetPromiseRejectCallback(&on_reject);
}

js_rejections::~js_rejections()
{
    _isolate->SetPromiseRejectCallback(nullptr);
    _isolate->SetData(rejections_slot, nullptr);
}

void js_rejections::on_reject(v8::PromiseRejectMessage message)
{
    v8::Local<v8::Promise> promise = message.GetPromise();
    v8::Isolate* isolate = promise->GetIsolate();
    auto* self = static_cast<js_rejections*>(isolate->GetData(rejections_slot));
    if (!self)
        return;
    switch (message.GetEvent()) {
    case v8::kPromiseRejectWithNoHandler:
        self->_pending.push_back({v8::Global<v8::Promise>(isolate, promise),
                                  v8::Global<v8::Value>(isolate, message.GetValue())});
        break;
    case v8::kPromiseHandlerAddedAfterReject:
        self->handled(promise);
        break;
    default: // a second resolve or reject of a settled promise changes nothing
        break;
    }
}

void js_rejections::handled(v8::Local<v8::Promise> promise)
{
    for (size_t i = 0; i < _pending.size(); ++i) {
        if (_pending[i].promise == promise) {
            _pending.erase(_pending.begin() + static_cast<ptrdiff_t>(i));
            return;
        }
    }
}

// The value's text in the context the promise was made in; a value whose
// toString throws (or is terminated) is said to be no text.
void js_rejections::text_of(const rejection& r, velk::charstr& out) const
{
    v8::Local<v8::Promise> promise = r.promise.Get(_isolate);
    v8::Local<v8::Context> context;
    if (promise->GetCreationContext().ToLocal(&context)) {
        v8::Context::Scope in_context(context);
        v8::TryCatch caught(_isolate);
        v8::String::Utf8Value text(_isolate, r.value.Get(_isolate));
        if (*text) {
            out << velk::token(*text, static_cast<size_t>(text.length()));
            return;
        }
    }
    out << "a value that can't be shown as text";
}

void js_rejections::describe(const velk::token& url, velk::charstr& out) const
{
    size_t shown = _pending.size() < max_lines ? _pending.size() : max_lines;
    for (size_t i = 0; i < shown; ++i) {
        out << url << ": unhandled promise rejection: ";
        text_of(_pending[i], out);
        out << '\n';
    }
    if (_pending.size() > shown)
        out << url << ": " << static_cast<uint64_t>(_pending.size() - shown) << " more unhandled promise rejections\n";
}

} // namespace host
