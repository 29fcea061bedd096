#include "comm/exception.h"

namespace velk {

namespace {
// Its first pointer marks the default text apart from a caller's equal text.
const token default_text("Unknown Exception");
} // namespace

exception::exception() : _stext(default_text) {}

exception::exception(const char* static_text) : _stext(static_text) {}

exception::exception(const token& text) : _dtext(text.ptr(), text.lens()) {}

exception::exception(const exception& other)
    : std::exception(other), _stext(other._stext), _dtext(other._dtext),
      _origin_a(other._origin_a), _origin_b(other._origin_b), _origin_line(other._origin_line)
{}

exception::~exception() = default;

void exception::flush_static_text()
{
    if (_stext.is_empty() || _stext.ptr() == default_text.ptr())
        return;
    _dtext.assign(_stext.ptr(), _stext.lens());
    _dtext += ": ";
    _stext = token(_stext.ptr(), _stext.ptr());
}

exception& exception::operator<<(const token& t)
{
    flush_static_text();
    _dtext.append(t.ptr(), t.lens());
    return *this;
}

exception& exception::operator<<(char c)
{
    flush_static_text();
    _dtext += c;
    return *this;
}

exception& exception::operator<<(int64_t v)
{
    flush_static_text();
    _dtext += std::to_string(v);
    return *this;
}

const char* exception::what() const noexcept
{
    if (_dtext.empty())
        _dtext.assign(_stext.ptr() ? _stext.ptr() : "", _stext.lens());
    return _dtext.c_str();
}

} // namespace velk
