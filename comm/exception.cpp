// exception: construction, the static text's hand-over to the built text,
// appends and what.
#include "comm/exception.h"

#include "comm/opcd.h"

#include <new>

namespace velk {

namespace {
// Its first pointer marks the default text apart from a caller's equal text.
const token default_text("Unknown Exception");
} // namespace

exception::exception() : _stext(default_text) {}

exception::exception(const char* static_text) : _stext(static_text) {}

exception::exception(const token& text) : _dtext(text) {}

exception::exception(const opcd& code)
{
    _dtext << code.text();
    token detail(code.info());
    if (!detail.is_empty())
        _dtext << " : " << detail;
}

// The base is copied by the runtime's own copy constructor.
exception::exception(const exception& other)
    : std::exception(other), _stext(other._stext), _dtext(other._dtext),
      _origin_a(other._origin_a), _origin_b(other._origin_b), _origin_line(other._origin_line)
{}

exception::~exception() = default;

// The assignment replaces whatever was built; the static text is then spent
// (its end moves to its start), so a second append adds no second ": ".
void exception::flush_static_text()
{
    if (_stext.is_empty() || _stext.ptr() == default_text.ptr())
        return;
    _dtext = _stext;
    _dtext << ": ";
    _stext = token(_stext.ptr(), _stext.ptr());
}

exception& exception::operator<<(const token& t)
{
    flush_static_text();
    _dtext << t;
    return *this;
}

exception& exception::operator<<(char c)
{
    flush_static_text();
    _dtext << c;
    return *this;
}

exception& exception::append_int(int64_t v)
{
    flush_static_text();
    _dtext.append_int(v);
    return *this;
}

exception& exception::append_uint(uint64_t v)
{
    flush_static_text();
    _dtext.append_uint(v);
    return *this;
}

const char* exception::what() const noexcept
{
    if (_dtext.is_empty()) {
        if (_stext.is_empty()) {
            _dtext.reset();
        } else {
            try {
                _dtext = _stext;
            } catch (const std::bad_alloc&) {
                // A non-empty static text came from a zero-terminated text
                // and was never cut, so it can stand in for the copy.
                return _stext.ptr();
            }
        }
    }
    return _dtext.c_str();
}

} // namespace velk
