// File: comm/regex/regex_dfa.cpp
//
// The memo of anchored runs: states made on demand from the sets of
// instructions that the rounds would step, and the loop that walks them. See
// regex_dfa.h for when it applies and why it gives what the rounds give.
#include "comm/regex/regex_dfa.h"

#include <algorithm>
#include <cstring>

namespace velk {

namespace {

constexpr int32_t unknown = -1;
constexpr int32_t too_many = -2;

// FNV-1a over the indices: the sets are short and the table small.
uint64_t hash_of(const uint32_t* set, uint32_t n)
{
    uint64_t h = 0xCBF29CE484222325ull;
    for (uint32_t i = 0; i < n; ++i) {
        h ^= set[i];
        h *= 0x100000001B3ull;
    }
    return h;
}

// Whether inst, which consumes a character, takes c: the test of the rounds.
bool takes(const regex_inst* inst, uint32_t c, bool ignore_case)
{
    switch (inst->type) {
    case op_char: return inst->rune == c || (ignore_case && inst->rune == regex_fold(c));
    case op_any: return c != 0; // the rounds' any_stop
    case op_any_nl: return true;
    case op_class: return inst->char_class->holds(c);
    case op_nclass: return !inst->char_class->holds(c);
    default: return false;
    }
}

class builder
{
public:
    builder(regex_dfa& dfa, const regex_program& prog) : _d(dfa), _prog(prog) {}

    void reset();
    int32_t start_of(const regex_inst* first);
    int32_t successor(uint32_t state, uint32_t c);

private:
    void close_over_stack();
    int32_t intern();
    void grow_index();

