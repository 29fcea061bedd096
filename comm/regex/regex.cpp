// File: comm/regex/regex.cpp
//
// Running a compiled program: all alternatives advance together, one input
// character per round. Each round takes the threads of the current list,
// steps each through the instructions that consume nothing (forks, group
// marks, anchors) and, where its instruction accepts the character, puts the
// instruction behind it on the next list. A list holds at most one thread per
// instruction (a later arrival overwrites an earlier one), so a round costs
// at most the size of the program, whatever the input.
//
// Runs anchored at the start without sub-match slots go through a per-thread
// memo of these rounds' states (regex_dfa.h) when the program allows; a
// leading line of plain characters is compared as bytes first. Both give what
// the rounds give. See regex.h for what each of the three runs gives.
#include "comm/regex/regex.h"

#include "comm/regex/regex_dfa.h"
#include "comm/regex/regex_program.h"
#include "comm/regex/regex_scratch.h"

#if defined(_WIN32)
#include "comm/alloc/commalloc.h"
#include "comm/os/thread.h"

#include <new>
#include <utility>
#endif

#include <cstring>

namespace velk {

// -- Scratch -------------------------------------------------------------------------

#if defined(_WIN32)
namespace {

void end_scratch(void* p) { delete static_cast<regex_scratch*>(p); }

// The slot of the threads' scratches. Made after the array space, so that it
// ends before it: its end takes the calling thread's scratch at once and
// the other threads' with the slot, while their arrays can still be freed.
struct scratch_slot
{
    uint32_t key = 0;

    scratch_slot()
    {
        comm_array_mspace_ensure();
        if (!os::tls_alloc_owned(key, &end_scratch))
            throw std::bad_alloc();
    }
    ~scratch_slot()
    {
        end_scratch(os::tls_get_owned(key));
        os::tls_set_owned(key, nullptr);
        os::tls_free_owned(key);
    }
};

} // namespace

// MinGW frees a thread's thread_local storage before it runs the destructors
// of the objects in it; the scratch lives on the heap instead, in a slot
// that ends it as the thread ends.
regex_scratch& regex_scratch_of_thread()
{
    static scratch_slot slot;
    auto* s = static_cast<regex_scratch*>(os::tls_get_owned(slot.key));
    if (!s) {
        s = new regex_scratch;
        os::tls_set_owned(slot.key, s);
    }
    return *s;
}
#else
regex_scratch& regex_scratch_of_thread()
{
    // Freed when the thread ends.
    thread_local regex_scratch scratch;
    return scratch;
}
#endif

void regex_list::prepare(uint32_t ninst, uint32_t nsub)
{
    if (threads.size() < ninst)
        threads.alloc(ninst);
    if (slot.size() < ninst) {
        slot.alloc(ninst);
        memset(slot.ptr(), 0, sizeof(uint32_t) * ninst); // stale but defined
    }
    uint64_t nslots = static_cast<uint64_t>(ninst) * nsub;
    if (subs.size() < nslots)
        subs.alloc(static_cast<uint32_t>(nslots));
    count = 0;
}

// -- The run ---------------------------------------------------------------------------

namespace {

// Puts inst on list l with the adding thread's match so far. A thread of that
// instruction already there is overwritten: the later arrival wins, with no
// comparison, which keeps one thread per instruction. The list never moves
// (it was sized to the program), so the adding thread's slots stay put.
template <bool SUBS>
inline void add(regex_list& l, const regex_inst* inst, const char* start, const char* end, const token* from,
                uint32_t nsub)
{
    uint32_t at = l.slot[inst->index];
    regex_thread* threads = l.threads.ptr();
    if (at >= l.count || threads[at].inst != inst) {
        at = l.count++;
        l.slot[inst->index] = at;
        threads[at].inst = inst;
    }
    threads[at].start = start;
    threads[at].end = end;
    if constexpr (SUBS) {
        token* to = l.subs.ptr() + static_cast<size_t>(at) * nsub;
        if (to != from)
            memcpy(static_cast<void*>(to), from, sizeof(token) * nsub);
    }
}

class matcher
{
public:
    matcher(const regex_program& prog, regex_scratch& s, const token& input, token* subs, uint32_t nsub,
            uint32_t mode)
        : _prog(prog), _s(s), _begin(input.ptr()), _end(input.ptre()), _out(subs), _nsub(nsub)
    {
        _s.mode = mode;
    }

