// token: the out-of-line operations (comparisons, cuts, searches).
#include "comm/token.h"

#include "comm/alloc/commalloc.h"
#include "comm/commassert.h"

#include <cctype>
#include <cstring>
#include <mutex>
#include <new>

namespace velk {

namespace {

inline int fold(char c) { return ::tolower(static_cast<unsigned char>(c)); }

bool equal_icase(const char* a, const char* b, size_t n)
{
    for (size_t i = 0; i < n; ++i)
        if (fold(a[i]) != fold(b[i]))
            return false;
    return true;
}

bool in_group(char c, const token& group)
{
    return memchr(group.ptr(), c, group.lens()) != nullptr;
}

} // namespace

// The site's place is fixed: reports of this check must read the same
// wherever the library is built.
const char* fix_literal_length_slow(const char* first, const char* end)
{
    assert_message none;
    if (assert_report(none, "comm/token", 2721, "velk::token::fix_literal_length", "0", 1))
        VELK_TRAP();
    const void* zero = memchr(first, 0, static_cast<size_t>(end - first));
    return zero ? static_cast<const char*>(zero) : end;
}

bool token::operator==(const token& other) const
{
    uint32_t n = lens();
    return n == other.lens() && (n == 0 || memcmp(_first, other._first, n) == 0);
}

bool token::ends_with_icase(const token& suffix) const
{
    uint32_t n = suffix.lens();
    return n <= lens() && equal_icase(_end - n, suffix._first, n);
}

bool token::consume_prefix_icase(const token& prefix)
{
    uint32_t n = prefix.lens();
    if (n > lens() || !equal_icase(_first, prefix._first, n))
        return false;
    _first += n;
    return true;
}

uint64_t token::touint(uint32_t radix) const
{
    uint64_t value = 0;
    for (const char* p = _first; p < _end; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        uint32_t digit = c >= '0' && c <= '9' ? c - '0'
                       : c >= 'a' && c <= 'z' ? c - 'a' + 10
                       : c >= 'A' && c <= 'Z' ? c - 'A' + 10
                       : 255;
        if (digit >= radix)
            break;
        value = value * radix + digit;
    }
    return value;
}

// -- Cuts from the back ---------------------------------------------------

token token::split_at(const char* sep_first, const char* sep_end, uint32_t flags)
{
    token left(_first, sep_first);
    token right(sep_end, _end);
    if (!(flags & cut_drop_separator)) {
        bool to_left = !(flags & cut_separator_to_returned) != !(flags & cut_return_right);
        if (to_left)
            left._end = sep_end;
        else
            right._first = sep_first;
    }
    bool return_right = flags & cut_return_right;
    *this = return_right ? left : right;
    return return_right ? right : left;
}

token token::split_not_found(uint32_t flags)
{
    bool return_right = flags & cut_return_right;
    if (flags & cut_empty_if_none) {
        const char* at = return_right ? _end : _first;
        return token(at, at);
    }
    token whole = *this;
    const char* at = return_right ? _first : _end;
    *this = token(at, at);
    return whole;
}

token token::cut_back_at(char c, uint32_t flags)
{
    for (const char* p = _end; p > _first;) {
        if (*--p == c)
            return split_at(p, p + 1, flags);
    }
    return split_not_found(flags);
}

token token::cut_back_at_group(const token& group, uint32_t flags)
{
    // A one-character group never merges runs, whatever the flags say.
    if (group.lens() == 1)
        return cut_back_at(group[0], flags);

    const char* p = _end;
    while (p > _first && !in_group(p[-1], group))
        --p;
    if (p == _first)
        return split_not_found(flags);

    const char* sep_end = p;
    const char* sep_first = p - 1;
    if (flags & (cut_drop_separator | cut_merge_separators)) {
        while (sep_first > _first && in_group(sep_first[-1], group))
            --sep_first;
    }
    return split_at(sep_first, sep_end, flags);
}

token token::cut_back_at_substring(const token& separator, bool icase, uint32_t flags)
{
    // Matches are searched left to right, each search resuming after the
    // previous match; the last one stands. So "aaa" cut at "aa" splits at 0.
    uint32_t n = separator.lens();
    char c0 = separator.first_char();
    char lower = static_cast<char>(::tolower(static_cast<unsigned char>(c0)));
    char upper = static_cast<char>(::toupper(static_cast<unsigned char>(c0)));
    const char* found = nullptr;
    const char* p = _first;
    while (p < _end && static_cast<size_t>(_end - p) >= n) {
        bool candidate = icase ? (*p == lower || *p == upper) : *p == c0;
        bool match = candidate && (icase ? equal_icase(p, separator._first, n)
                                         : memcmp(p, separator._first, n) == 0);
        if (match) {
            found = p;
            p += n ? n : 1;
        } else {
            ++p;
        }
    }
    return found ? split_at(found, found + n, flags) : split_not_found(flags);
}

uint32_t token::find(const substring& pattern, uint32_t off) const
{
    return pattern.find(*this, off);
}

// -- substring ------------------------------------------------------------

substring::~substring()
{
    global_release(_shift);
}

void substring::set(const char* pattern, uint64_t len, bool icase)
{
    _icase = icase;
    if (len == 1) {
        _one = icase ? static_cast<char>(fold(*pattern)) : *pattern;
        _low = _high = static_cast<uint8_t>(_one);
        _pattern = &_one;
        _len = 1;
        global_release(_shift);
        _shift = nullptr;
        return;
    }

    // The first character is entered unfolded even with icase: a kept quirk,
    // the search then never finds an upper case first character in the table.
    uint64_t scratch[256] = {};
    uint8_t c0 = static_cast<uint8_t>(pattern[0]);
    uint32_t low = c0, high = c0;
    scratch[c0] = len;
    for (uint64_t i = 1; i < len; ++i) {
        uint8_t c = static_cast<uint8_t>(icase ? fold(pattern[i]) : pattern[i]);
        if (c < low) low = c;
        if (c > high) high = c;
        scratch[c] = len - i;
    }

    global_release(_shift);
    _shift = nullptr;
    size_t entries = high - low + 1;
    auto* table = static_cast<uint64_t*>(global_alloc(entries * sizeof(uint64_t)));
    if (!table)
        throw std::bad_alloc();
    memcpy(table, scratch + low, entries * sizeof(uint64_t));
    _shift = table;
    _low = static_cast<uint8_t>(low);
    _high = static_cast<uint8_t>(high);
    _pattern = pattern;
    _len = len;
}

uint32_t substring::find_one(const token& text, uint32_t off) const
{
    for (uint32_t i = off; i < text.lens(); ++i) {
        char c = text[i];
        if (c == _one || (_icase && fold(c) == static_cast<unsigned char>(_one)))
            return i;
    }
    return text.lens();
}

uint32_t substring::find(const token& text, uint32_t off) const
{
    uint32_t n = text.lens();
    if (off >= n)
        return n;
    if (_len == 1)
        return find_one(text, off);

    uint64_t m = _len;
    for (uint64_t pos = off;;) {
        uint64_t remaining = n - pos;
        if (remaining >= m) {
            const char* at = text.ptr() + pos;
            bool equal = _icase ? equal_icase(at, _pattern, m) : memcmp(at, _pattern, m) == 0;
            if (equal)
                return static_cast<uint32_t>(pos);
        }
        if (remaining <= m)
            return n;
        uint8_t next = static_cast<uint8_t>(text[static_cast<uint32_t>(pos + m)]);
        if (_icase)
            next = static_cast<uint8_t>(fold(static_cast<char>(next)));
        uint64_t shift = next >= _low && next <= _high ? _shift[next - _low] : 0;
        pos += shift ? shift : m + 1;
    }
}

const substring& substring::scheme_separator()
{
    static const substring instance("://", 3, false);
    return instance;
}

} // namespace velk
