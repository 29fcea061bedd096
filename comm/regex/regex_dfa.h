// File: comm/regex/regex_dfa.h
//
// A per-thread memo of the parallel simulation, for the runs anchored at the
// start (match and leading) that ask for no sub-matches, over programs
// without "^" or "$". In those runs every alternative started at the start of
// the input, so the alternatives alive at a position differ in nothing but
// their instruction: the simulation's state is the set of instructions it
// will step, and where it goes on one character depends on that set and the
// character alone. Each set met is kept as a numbered state with a table of
// 256 successors, filled in as characters come; a warm run is one table
// lookup per character and allocates nothing. The result is the one the
// rounds would give: this is a cache of their work, not another matcher.
//
// Invariant: a state's set holds only instructions that consume a character
// or end a match (op_char, op_any, op_any_nl, op_class, op_nclass, op_end),
// sorted, and the closure of its entries through forks and group marks;
// state 0 is the empty set, which goes nowhere.
#pragma once

#include "comm/dynarray.h"
#include "comm/regex/regex_program.h"
#include "comm/token.h"

#include <cstdint>

namespace velk {

struct regex_dfa
{
    uint64_t serial = 0;   // the program the states belong to; 0: none
    bool given_up = false; // the program needed more states than kept
    uint32_t start_first = 0;     // state of the program's first instruction, +1; 0: not yet made
    uint32_t start_after = 0;     // the same for the instruction behind the prefix

    dynarray<int32_t> successors; // 256 per state; -1: not yet known
    dynarray<uint8_t> accepting;  // per state: its set holds op_end
    dynarray<uint32_t> set_at;    // per state and one more: where its set starts in sets
    dynarray<uint32_t> sets;      // the sets, one after the other
    dynarray<uint64_t> hashes;    // per state: the hash of its set
    dynarray<uint32_t> index;     // open addressing by hash: state + 1, 0 empty

    // Work arrays of making a state.
    dynarray<uint32_t> stamp; // per instruction: the generation that saw it
    uint32_t generation = 0;
    dynarray<uint32_t> stack;
    dynarray<uint32_t> build;
};

// At most this many states are kept per program; a program that needs more
// is run by the rounds from then on. 1024 states of 256 successors are 1 MiB.
constexpr uint32_t regex_dfa_max_states = 1024;

// Whether a run of this program in mode (1 match, 2 leading) with nsub slots
// can go through the memo.
inline bool regex_dfa_fits(const regex_program& prog, uint32_t mode, uint32_t nsub)
{
    return mode != 0 && nsub == 0 && !prog.has_anchors;
}

// Runs from p (at or behind begin) with the one alternative on first, all of
// it started at begin, and stores what the rounds would give in result.
// False, with result untouched, when the memo gives up on the program: the
// caller runs the rounds. std::bad_alloc when a state can't be made.
bool regex_dfa_run(regex_dfa& dfa, const regex_program& prog, const regex_inst* first, const char* begin,
                   const char* p, const char* end, uint32_t mode, token& result);

} // namespace velk
