// File: comm/regex/regex_scratch.h
//
// The working state of regular expressions, one per thread: the stacks of the
// compiler and the two thread lists of the matcher. Made on a thread's first
// compile or match and kept until the thread ends, so that a warm thread
// matches without allocating (when no sub-matches are asked for).
//
// Invariant of a list: at most one thread per instruction. slot[i] of an
// instruction with index i holds the position of its thread when there is
// one; a stale value is told apart because the thread there is of another
// instruction or lies beyond the count. A list is therefore never longer than
// the program, and is sized to it before a run: nothing moves during a run.
#pragma once

#include "comm/dynarray.h"
#include "comm/regex/regex_dfa.h"
#include "comm/regex/regex_program.h"
#include "comm/token.h"

#include <cstdint>

namespace velk {

// One running alternative: its instruction and the match so far. Its sub-match
// slots live beside it, in the list's subs array.
struct regex_thread
{
    const regex_inst* inst;
    const char* start;
    const char* end;
};

struct regex_list
{
    dynarray<regex_thread> threads; // capacity: the program's instruction count
    dynarray<token> subs;           // nsub slots per thread, thread i at i * nsub
    dynarray<uint32_t> slot;        // by instruction index: position in threads
    uint32_t count = 0;

    // Sizes the arrays for ninst instructions and nsub slots, empties the list.
    void prepare(uint32_t ninst, uint32_t nsub);
};

struct regex_operand
{
    regex_inst* first;
    regex_inst* last;
};

struct regex_operator
{
    uint32_t code;
    uint32_t subid;
};

struct regex_scratch
{
    // -- Matching
    regex_list lists[2];
    uint32_t start_type = 0; // the start hint: op_char, op_bol or 0
    uint32_t start_rune = 0;
    uint32_t any_stop = 0;   // the one character op_any refuses
    uint32_t mode = 0;       // 0 find, 1 match, 2 leading
    regex_dfa dfa;           // the memo of anchored runs, of one program at a time

    // -- Compiling
    dynarray<regex_operand> operands;
    dynarray<regex_operator> operators;
    regex_program* program = nullptr; // under construction; owned until handed over
    bool last_was_operand = false;
    uint32_t current_rune = 0;
    regex_class* current_class = nullptr;
    uint32_t next_subid = 0;
    int32_t open_parens = 0;
    token pattern; // consumed from the front
    bool pattern_done = false; // a 0 was read: the pattern has ended
};

// The calling thread's scratch, made on first use. Never null; std::bad_alloc
// when it can't be made.
regex_scratch& regex_scratch_of_thread();

// Compiles into a new program, using the thread's scratch. Throws as
// regex::compile; on failure everything made so far is freed.
regex_program* regex_compile_program(const token& pattern, bool literal, bool ignore_case, bool dot_all);

} // namespace velk
