// exception: the one thrown type for failures that carry words.
//
// A static text given at construction is kept as a token and only copied when
// more text is appended, which then reads "static text: appended". The default
// text "Unknown Exception" is used only when nothing else was given.
//
//   throw velk::exception("cannot open") << path;   // what(): "cannot open: /x"
#pragma once

#include "comm/token.h"

#include <cstdint>
#include <exception>
#include <string>

namespace velk {

class exception : public std::exception
{
public:
    exception();
    // A static text whose characters outlive the exception; null gives a null text.
    exception(const char* static_text);
    // A copy of the text.
    exception(const token& text);
    exception(const exception& other);
    ~exception() override;

    exception& operator<<(const token& t);
    exception& operator<<(char c);
    exception& operator<<(int64_t v);

    // The text; builds it from the static text on first call after no append.
    const char* what() const noexcept override;

private:
    void flush_static_text();

    token _stext;
    mutable std::string _dtext;
    const char* _origin_a = "unknown";
    const char* _origin_b = "unknown";
    int64_t _origin_line = -1;
};

} // namespace velk
