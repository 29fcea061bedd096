// token: a non-owning view of characters, [first, end), and the pieces built on it.
//
// A token never allocates and never owns its text; whoever hands one out keeps
// the characters alive. Lengths are unsigned 32-bit: no text operation of the
// library works on more than 2^32 - 1 characters. A default token is null
// (both pointers null); an empty token may still point into a text, which is
// how a caller tells "absent" from "empty" (compare ptr() with null).
//
//   token name = "xt::hostprobe_plugin.create";   // literal: length known at compile time
//   token method = name; method.cut_back_at('.', cut_drop_separator | cut_return_right);
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace velk {

// FNV-1a over sign-extended bytes. The sign extension is deliberate: hashes
// computed at compile time for literals and at run time must agree, and
// existing keys were hashed this way.
inline constexpr uint32_t token_hash_seed = 0x811C9DC5u;
inline constexpr uint32_t token_hash_prime = 0x01000193u;

constexpr uint32_t token_hash(const char* first, const char* end, uint32_t h = token_hash_seed)
{
    for (; first < end; ++first) {
        h ^= static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(*first)));
        h *= token_hash_prime;
    }
    return h;
}

// Repairs the end of a character array that was passed as a literal; see token.cpp.
const char* fix_literal_length_slow(const char* first, const char* end);

// A literal of N bytes arrives as (first, first + N - 1): a zero there and a
// non-zero byte just before it. Anything else is reported and repaired.
constexpr const char* fix_literal_length(const char* first, const char* end)
{
    if (*end == 0 && (end <= first || end[-1] != 0))
        return end;
    return fix_literal_length_slow(first, end);
}

// Flags of the cuts from the back (cut_back_at, cut_back_at_group, cut_back_at_substring).
enum cut_flags : uint32_t {
    cut_drop_separator = 1,      // the separator belongs to neither part (a group's whole run)
    cut_merge_separators = 2,    // a run of group characters is one separator, kept with a part
    cut_separator_to_returned = 4, // without 1: separator joins the returned part, else the remainder
    cut_empty_if_none = 8,       // nothing found: returned part empty, remainder whole
    cut_return_right = 16,       // the returned part is the right side
};

class substring;

class token
{
public:
    constexpr token() = default;

    // A zero-terminated text of unknown length; null gives the default token.
    template <class T, std::enable_if_t<std::is_same_v<T, const char*> || std::is_same_v<T, char*>, int> = 0>
    constexpr token(T czstr) : _first(czstr), _end(czstr ? czstr + length_of(czstr) : nullptr) {}

    // A literal or fixed buffer: measured by fix_literal_length, never scanned when well formed.
    template <size_t N>
    constexpr token(const char (&literal)[N]) : _first(literal), _end(fix_literal_length(literal, literal + N - 1)) {}

    constexpr token(const char* first, const char* end) : _first(first), _end(end) {}
    constexpr token(const char* first, size_t len) : _first(first), _end(first + len) {}

    constexpr const char* ptr() const { return _first; }
    constexpr const char* ptre() const { return _end; }
    constexpr const char* begin() const { return _first; }
    constexpr const char* end() const { return _end; }

    constexpr uint32_t lens() const { return static_cast<uint32_t>(_end - _first); }
    constexpr bool is_empty() const { return _first == _end; }
    constexpr bool is_null() const { return _first == nullptr; }
    constexpr char operator[](uint32_t i) const { return _first[i]; }

    // The first character, or 0 for an empty token; the text is never read at end.
    constexpr char first_char() const { return _first < _end ? *_first : 0; }

    uint32_t hash() const { return token_hash(_first, _end); }

    // Equal lengths and equal bytes; two empty tokens are equal wherever they point.
    bool operator==(const token& other) const;

    bool ends_with_icase(const token& suffix) const;

    // Moves first past prefix (compared with tolower) and gives true; else unchanged, false.
    bool consume_prefix_icase(const token& prefix);

    // Cuts from the back. Each returns one part and leaves the other in *this;
    // see cut_flags for which part is which and where the separator goes.
    token cut_back_at(char c, uint32_t flags);
    token cut_back_at_group(const token& group, uint32_t flags);
    token cut_back_at_substring(const token& separator, bool icase, uint32_t flags);

    // Offset of the first match at or after off, or lens() when there is none.
    uint32_t find(const substring& pattern, uint32_t off = 0) const;

    // Digits in place: 0-9, then letters of either case for 10-35; stops at the
    // first digit not below radix. No digit at all gives 0.
    uint64_t touint(uint32_t radix = 10) const;

private:
    static constexpr size_t length_of(const char* s)
    {
        size_t n = 0;
        while (s[n]) ++n;
        return n;
    }

    // Gives the parts of a cut, with separator [sep_first, sep_end) found or not.
    token split_at(const char* sep_first, const char* sep_end, uint32_t flags);
    token split_not_found(uint32_t flags);

    const char* _first = nullptr;
    const char* _end = nullptr;
};

// A token with its token_hash, computed at compile time when built from a literal.
class tokenhash : public token
{
public:
    constexpr tokenhash() : _hash(token_hash_seed) {}

    template <size_t N>
    constexpr tokenhash(const char (&literal)[N]) : token(literal), _hash(token_hash(ptr(), ptre())) {}

    constexpr tokenhash(const token& t) : token(t), _hash(token_hash(t.ptr(), t.ptre())) {}
    constexpr tokenhash(const token& t, uint32_t hash) : token(t), _hash(hash) {}

    constexpr uint32_t hash() const { return _hash; }

private:
    uint32_t _hash;
};

// A prepared pattern for repeated searches (Sunday's quick search).
// Owns its shift table (global_alloc); the pattern text stays the caller's,
// except a one-character pattern, which is kept inside the object.
class substring
{
public:
    substring() = default;
    substring(const char* pattern, uint64_t len, bool icase) { set(pattern, len, icase); }
    ~substring();

    substring(const substring&) = delete;
    substring& operator=(const substring&) = delete;

    // Prepares the pattern; an earlier table is freed. Throws std::bad_alloc.
    void set(const char* pattern, uint64_t len, bool icase);

    // Offset of the first match in text at or after off, or text.lens().
    uint32_t find(const token& text, uint32_t off) const;

    // The shared "://" pattern, prepared once on first use.
    static const substring& scheme_separator();

private:
    uint32_t find_one(const token& text, uint32_t off) const;

    uint64_t* _shift = nullptr;
    uint8_t _low = 0;
    uint8_t _high = 0;
    bool _icase = false;
    char _one = 0;
    const char* _pattern = nullptr;
    uint64_t _len = 0;
};

} // namespace velk