    token run();

private:
    template <bool SUBS, bool ICASE>
    token rounds(const regex_inst* first, const char* p, const char* start);
    void add_start(regex_list& l, const regex_inst* first, const char* start);
    bool skip_ahead(const char*& p) const;
    int prefix_verdict() const;

    const regex_program& _prog;
    regex_scratch& _s;
    const char* _begin;
    const char* _end;
    token* _out;
    uint32_t _nsub;
};

// A new alternative from the first instruction, started at start (the
// position of the round), with empty slots. One that is already there (a loop
// back to the start) is kept with its start, which is no later; its group
// slots are cleared, slot 0 keeps its end (its begin is always null, so the
// position never lies before it).
void matcher::add_start(regex_list& l, const regex_inst* first, const char* start)
{
    uint32_t at = l.slot[first->index];
    bool reused = at < l.count && l.threads[at].inst == first;
    if (!reused) {
        at = l.count++;
        l.slot[first->index] = at;
        l.threads[at] = {first, start, start};
    }
    if (_nsub) {
        token* to = l.subs.ptr() + static_cast<size_t>(at) * _nsub;
        for (uint32_t k = reused ? 1 : 0; k < _nsub; ++k)
            to[k] = token();
    }
}

// The start hint of a find: no thread is alive, so move p to where a match
// can begin. False when there is no such place: the run is over.
bool matcher::skip_ahead(const char*& p) const
{
    if (_s.start_type == op_bol) {
        if (p == _begin)
            return true;
        auto* nl = static_cast<const char*>(memchr(p, '\n', static_cast<size_t>(_end - p)));
        if (!nl)
            return false;
        p = nl + 1;
        return true;
    }
    if (p >= _end)
        return false;
    uint32_t rune = _s.start_rune;
    if (rune >= 0x80) { // decoded, without folding
        for (const char* q = p; q < _end;) {
            uint32_t len;
            if (regex_decode(q, _end, len) == rune) {
                p = q;
                return true;
            }
            if (len == 0)
                return false;
            q += len;
        }
        return false;
    }
    if (!_prog.ignore_case) {
        p = static_cast<const char*>(memchr(p, static_cast<int>(rune), static_cast<size_t>(_end - p)));
        return p != nullptr;
    }
    for (const char* q = p; q < _end; ++q)
        if (regex_fold(static_cast<unsigned char>(*q)) == rune) {
            p = q;
            return true;
        }
    return false;
}

// For runs anchored at the start (match, leading): the program's leading
// characters are one thread walking a straight line, so they can be compared
// as bytes. 1: they are there; 0: they are not, and nothing can match; -1: a
// byte of 0x80 or more stands among them, which may decode to one of them,
// so the rounds must decide.
int matcher::prefix_verdict() const
{
    const dynarray<char>& prefix = _prog.prefix;
    uint32_t n = prefix.size();
    const char* p = _begin;
    for (uint32_t i = 0; i < n; ++i) {
        if (p + i >= _end)
            return 0;
        auto b = static_cast<unsigned char>(p[i]);
        if (b >= 0x80)
            return -1;
        uint32_t c = _prog.ignore_case ? regex_fold(b) : b;
        if (c != static_cast<unsigned char>(prefix[i]))
            return 0;
    }
    return 1;
}

// The rounds, from p with the first thread on first, started at start (null:
// at p; else where a prefix passed over began). Three ways out besides
// the end of the input:
// - no thread left and none can be added (a match found, or a run anchored at
//   the start): the scan stops where it is, which is what match looks at;
// - a character cut off by the end of the input: p cannot advance past it,
//   so the round on it is the last one;
// - a find whose hint finds no further place to start.
// Each thread is walked here rather than in a function of its own, so that
// the position and the character stay in registers.
template <bool SUBS, bool ICASE>
token matcher::rounds(const regex_inst* first, const char* p, const char* start)
{
    const char* const begin = _begin;
    const char* const end = _end;
    const uint32_t nsub = SUBS ? _nsub : 0;
    const uint32_t mode = _s.mode;
    const uint32_t any_stop = _s.any_stop;
    const bool hint = _s.start_type != 0;
    const char* rs = nullptr; // the result so far
    const char* re = nullptr;
    bool found = false;
    bool check = hint;
    bool first_round = true;
    regex_list* cur = &_s.lists[1];
    regex_list* next = &_s.lists[0];
    for (;;) {
        if (check && !skip_ahead(p))
            return token(rs, re);
        uint32_t len;
        uint32_t c;
        if (p < end && static_cast<unsigned char>(*p) < 0x80) {
            c = static_cast<unsigned char>(*p);
            len = 1;
        } else {
            c = regex_decode(p, end, len);
        }
        uint32_t fc = ICASE ? regex_fold(c) : c;
        std::swap(cur, next);
        next->count = 0;
        if (!found && (first_round || mode == 0))
            add_start(*cur, first, first_round && start ? start : p);
        if (cur->count == 0)
            break;
        regex_thread* threads = cur->threads.ptr();
        for (uint32_t i = 0; i < cur->count; ++i) {
            regex_thread& t = threads[i];
            const char* tstart = t.start;
            const char* tend = t.end;
            token* ts = SUBS ? cur->subs.ptr() + static_cast<size_t>(i) * nsub : nullptr;
            for (const regex_inst* in = t.inst;;) {
                switch (in->type) {
                case op_char:
                    if (in->rune == c || (ICASE && in->rune == fc))
                        add<SUBS>(*next, in->next, tstart, tend, ts, nsub);
                    break;
                case op_close:
                    if (SUBS && in->subid < nsub)
                        ts[in->subid] = token(ts[in->subid].ptr(), p);
                    in = in->next;
                    continue;
                case op_open:
                    if (SUBS && in->subid < nsub)
                        ts[in->subid] = token(p, p);
                    in = in->next;
                    continue;
                case op_or:
                    add<SUBS>(*cur, in->left, tstart, tend, ts, nsub);
                    in = in->next;
                    continue;
                case op_any:
                    if (c != any_stop)
                        add<SUBS>(*next, in->next, tstart, tend, ts, nsub);
                    break;
                case op_any_nl:
                    add<SUBS>(*next, in->next, tstart, tend, ts, nsub);
                    break;
                case op_bol:
                    if (p != begin && p[-1] != '\n')
                        break;
                    in = in->next;
                    continue;
                case op_eol:
                    if (p != end && c != 0 && c != '\n')
                        break;
                    in = in->next;
                    continue;
                case op_class:
                    if (in->char_class->holds(c))
                        add<SUBS>(*next, in->next, tstart, tend, ts, nsub);
                    break;
                case op_nclass:
                    if (!in->char_class->holds(c))
                        add<SUBS>(*next, in->next, tstart, tend, ts, nsub);
                    break;
                case op_end: {
                    // Leftmost first, then longest. Slot 0 gets only the end:
                    // its begin is deliberately left null, the whole match
                    // being the result.
                    found = true;
                    t.end = p;
                    if (SUBS)
                        ts[0] = token(ts[0].ptr(), p);
                    if (rs == re || tstart < rs || (tstart == rs && p > re)) {
                        rs = tstart;
                        re = p;
                        for (uint32_t k = 0; k < nsub; ++k)
                            _out[k] = ts[k];
                    }
                    break;
                }
                default:
                    break;
                }
                break;
            }
        }
        if (p == end || len == 0)
            break;
        if (next->count == 0 && (found || mode != 0))
            break;
        check = hint && next->count == 0;
        p += len;
        first_round = false;
    }
    if (mode == 1 && found && p != end)
        return token(p, p);
    return token(rs, re);
}

token matcher::run()
{
    for (uint32_t k = 0; k < _nsub; ++k)
        _out[k] = token();
    _s.any_stop = 0;
    _s.start_type = 0;
    _s.start_rune = 0;
    const regex_inst* first = _prog.first;
    const char* p = _begin;
    const char* start = nullptr; // the first thread's start when not p
    if (_s.mode == 0) {
        if (first->type == op_char) {
            _s.start_type = op_char;
            _s.start_rune = first->rune;
        } else if (first->type == op_bol) {
            _s.start_type = op_bol;
        }
    } else if (!_prog.prefix.is_empty()) {
        int verdict = prefix_verdict();
        if (verdict == 0)
            return token();
        if (verdict == 1) {
            // The rounds go on from behind the prefix with the one thread
            // that walked it: started at the beginning, slots untouched.
            p += _prog.prefix.size();
            first = _prog.after_prefix;
            start = _begin;
        }
    }

    if (regex_dfa_fits(_prog, _s.mode, _nsub)) {
        token result;
        if (regex_dfa_run(_s.dfa, _prog, first, _begin, p, _end, _s.mode, result))
            return result;
    }

    uint32_t ninst = _prog.insts.size();
    _s.lists[0].prepare(ninst, _nsub);
    _s.lists[1].prepare(ninst, _nsub);
    if (_nsub)
        return _prog.ignore_case ? rounds<true, true>(first, p, start) : rounds<true, false>(first, p, start);
    return _prog.ignore_case ? rounds<false, true>(first, p, start) : rounds<false, false>(first, p, start);
}

// Frees p and every program it replaced.
void free_programs(regex_program* p)
{
    while (p)
        delete std::exchange(p, p->superseded);
}

} // namespace

// -- regex -------------------------------------------------------------------------------

regex::regex(const token& pattern, bool literal, bool dot_all, bool ignore_case)
{
    compile(pattern, literal, ignore_case, dot_all);
}

regex::~regex()
{
    free_programs(_program.load(std::memory_order_relaxed));
}

regex& regex::operator=(regex&& other) noexcept
{
    if (this != &other)
        free_programs(_program.exchange(other._program.exchange(nullptr, std::memory_order_relaxed),
                                        std::memory_order_relaxed));
    return *this;
}

void regex::compile(const token& pattern, bool literal, bool ignore_case, bool dot_all)
{
    regex_program* fresh = regex_compile_program(pattern, literal, ignore_case, dot_all);
    // Runs on other threads may be on the old program: it stays, behind the
    // new one, until the regex ends. Readers never look at superseded, so it
    // may be written after the program is published.
    fresh->superseded = _program.exchange(fresh, std::memory_order_acq_rel);
}

token regex::run(const token& input, token* subs, uint32_t nsub, uint32_t mode) const
{
    const regex_program* prog = program(); // read once: a compile may replace it
    if (!prog)
        return token(input.ptr(), input.ptr());
    if (!subs)
        nsub = 0;
    return matcher(*prog, regex_scratch_of_thread(), input, subs, nsub, mode).run();
}

token regex::find(const token& input, token* subs, uint32_t nsub) const { return run(input, subs, nsub, 0); }

token regex::match(const token& input, token* subs, uint32_t nsub) const { return run(input, subs, nsub, 1); }

token regex::leading(const token& input, token* subs, uint32_t nsub) const { return run(input, subs, nsub, 2); }

} // namespace velk
