// exception: the one thrown type for failures that carry words.
//
// A stream-like message builder, thrown when complete. A static text given at
// construction is kept as a token and copied only when more text is appended,
// which then reads "static text: appended". The default text "Unknown
// Exception" is used only when nothing else was given.
//
//   throw velk::exception("cannot open") << path;   // what(): "cannot open: /x"
//   throw velk::exception(ers::io_error_write_failed);
//
// Every append throws std::bad_alloc, in place of the exception being built,
// when memory runs out.
#pragma once

#include "comm/charstr.h"
#include "comm/token.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <type_traits>

namespace velk {

class opcd;

class exception : public std::exception
{
public:
    // The default text.
    exception();
    // A static text whose characters outlive the exception; null gives a null text.
    exception(const char* static_text);
    // A copy of the text.
    exception(const token& text);
    // The code's text, and " : " and its detail when it has one.
    exception(const opcd& code);
    // A full copy of the built text; the static text stays shared.
    exception(const exception& other);
    ~exception() override;

    // Each first turns a pending static text into "static text: ", then appends.
    exception& operator<<(const token& t);
    // A literal, measured by fix_literal_length.
    template <size_t N>
    exception& operator<<(const char (&literal)[N]) { return *this << token(literal); }
    // A char of 0 is ignored, as by charstr.
    exception& operator<<(char c);
    // Decimal digits, "-" first for a negative value.
    template <class I, std::enable_if_t<std::is_integral_v<I> && !std::is_same_v<I, char> &&
                                            !std::is_same_v<I, bool>, int> = 0>
    exception& operator<<(I v)
    {
        if constexpr (std::is_signed_v<I>)
            return append_int(v);
        else
            return append_uint(v);
    }

    // The text: the built one, or else the static one, which is copied into
    // the built text on this call. Valid until the exception next changes.
    const char* what() const noexcept override;

private:
    void flush_static_text();
    exception& append_int(int64_t v);
    exception& append_uint(uint64_t v);

    token _stext;
    // what() may fill it from _stext on a const exception.
    mutable charstr _dtext;
    const char* _origin_a = "unknown";
    const char* _origin_b = "unknown";
    int64_t _origin_line = -1;
};

} // namespace velk
