// File: comm/regex.cpp
//
// Running a compiled program: all alternatives advance together, one input
// character per round. Each round takes the threads of the current list,
// steps each through the instructions that consume nothing (forks, group
// marks, anchors) and, where its instruction accepts the character, puts the
// instruction behind it on the next list. A list holds at most one thread per
// instruction (a later arrival overwrites an earlier one), so a round costs
// at most the size of the program, whatever the input.
//
// The result is the leftmost match, and of those from one start the longest;
// see regex.h for what each of the three runs gives.
#include "comm/regex.h"

#include "comm/regex_program.h"
#include "comm/regex_scratch.h"

#include <cstring>

namespace velk {

// -- Scratch -------------------------------------------------------------------------

regex_scratch& regex_scratch_of_thread()
{
    // Freed when the thread ends.
    thread_local regex_scratch scratch;
    return scratch;
}

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
    regex_thread* add(regex_list& l, const regex_inst* inst, const char* start, const char* end,
                      const token* from);
    void add_start(regex_list& l);
    void step(uint32_t i);
    void on_end(regex_thread& t, token* ts);
    bool skip_ahead();

    const regex_program& _prog;
    regex_scratch& _s;
    const char* _begin;
    const char* _end;
    token* _out;
    uint32_t _nsub;

    regex_list* _cur = nullptr;
    regex_list* _next = nullptr;
    const char* _p = nullptr;
    uint32_t _c = 0;      // the character at _p
    uint32_t _fc = 0;     // its fold, when the program ignores case
    bool _found = false;
    token _result;
};

// Puts inst on list l with the adding thread's match so far. A thread of that
// instruction already there is overwritten: the later arrival wins, with no
// comparison, which keeps one thread per instruction.
regex_thread* matcher::add(regex_list& l, const regex_inst* inst, const char* start, const char* end,
                           const token* from)
{
    uint32_t at = l.slot[inst->index];
    if (at >= l.count || l.threads[at].inst != inst) {
        at = l.count++;
        l.slot[inst->index] = at;
        l.threads[at].inst = inst;
    }
    regex_thread& t = l.threads[at];
    t.start = start;
    t.end = end;
    if (_nsub) {
        token* to = l.subs.ptr() + static_cast<size_t>(at) * _nsub;
        if (to != from)
            memcpy(static_cast<void*>(to), from, sizeof(token) * _nsub);
    }
    return &t;
}

// A new alternative from the first instruction at _p, with empty slots. One
// that is already there (a loop back to the start) is kept with its start,
// which is no later than _p; its group slots are cleared, slot 0 keeps its
// end (its begin is always null, so _p never lies before it).
void matcher::add_start(regex_list& l)
{
    const regex_inst* first = _prog.first;
    uint32_t at = l.slot[first->index];
    bool reused = at < l.count && l.threads[at].inst == first;
    if (!reused) {
        at = l.count++;
        l.slot[first->index] = at;
        l.threads[at] = {first, _p, _p};
    }
    if (_nsub) {
        token* to = l.subs.ptr() + static_cast<size_t>(at) * _nsub;
        for (uint32_t k = reused ? 1 : 0; k < _nsub; ++k)
            to[k] = token();
    }
}

// A match by thread t. Leftmost first, then longest. Slot 0 gets only the end:
// its begin is deliberately left null, the whole match being the result.
void matcher::on_end(regex_thread& t, token* ts)
{
    _found = true;
    t.end = _p;
    if (_nsub)
        ts[0] = token(ts[0].ptr(), _p);
    bool better = _result.is_empty() || t.start < _result.ptr() ||
                  (t.start == _result.ptr() && _p > _result.ptre());
    if (!better)
        return;
    _result = token(t.start, _p);
    for (uint32_t k = 0; k < _nsub; ++k)
        _out[k] = ts[k];
}

// Runs thread i of the current list: through the instructions that consume
// nothing, to one that takes the character (its next goes on the next list)
// or that ends the thread. The list may grow meanwhile (forks add to it), but
// never moves: it was sized to the program.
void matcher::step(uint32_t i)
{
    regex_list& cur = *_cur;
    regex_thread& t = cur.threads[i];
    token* ts = _nsub ? cur.subs.ptr() + static_cast<size_t>(i) * _nsub : nullptr;
    for (const regex_inst* in = t.inst;;) {
        switch (in->type) {
        case op_char:
            if (in->rune == _c || (_prog.ignore_case && in->rune == _fc))
                add(*_next, in->next, t.start, t.end, ts);
            return;
        case op_close:
            if (in->subid < _nsub)
                ts[in->subid] = token(ts[in->subid].ptr(), _p);
            in = in->next;
            continue;
        case op_open:
            if (in->subid < _nsub)
                ts[in->subid] = token(_p, _p);
            in = in->next;
            continue;
        case op_or:
            add(cur, in->left, t.start, t.end, ts);
            in = in->next;
            continue;
        case op_any:
            if (_c != _s.any_stop)
                add(*_next, in->next, t.start, t.end, ts);
            return;
        case op_any_nl:
            add(*_next, in->next, t.start, t.end, ts);
            return;
        case op_bol:
            if (_p != _begin && _p[-1] != '\n')
                return;
            in = in->next;
            continue;
        case op_eol:
            if (_p != _end && _c != 0 && _c != '\n')
                return;
            in = in->next;
            continue;
        case op_class:
            if (in->char_class->holds(_c))
                add(*_next, in->next, t.start, t.end, ts);
            return;
        case op_nclass:
            if (!in->char_class->holds(_c))
                add(*_next, in->next, t.start, t.end, ts);
            return;
        case op_end:
            on_end(t, ts);
            return;
        default:
            return;
        }
    }
}

