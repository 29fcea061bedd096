// The assertion handler, its two switches, the detail holder and the
// single-thread guard.
#include "comm/commassert.h"

#include "comm/exception.h"
#include "comm/log/logmsg.h"
#include "comm/os/thread_id.h"
#include "comm/token.h"
#include "comm/zstring.h"

#include <cstdlib>
#include <new>

namespace velk {

namespace {
// Plain bytes, read without locks: they are meant to be set at start-up.
uint8_t assert_break = 1;
uint8_t assert_throw = 0;
} // namespace

// -- assert_message ----------------------------------------------------------

assert_message::~assert_message()
{
    if (_detail) {
        _detail->~zstring();
        std::free(_detail);
    }
}

// From the process heap rather than the library's memory: an assertion may
// report trouble in that memory itself.
zstring& assert_message::text()
{
    if (!_detail) {
        void* block = std::malloc(sizeof(zstring));
        if (!block)
            throw std::bad_alloc();
        _detail = new (block) zstring;
    }
    return *_detail;
}

bool assert_message::has_detail() const { return _detail && !_detail->is_empty(); }

token assert_message::detail() const { return _detail ? _detail->get_token() : token(); }

assert_message& assert_message::operator<<(const char* czstr)
{
    if (czstr)
        text() << czstr;
    return *this;
}

assert_message& assert_message::operator<<(const token& t)
{
    text() << t;
    return *this;
}

assert_message& assert_message::operator<<(char c)
{
    text().get_str() << c;
    return *this;
}

assert_message& assert_message::operator<<(int32_t v)
{
    text().get_str() << v;
    return *this;
}

assert_message& assert_message::operator<<(uint32_t v)
{
    text().get_str() << v;
    return *this;
}

// Numbers are written as charstr writes them, so a detail reads as a log line would.
assert_message& assert_message::operator<<(float v)
{
    text().get_str().append_float(v, 6);
    return *this;
}

assert_message& assert_message::operator<<(double v)
{
    text().get_str().append_float(v, 10);
    return *this;
}

// -- The handler ---------------------------------------------------------------

uint8_t assert_report(const assert_message& message, const char* file, int32_t line,
                      const char* function, const char* expression, uint8_t carriage)
{
    // The file name after the last separator, or all of it; null gives empty.
    token path(file);
    token name = path.cut_back_at_group("\\/", cut_drop_separator | cut_return_right);

    if (log_ref msg = create_log_msg(log_level::error, tokenhash(), nullptr)) {
        *msg << "Assertion failed in " << name << '(' << static_cast<int64_t>(line) << "), function ";
        if (function)
            *msg << function;
        *msg << ":\n\"";
        if (expression)
            *msg << expression;
        *msg << '"';
        if (message.has_detail())
            *msg << ": " << message.detail();
        if (carriage)
            *msg << '\r';
    }
    return assert_break;
}

void assert_set_break(uint8_t value) { assert_break = value; }
void assert_set_throw(uint8_t value) { assert_throw = value; }
uint8_t assert_get_break() { return assert_break; }
uint8_t assert_get_throw() { return assert_throw; }

void assert_throw_check()
{
    if (assert_throw)
        throw exception("assertion failed");
}

// -- enter_single_thread -------------------------------------------------------

// The place is fixed so that the report reads the same wherever the library
// is built.
enter_single_thread::enter_single_thread(uint32_t* tid_slot) : _tid(tid_slot)
{
    uint32_t t = os::current_thread_id();
    if (!(*_tid == 0 || *_tid == t)) {
        assert_message none;
        if (assert_report(none, "comm/commassert", 52, "velk::enter_single_thread::enter_single_thread",
                          "_tid == 0 || _tid == (uint)t", 1))
            VELK_TRAP();
    }
    *_tid = t;
}

} // namespace velk