    regex_dfa& _d;
    const regex_program& _prog;
};

// Forgets every state and makes state 0, the empty set, for this program.
void builder::reset()
{
    _d.serial = _prog.serial;
    _d.given_up = false;
    _d.start_first = 0;
    _d.start_after = 0;
    _d.successors.reset();
    _d.accepting.reset();
    _d.set_at.reset();
    _d.sets.reset();
    _d.hashes.reset();
    uint32_t ninst = _prog.insts.size();
    if (_d.stamp.size() < ninst) {
        _d.stamp.alloc(ninst);
        memset(_d.stamp.ptr(), 0, sizeof(uint32_t) * ninst);
    }
    _d.index.alloc(64);
    memset(_d.index.ptr(), 0, sizeof(uint32_t) * 64);
    *_d.set_at.push() = 0;
    _d.build.reset();
    intern(); // state 0
    int32_t* dead = _d.successors.ptr();
    for (int i = 0; i < 256; ++i)
        dead[i] = 0;
}

// Closes the instructions on the stack over forks and group marks into build,
// sorted: the consuming instructions and op_end that the rounds would step.
void builder::close_over_stack()
{
    if (++_d.generation == 0) { // wrapped: stamps of old generations could collide
        memset(_d.stamp.ptr(), 0, sizeof(uint32_t) * _d.stamp.size());
        _d.generation = 1;
    }
    uint32_t gen = _d.generation;
    _d.build.reset();
    uint32_t i;
    while (_d.stack.pop(i)) {
        if (_d.stamp[i] == gen)
            continue;
        _d.stamp[i] = gen;
        const regex_inst* in = _prog.insts[i];
        switch (in->type) {
        case op_or:
            *_d.stack.push() = in->left->index;
            *_d.stack.push() = in->next->index;
            break;
        case op_open:
        case op_close:
        case op_nop:
            *_d.stack.push() = in->next->index;
            break;
        case op_char:
        case op_any:
        case op_any_nl:
        case op_class:
        case op_nclass:
        case op_end:
            *_d.build.push() = i;
            break;
        default: // no other code is stepped by the rounds either
            break;
        }
    }
    std::sort(_d.build.begin(), _d.build.end());
}

// The state of the set in build: found, or made. too_many when the limit is
// reached.
int32_t builder::intern()
{
    const uint32_t* set = _d.build.ptr();
    uint32_t n = _d.build.size();
    uint64_t h = hash_of(set, n);
    uint32_t mask = _d.index.size() - 1;
    for (uint32_t at = static_cast<uint32_t>(h) & mask;; at = (at + 1) & mask) {
        uint32_t id = _d.index[at];
        if (id == 0)
            break;
        --id;
        uint32_t from = _d.set_at[id];
        if (_d.hashes[id] == h && _d.set_at[id + 1] - from == n &&
            (n == 0 || memcmp(_d.sets.ptr() + from, set, sizeof(uint32_t) * n) == 0))
            return static_cast<int32_t>(id);
    }
    uint32_t id = _d.accepting.size();
    if (id >= regex_dfa_max_states)
        return too_many;
    bool accepts = false;
    if (n) {
        uint32_t* to = _d.sets.add(n);
        memcpy(to, set, sizeof(uint32_t) * n);
        for (uint32_t k = 0; k < n; ++k)
            accepts |= _prog.insts[set[k]]->type == op_end;
    }
    *_d.set_at.push() = _d.sets.size();
    *_d.accepting.push() = accepts;
    *_d.hashes.push() = h;
    int32_t* succ = _d.successors.add(256);
    for (int i = 0; i < 256; ++i)
        succ[i] = unknown;
    if (2 * (id + 1) > _d.index.size())
        grow_index();
    else
        for (uint32_t at = static_cast<uint32_t>(h) & mask;; at = (at + 1) & mask)
            if (_d.index[at] == 0) {
                _d.index[at] = id + 1;
                break;
            }
    return static_cast<int32_t>(id);
}

// Doubles the index and enters every state again; load stays below a half.
void builder::grow_index()
{
    uint32_t size = _d.index.size() * 2;
    _d.index.alloc(size);
    memset(_d.index.ptr(), 0, sizeof(uint32_t) * size);
    uint32_t mask = size - 1;
    for (uint32_t id = 0; id < _d.accepting.size(); ++id)
        for (uint32_t at = static_cast<uint32_t>(_d.hashes[id]) & mask;; at = (at + 1) & mask)
            if (_d.index[at] == 0) {
                _d.index[at] = id + 1;
                break;
            }
}

int32_t builder::start_of(const regex_inst* first)
{
    _d.stack.reset();
    *_d.stack.push() = first->index;
    close_over_stack();
    return intern();
}

// Where state goes on c: the next instructions of those in its set that take
// c, closed. Cached for c below 256.
int32_t builder::successor(uint32_t state, uint32_t c)
{
    _d.stack.reset();
    for (uint32_t k = _d.set_at[state]; k < _d.set_at[state + 1]; ++k) {
        const regex_inst* in = _prog.insts[_d.sets[k]];
        if (takes(in, c, _prog.ignore_case))
            *_d.stack.push() = in->next->index;
    }
    close_over_stack();
    int32_t id = intern();
    if (id >= 0 && c < 256)
        _d.successors[static_cast<size_t>(state) * 256 + c] = id;
    return id;
}

} // namespace

// The loop mirrors a round of the rounds: a state that accepts is a match
// ending here; the end of the input, a character cut off by it, or the empty
// set stop the scan where it stands.
bool regex_dfa_run(regex_dfa& dfa, const regex_program& prog, const regex_inst* first, const char* begin,
                   const char* p, const char* end, uint32_t mode, token& result)
{
    builder b(dfa, prog);
    if (dfa.serial != prog.serial)
        b.reset();
    if (dfa.given_up)
        return false;
    uint32_t& start = first == prog.first ? dfa.start_first : dfa.start_after;
    if (start == 0) {
        int32_t id = b.start_of(first);
        if (id < 0) {
            dfa.given_up = true;
            return false;
        }
        start = static_cast<uint32_t>(id) + 1;
    }

    uint32_t s = start - 1;
    const char* match_end = nullptr;
    const int32_t* succ = dfa.successors.ptr(); // moves only when a state is made
    const uint8_t* accepting = dfa.accepting.ptr();
    for (;;) {
        if (accepting[s])
            match_end = p;
        if (p == end)
            break;
        uint32_t c;
        uint32_t len;
        if (static_cast<unsigned char>(*p) < 0x80) {
            c = static_cast<unsigned char>(*p);
            len = 1;
        } else {
            c = regex_decode(p, end, len);
            if (len == 0)
                break;
        }
        int32_t t = c < 256 ? succ[static_cast<size_t>(s) * 256 + c] : unknown;
        if (t == unknown) {
            t = b.successor(s, c);
            if (t == too_many) {
                dfa.given_up = true;
                return false;
            }
            succ = dfa.successors.ptr();
            accepting = dfa.accepting.ptr();
        }
        if (t == 0)
            break;
        s = static_cast<uint32_t>(t);
        p += len;
    }
    if (!match_end)
        result = token();
    else if (mode == 1 && p != end)
        result = token(p, p);
    else
        result = token(begin, match_end);
    return true;
}

} // namespace velk