// The start hint of a find: no thread is alive, so jump to where a match can
// begin. False when there is no such place: the run is over.
bool matcher::skip_ahead()
{
    if (_s.start_type == op_bol) {
        if (_p == _begin)
            return true;
        auto* nl = static_cast<const char*>(memchr(_p, '\n', static_cast<size_t>(_end - _p)));
        if (!nl)
            return false;
        _p = nl + 1;
        return true;
    }
    if (_p >= _end)
        return false;
    uint32_t rune = _s.start_rune;
    if (rune >= 0x80) { // decoded, without folding
        for (const char* q = _p; q < _end;) {
            uint32_t len;
            if (regex_decode(q, _end, len) == rune) {
                _p = q;
                return true;
            }
            if (len == 0)
                return false;
            q += len;
        }
        return false;
    }
    if (!_prog.ignore_case) {
        _p = static_cast<const char*>(memchr(_p, static_cast<int>(rune), static_cast<size_t>(_end - _p)));
        return _p != nullptr;
    }
    for (const char* q = _p; q < _end; ++q)
        if (regex_fold(static_cast<unsigned char>(*q)) == rune) {
            _p = q;
            return true;
        }
    return false;
}

// The rounds. Three ways out besides the end of the input:
// - no thread left and none can be added (a match found, or a run anchored at
//   the start): the scan stops where it is, which is what match looks at;
// - a character cut off by the end of the input: _p cannot advance past it,
//   so the round on it is the last one;
// - a find whose hint finds no further place to start.
token matcher::run()
{
    uint32_t ninst = _prog.insts.size();
    _s.lists[0].prepare(ninst, _nsub);
    _s.lists[1].prepare(ninst, _nsub);
    _s.any_stop = 0;
    _s.start_type = 0;
    _s.start_rune = 0;
    for (uint32_t k = 0; k < _nsub; ++k)
        _out[k] = token();
    if (_s.mode == 0) {
        if (_prog.first->type == op_char) {
            _s.start_type = op_char;
            _s.start_rune = _prog.first->rune;
        } else if (_prog.first->type == op_bol) {
            _s.start_type = op_bol;
        }
    }

    _p = _begin;
    bool check = _s.start_type != 0;
    bool first_round = true;
    _cur = &_s.lists[1];
    _next = &_s.lists[0];
    for (;;) {
        if (check && !skip_ahead())
            return _result;
        uint32_t len;
        _c = regex_decode(_p, _end, len);
        if (_prog.ignore_case)
            _fc = regex_fold(_c);
        std::swap(_cur, _next);
        _next->count = 0;
        if (!_found && (first_round || _s.mode == 0))
            add_start(*_cur);
        if (_cur->count == 0)
            break;
        for (uint32_t i = 0; i < _cur->count; ++i)
            step(i);
        if (_p == _end || len == 0)
            break;
        if (_next->count == 0 && (_found || _s.mode != 0))
            break;
        check = _s.start_type != 0 && _next->count == 0;
        _p += len;
        first_round = false;
    }
    if (_s.mode == 1 && _found && _p != _end)
        return token(_p, _p);
    return _result;
}

} // namespace

// -- regex -------------------------------------------------------------------------------

regex::regex(const token& pattern, bool literal, bool dot_all, bool ignore_case)
{
    compile(pattern, literal, ignore_case, dot_all);
}

regex::~regex()
{
    delete _program;
}

regex& regex::operator=(regex&& other) noexcept
{
    if (this != &other) {
        delete _program;
        _program = other._program;
        other._program = nullptr;
    }
    return *this;
}

void regex::compile(const token& pattern, bool literal, bool ignore_case, bool dot_all)
{
    regex_program* fresh = regex_compile_program(pattern, literal, ignore_case, dot_all);
    delete _program;
    _program = fresh;
}

token regex::run(const token& input, token* subs, uint32_t nsub, uint32_t mode) const
{
    if (!_program)
        return token(input.ptr(), input.ptr());
    if (!subs)
        nsub = 0;
    return matcher(*_program, regex_scratch_of_thread(), input, subs, nsub, mode).run();
}

token regex::find(const token& input, token* subs, uint32_t nsub) const { return run(input, subs, nsub, 0); }

token regex::match(const token& input, token* subs, uint32_t nsub) const { return run(input, subs, nsub, 1); }

token regex::leading(const token& input, token* subs, uint32_t nsub) const { return run(input, subs, nsub, 2); }

} // namespace velk
