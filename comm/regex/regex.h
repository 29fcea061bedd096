// File: comm/regex/regex.h
//
// regex: a compiled regular expression, run over UTF-8 text by a parallel
// simulation of all alternatives, one character at a time, never
// backtracking: the work per character is bounded by the size of the
// program, whatever the pattern.
//
//   velk::regex re;
//   re.compile("xt::.*@wrapper");
//   token whole = re.match(key);            // null, empty, or all of key
//   bool hit = !whole.is_empty();
//
// The syntax is small: characters, "." (any character), "[...]" and "[^...]"
// classes with ranges, "^" and "$" (start and end of a line), "( )" groups,
// "|", "*", "+", "?". A backslash makes the next character stand for itself,
// whatever it is: "\n" is the letter n; there are no escape sequences.
//
// A compiled program is read-only: one regex may be run from several threads
// at once, and compiled again while they run. Compiling and matching keep
// their working state in scratch of the calling thread, so no lock is taken
// anywhere.
//
// The three runs differ in where a match may lie:
// - find: anywhere; of the matches seen, the one that starts first, and of
//   those the longest ("a|ab" finds "ab"). Alternatives that arrive at one
//   instruction in one round go on as one, with the start of the later
//   arrival: "(ab)?c" in "abc" finds "c". New starts stop at the first match.
// - match: from the start; gives the whole input when the scan reached its end
//   with a match found, the empty token where the scan stopped when it found a
//   match but stopped before the end, and null when nothing matched. Callers
//   that want a whole-input match test for a non-empty result.
// - leading: from the start; the longest match there.
#pragma once

#include "comm/token.h"

#include <atomic>
#include <cstdint>

namespace velk {

struct regex_program;

class regex
{
public:
    // Empty: every run gives the empty token at the start of its input.
    regex() = default;

    // Compiles pattern; note that dot_all comes before ignore_case here, unlike
    // compile. Throws velk::exception on a bad pattern, as compile does.
    regex(const token& pattern, bool literal, bool dot_all, bool ignore_case);

    // Frees the program and every program it replaced. No run and no
    // compile of this object may be under way.
    ~regex();

    regex(const regex&) = delete;
    regex& operator=(const regex&) = delete;
    // Neither object may be in use by another thread during a move.
    regex(regex&& other) noexcept : _program(other._program.exchange(nullptr, std::memory_order_relaxed)) {}
    regex& operator=(regex&& other) noexcept;

    // Compiles pattern and replaces the program. Other threads may be running
    // this regex meanwhile: a run that began before the replacement finishes
    // on the old program, which is kept until this regex ends; a run that
    // begins after compile returns uses the new one. literal: every character stands for
    // itself (a backslash still quotes). ignore_case: characters compare
    // through tolower; see the notes on classes in regex_compiler.cpp.
    // dot_all: "." accepts every character; the default "." accepts all but
    // the character 0 (and so still a newline).
    // On a bad pattern throws velk::exception with one of the texts
    // "unmatched left paren", "unmatched right paren", "missing operand for "
    // and the operator's character, "malformed '[]'", and leaves this regex
    // as it was. std::bad_alloc when memory runs out, the regex unchanged.
    void compile(const token& pattern, bool literal = false, bool ignore_case = false, bool dot_all = false);

    // The runs. Each gives the match as a token into input (see above for the
    // forms), and fills subs[0..nsub): slot 0 gets a null begin and the end of
    // the match, slots 1 and up the groups in the order of their "(", null
    // where a group took no part. subs may be null with nsub 0. Never throw
    // but std::bad_alloc.
    token find(const token& input, token* subs = nullptr, uint32_t nsub = 0) const;
    token match(const token& input, token* subs = nullptr, uint32_t nsub = 0) const;
    token leading(const token& input, token* subs = nullptr, uint32_t nsub = 0) const;

    bool is_compiled() const { return program() != nullptr; }

    // The compiled form, for the tests; null before the first compile.
    const regex_program* program() const { return _program.load(std::memory_order_acquire); }

private:
    token run(const token& input, token* subs, uint32_t nsub, uint32_t mode) const;

    // Published with release, read with acquire: a thread that sees a
    // program sees all of it. Replaced programs hang off it by superseded.
    std::atomic<regex_program*> _program{nullptr};
};

} // namespace velk
