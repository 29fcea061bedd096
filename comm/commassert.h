// Assertions that stay in shipped code.
//
// A site tests its condition; only when it fails does it build an
// assert_message, call assert_report with its file, line, function and the
// text of the expression, and, when the report answers non-zero (the
// assert_break switch, 1 by default), execute a trap instruction. With the
// switch at 0 the code goes on and must cope.
//
//   VELK_ASSERT(d >= 0);
//   VELK_ASSERT_MSG(n < size, "index " << n << " of " << size);
#pragma once

#include <cstdint>
#include <string>

namespace velk {

class token;

// The optional detail of a failed assertion; allocated on first text only,
// so a site without detail costs nothing.
class assert_message
{
public:
    assert_message() = default;
    ~assert_message();
    assert_message(const assert_message&) = delete;
    assert_message& operator=(const assert_message&) = delete;

    assert_message& operator<<(const char* czstr);
    assert_message& operator<<(const token& t);
    assert_message& operator<<(char c);
    assert_message& operator<<(int32_t v);
    assert_message& operator<<(uint32_t v);
    assert_message& operator<<(float v);  // 6 decimals
    assert_message& operator<<(double v); // 10 decimals

    bool has_detail() const { return _detail && !_detail->empty(); }
    const std::string& detail() const;

private:
    std::string& text();
    std::string* _detail = nullptr;
};

// Reports a failed assertion through the log (level 1, empty source) and
// returns the assert_break switch. carriage 1 ends the line with character 13,
// which makes its delivery synchronous. Never throws; a message that can't be
// made is simply not written.
uint8_t assert_report(const assert_message& message, const char* file, int32_t line,
                      const char* function, const char* expression, uint8_t carriage);

void assert_set_break(uint8_t value);
void assert_set_throw(uint8_t value);
uint8_t assert_get_break();
uint8_t assert_get_throw();

// The silent assertion: throws exception("assertion failed") when the
// assert_throw switch is set, else returns.
void assert_throw_check();

} // namespace velk

#define VELK_TRAP() __builtin_trap()

#define VELK_ASSERT_MSG(expr, detail)                                                        \
    do {                                                                                     \
        if (!(expr)) {                                                                       \
            ::velk::assert_message velk_assert_msg_;                                         \
            velk_assert_msg_ << detail;                                                      \
            if (::velk::assert_report(velk_assert_msg_, __FILE__, __LINE__, __func__, #expr, 1)) \
                VELK_TRAP();                                                                 \
        }                                                                                    \
    } while (0)

#define VELK_ASSERT(expr)                                                                    \
    do {                                                                                     \
        if (!(expr)) {                                                                       \
            ::velk::assert_message velk_assert_msg_;                                         \
            if (::velk::assert_report(velk_assert_msg_, __FILE__, __LINE__, __func__, #expr, 1)) \
                VELK_TRAP();                                                                 \
        }                                                                                    \
    } while (0)
