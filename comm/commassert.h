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

namespace velk {

class token;
class zstring;

// The optional detail of a failed assertion. The zstring behind it is
// allocated from the process heap on the first text only, so a site without
// detail costs nothing; it is freed with the holder. Each << throws
// std::bad_alloc when memory runs out.
class assert_message
{
public:
    assert_message() = default;
    ~assert_message();
    assert_message(const assert_message&) = delete;
    assert_message& operator=(const assert_message&) = delete;

    // A null text is ignored.
    assert_message& operator<<(const char* czstr);
    assert_message& operator<<(const token& t);
    assert_message& operator<<(char c);
    assert_message& operator<<(int32_t v);
    assert_message& operator<<(uint32_t v);
    assert_message& operator<<(float v);  // 6 decimals
    assert_message& operator<<(double v); // 10 decimals

    bool has_detail() const;
    // The detail so far; empty before the first text.
    token detail() const;

private:
    zstring& text();
    zstring* _detail = nullptr;
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

// Detects, without preventing, two threads inside code that expects one.
// The slot belongs to the guarded code and holds the id of the thread inside,
// 0 for none. Entry on a thread other than the one in the slot is reported as
// an assertion failure (a non-zero answer traps); either way the entering
// thread then takes the slot. Leaving clears it, also from a nested entry.
// The slot is read and written without atomics.
class enter_single_thread
{
public:
    explicit enter_single_thread(uint32_t* tid_slot);
    ~enter_single_thread() { *_tid = 0; }
    enter_single_thread(const enter_single_thread&) = delete;
    enter_single_thread& operator=(const enter_single_thread&) = delete;

private:
    uint32_t* _tid;
};

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
