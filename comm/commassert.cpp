// The assertion handler and its two switches.
#include "comm/commassert.h"

#include "comm/exception.h"
#include "comm/log/logmsg.h"
#include "comm/token.h"

#include <cstdio>

namespace velk {

namespace {
// Plain bytes, read without locks: they are meant to be set at start-up.
uint8_t assert_break = 1;
uint8_t assert_throw = 0;
} // namespace

assert_message::~assert_message() { delete _detail; }

std::string& assert_message::text()
{
    if (!_detail)
        _detail = new std::string;
    return *_detail;
}

const std::string& assert_message::detail() const
{
    static const std::string none;
    return _detail ? *_detail : none;
}

assert_message& assert_message::operator<<(const char* czstr)
{
    if (czstr)
        text() += czstr;
    return *this;
}

assert_message& assert_message::operator<<(const token& t)
{
    text().append(t.ptr(), t.lens());
    return *this;
}

assert_message& assert_message::operator<<(char c)
{
    text() += c;
    return *this;
}

assert_message& assert_message::operator<<(int32_t v)
{
    text() += std::to_string(v);
    return *this;
}

assert_message& assert_message::operator<<(uint32_t v)
{
    text() += std::to_string(v);
    return *this;
}

static void append_fixed(std::string& out, double v, int decimals)
{
    char buf[64];
    snprintf(buf, sizeof buf, "%.*f", decimals, v);
    out += buf;
}

assert_message& assert_message::operator<<(float v)
{
    append_fixed(text(), v, 6);
    return *this;
}

assert_message& assert_message::operator<<(double v)
{
    append_fixed(text(), v, 10);
    return *this;
}

uint8_t assert_report(const assert_message& message, const char* file, int32_t line,
                      const char* function, const char* expression, uint8_t carriage)
{
    // The file name after the last separator, or all of it; null gives empty.
    token path(file);
    token name = path.cut_back_at_group("\\/", cut_drop_separator | cut_return_right);

    if (log_ref msg = create_log_msg(1, tokenhash(), nullptr)) {
        *msg << "Assertion failed in " << name << '(' << static_cast<int64_t>(line) << "), function ";
        if (function)
            *msg << function;
        *msg << ":\n\"";
        if (expression)
            *msg << expression;
        *msg << '"';
        if (message.has_detail())
            *msg << ": " << token(message.detail().data(), message.detail().size());
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

} // namespace velk
