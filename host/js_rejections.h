// js_rejections: the promises of a run that were rejected with no handler
// and got none afterwards.
//
// V8 tells of each rejection without a handler, and of a handler added to
// such a promise later; what is left once the script and its microtasks
// have run was never handled, and the host reports it as the script's
// failure, with the rejection's text:
//
//   file:///a.js: unhandled promise rejection: Error: boom
#pragma once

#include "comm/charstr.h"
#include "comm/token.h"

#include <v8.h>

#include <vector>

namespace host {

class js_rejections
{
public:
    // Follows the rejections of isolate, which must outlive this object;
    // one object per isolate at a time (it takes the isolate's callback).
    explicit js_rejections(v8::Isolate* isolate);
    ~js_rejections();
    js_rejections(const js_rejections&) = delete;
    js_rejections& operator=(const js_rejections&) = delete;

    // One line per unhandled rejection (at most max_lines, then a line with
    // how many more), each "<url>: unhandled promise rejection: <text>".
    // The text is the value's toString, which is script code: call while
    // the script's limits still hold. Needs a handle scope.
    void describe(const velk::token& url, velk::charstr& out) const;

private:
    struct rejection
    {
        v8::Global<v8::Promise> promise;
        v8::Global<v8::Value> value;
    };

    static void on_reject(v8::PromiseRejectMessage message);
    void handled(v8::Local<v8::Promise> promise);
    void text_of(const rejection& r, velk::charstr& out) const;

    static constexpr size_t max_lines = 10; // a script may leave thousands
    v8::Isolate* _isolate;
    std::vector<rejection> _pending;
};

} // namespace host
