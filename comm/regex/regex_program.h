// File: comm/regex/regex_program.h
//
// The inside of a compiled regular expression, shared by the compiler
// (comm/regex/regex_compiler.cpp), the matcher (comm/regex/regex.cpp) and
// the tests that look at compiled programs. Not for other users: the public
// face is comm/regex/regex.h.
//
// A program is a graph of single instructions linked by `next` (and, for a
// fork, `left`). Once compiled it is never written again, which is what lets
// one program run on several threads at once; everything that changes while
// compiling or matching lives in the calling thread's regex_scratch.
//
// Operation codes are fixed numbers: the precedence of an operator is its
// code, and the class of a code is in its top two bits (0x80 operator,
// 0xC0 instruction, below 0x80 a character).
#pragma once

#include "comm/dynarray.h"
#include "comm/token.h"

#include <cctype>
#include <cstddef>
#include <cstdint>

namespace velk {

enum regex_op : uint32_t {
    op_char = 127,    // one given character; also the floor under op_start
    op_start = 128,   // floor of evaluation
    op_close = 129,   // ")" / end of a sub-match
    op_open = 130,    // "(" / start of a sub-match
    op_or = 131,      // "|" / fork
    op_cat = 132,     // implicit concatenation
    op_star = 133,    // "*"
    op_plus = 134,    // "+"
    op_quest = 135,   // "?"
    op_any = 192,     // "." in the default form
    op_any_nl = 193,  // "." in the dot-all form
    op_nop = 194,     // join point; skipped over once compiling is done
    op_bol = 195,     // "^"
    op_eol = 196,     // "$"
    op_class = 197,   // character class
    op_nclass = 198,  // negated character class
    op_end = 255,     // match
};

constexpr uint32_t regex_op_kind_mask = 0xC0;
constexpr uint32_t regex_op_operator = 0x80;

// Character values: a decoded character is a u32; -1 stands for a byte
// sequence that is no character (a stray byte, or one cut off by the end).
constexpr uint32_t regex_bad_char = 0xFFFFFFFFu;

// A class: pairs (lowest, highest) in one array, sorted by lowest and merged
// where they overlap. No array at all is the empty class.
struct regex_class
{
    dynarray<uint32_t> ranges;

    // Whether a pair holds c. The pairs are sorted by their low bound, so the
    // walk stops at the first one that starts above c.
    bool holds(uint32_t c) const
    {
        const uint32_t* r = ranges.ptr();
        const uint32_t* e = r + ranges.size();
        for (; r < e && r[0] <= c; r += 2)
            if (c <= r[1])
                return true;
        return false;
    }
};

// One instruction, allocated singly. Which member of the union counts
// depends on type.
struct regex_inst
{
    uint32_t type;
    // Position in regex_program::insts; the matcher keys its per-thread
    // "already in this list" table by it.
    uint32_t index;
    union {
        uint32_t rune;                // op_char
        uint32_t subid;               // op_open, op_close
        const regex_inst* left;       // op_or: the first branch
        const regex_class* char_class; // op_class, op_nclass
    };
    // Where to go on; for op_or the second branch.
    const regex_inst* next;
};

// The compiled form. Owns its instructions and classes.
struct regex_program
{
    const regex_inst* first = nullptr;
    dynarray<regex_class*> classes;
    dynarray<regex_inst*> insts; // in creation order
    bool ignore_case = false;

    // The characters (below 0x80, folded when ignoring case) that every match
    // begins with, in a straight line from first that nothing else jumps
    // into; after_prefix is the instruction behind them. Runs anchored at the
    // start compare them as bytes instead of stepping through them.
    dynarray<char> prefix;
    const regex_inst* after_prefix = nullptr;

    // "^" or "$" somewhere: steps that depend on the position, not only on
    // the character.
    bool has_anchors = false;

    // Unique in the process (never 0), so that per-thread memos of a program
    // can't be taken for another one made at the same address.
    uint64_t serial = 0;

    // The program that this one replaced in its regex. Runs begun on it may
    // still be going, so it lives until the regex ends; null for the first.
    regex_program* superseded = nullptr;

    regex_program() = default;
    regex_program(const regex_program&) = delete;
    regex_program& operator=(const regex_program&) = delete;
    ~regex_program();
};

// -- Characters ------------------------------------------------------------------

// The case fold of the runtime library (tolower), for the values it is
// defined on; anything above a byte is its own fold.
inline uint32_t regex_fold(uint32_t c)
{
    return c < 256 ? static_cast<uint32_t>(::tolower(static_cast<int>(c))) : c;
}

// Decodes one character at s, before e, by the plain UTF-8 rule: a lead byte
// of 0xC0 or more takes its count of trailing bytes from its top bits (up to
// five), the trailing bytes are added in unchecked and the standard offsets
// taken off. len gets the bytes taken: 0 at the end (the character is then 0)
// and for a sequence cut off by the end; 1 for a stray byte of 0x80 to 0xBF or
// 0xFE and above. Both of the last give regex_bad_char.
inline uint32_t regex_decode(const char* s, const char* e, uint32_t& len)
{
    if (s >= e) {
        len = 0;
        return 0;
    }
    uint32_t b = static_cast<unsigned char>(*s);
    if (b < 0x80) {
        len = 1;
        return b;
    }
    if (b < 0xC0 || b >= 0xFE) {
        len = 1;
        return regex_bad_char;
    }
    // The offsets are the lead bytes' marker bits, accumulated by the shifts
    // below together with the 0x80 of every trailing byte.
    static constexpr uint32_t offsets[6] = {0x00000000u, 0x00003080u, 0x000E2080u,
                                            0x03C82080u, 0xFA082080u, 0x82082080u};
    uint32_t trail = b >= 0xFC ? 5 : b >= 0xF8 ? 4 : b >= 0xF0 ? 3 : b >= 0xE0 ? 2 : 1;
    if (e - s <= static_cast<ptrdiff_t>(trail)) {
        len = 0;
        return regex_bad_char;
    }
    uint32_t c = b;
    for (uint32_t i = 1; i <= trail; ++i)
        c = (c << 6) + static_cast<unsigned char>(s[i]);
    len = trail + 1;
    return c - offsets[trail];
}

} // namespace velk
