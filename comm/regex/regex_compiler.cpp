// File: comm/regex/regex_compiler.cpp
//
// From a pattern to a program of linked instructions: an operator-precedence
// parser with two stacks. Operands are fragments (first, last) of the program
// under construction; an operator waits on its stack until one of lower
// precedence arrives, then joins the fragments on the operand stack. The
// precedence of an operator is its code (regex_program.h), so "|" binds
// loosest, then concatenation, then the repetitions.
//
// Invariant: every fragment's last instruction has its next still open; the
// operator that joins it fills it in. At the end, op_end closes the whole and
// the join points (op_nop) are skipped over, so that a run never meets one.
#include "comm/charstr.h"
#include "comm/exception.h"
#include "comm/regex/regex_program.h"
#include "comm/regex/regex_scratch.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstring>
#include <new>

namespace velk {

// -- The program ---------------------------------------------------------------------

regex_program::~regex_program()
{
    for (regex_inst* i : insts)
        global_release(i);
    for (regex_class* c : classes) {
        c->~regex_class();
        global_release(c);
    }
}

namespace {

[[noreturn]] void fail(const char* text)
{
    throw exception(token(text));
}

// The runtime library's character tests, for the values they are defined on.
bool is_alpha(uint32_t c) { return c < 256 && ::isalpha(static_cast<int>(c)); }
uint32_t to_upper(uint32_t c) { return c < 256 ? static_cast<uint32_t>(::toupper(static_cast<int>(c))) : c; }

struct range
{
    uint32_t low;
    uint32_t high;
};

class compiler
{
public:
    compiler(regex_scratch& s, bool literal, bool ignore_case, bool dot_all)
        : _s(s), _literal(literal), _ignore_case(ignore_case), _dot_all(dot_all)
    {}

    void run();

private:
    // -- Reading the pattern
    uint32_t read_raw();
    uint32_t read_char(bool& quoted);
    uint32_t lex();
    uint32_t lex_class();

    // -- The two stacks
    void on_operator(uint32_t t);
    void on_operand(uint32_t t);
    void evaluate(uint32_t priority);
    regex_operand pop_operand(char op_char);
    void push_operand(regex_inst* first, regex_inst* last) { *_s.operands.push() = {first, last}; }

    regex_inst* new_inst(uint32_t type);
    void skip_join_points();
    void summarise();

    regex_scratch& _s;
    bool _literal;
    bool _ignore_case;
    bool _dot_all;
};

// -- Reading -------------------------------------------------------------------------

// The next character of the pattern; 0 at its end and ever after a 0. A
// sequence cut off by the end takes the rest of the pattern with it.
uint32_t compiler::read_raw()
{
    if (_s.pattern_done)
        return 0;
    const char* p = _s.pattern.ptr();
    const char* e = _s.pattern.ptre();
    uint32_t len;
    uint32_t c = regex_decode(p, e, len);
    if (len == 0)
        len = static_cast<uint32_t>(e - p); // the end, or a cut-off sequence
    _s.pattern = token(p + len, e);
    if (c == 0)
        _s.pattern_done = true;
    return c;
}

// A backslash makes the character behind it quoted: it stands for itself.
uint32_t compiler::read_char(bool& quoted)
{
    uint32_t c = read_raw();
    quoted = c == '\\';
    if (quoted)
        c = read_raw();
    return c;
}

uint32_t compiler::lex()
{
    bool quoted;
    uint32_t c = read_char(quoted);
    if (_literal || quoted) {
        if (c == 0)
            return op_end;
        _s.current_rune = c;
        return op_char;
    }
    switch (c) {
    case 0: return op_end;
    case '*': return op_star;
    case '+': return op_plus;
    case '?': return op_quest;
    case '|': return op_or;
    case '(': return op_open;
    case ')': return op_close;
    case '^': return op_bol;
    case '$': return op_eol;
    case '.': return _dot_all ? op_any_nl : op_any;
    case '[': return lex_class();
    default: _s.current_rune = c; return op_char;
    }
}

// A class, after its "[". Ranges fold case when ignore_case is on and both
// bounds are letters: the pair is lowered and its upper-case twin added.
// Single characters deliberately do not fold, so that with ignore_case "[a]"
// accepts only a while "[a-a]" accepts a and A. A negated class starts with
// the pair of the newline, so that it never matches one.
uint32_t compiler::lex_class()
{
    auto* cls = static_cast<regex_class*>(global_alloc(sizeof(regex_class)));
    if (!cls)
        throw std::bad_alloc();
    new (cls) regex_class;
    if (!_s.program->classes.push(cls)) {
        cls->~regex_class();
        global_release(cls);
        throw std::bad_alloc();
    }
    _s.current_class = cls;

    uint32_t type = op_class;
    dynarray<range> work;
    bool quoted;
    uint32_t c = read_char(quoted);
    if (!quoted && c == '^') {
        type = op_nclass;
        *work.push() = {'\n', '\n'};
        c = read_char(quoted);
    }
    for (;; c = read_char(quoted)) {
        if (c == 0)
            fail("malformed '[]'");
        if (!quoted && c == ']')
            break;
        if (!quoted && c == '-') {
            if (work.is_empty())
                fail("malformed '[]'");
            bool high_quoted;
            uint32_t high = read_char(high_quoted);
            if (high == 0 || (!high_quoted && high == ']'))
                fail("malformed '[]'");
            range& r = work.last();
            r.high = high;
            if (_ignore_case && is_alpha(r.low) && is_alpha(r.high)) {
                r.low = regex_fold(r.low);
                r.high = regex_fold(r.high);
                range upper = {to_upper(r.low), to_upper(r.high)};
                *work.push() = upper;
            }
            continue;
        }
        *work.push() = {c, c};
    }

    // Sorted by the low bound, then merged: a pair that starts within the last
    // one kept extends it. Pairs that merely touch stay apart.
    std::stable_sort(work.begin(), work.end(), [](const range& a, const range& b) { return a.low < b.low; });
    for (const range& r : work) {
        dynarray<uint32_t>& kept = cls->ranges;
        if (!kept.is_empty() && r.low <= kept.last()) {
            if (r.high > kept.last())
                kept.last() = r.high;
            continue;
        }
        uint32_t* pair = kept.add(2);
        pair[0] = r.low;
        pair[1] = r.high;
    }
    return type;
}

// -- The stacks ------------------------------------------------------------------------

regex_inst* compiler::new_inst(uint32_t type)
{
    auto* inst = static_cast<regex_inst*>(global_alloc(sizeof(regex_inst)));
    if (!inst)
        throw std::bad_alloc();
    inst->type = type;
    inst->index = _s.program->insts.size();
    inst->left = nullptr;
    inst->next = nullptr;
    if (!_s.program->insts.push(inst)) {
        global_release(inst);
        throw std::bad_alloc();
    }
    return inst;
}

void compiler::on_operator(uint32_t t)
{
    if (t == op_close && --_s.open_parens < 0)
        fail("unmatched right paren");
    if (t == op_open) {
        ++_s.next_subid;
        ++_s.open_parens;
        if (_s.last_was_operand)
            on_operator(op_cat);
    } else {
        evaluate(t);
    }
    if (t != op_close)
        *_s.operators.push() = {t, _s.next_subid};
    // A repetition or a closed group ends an operand, as a character does.
    _s.last_was_operand = t == op_star || t == op_plus || t == op_quest || t == op_close;
}

void compiler::on_operand(uint32_t t)
{
    if (_s.last_was_operand)
        on_operator(op_cat);
    regex_inst* inst = new_inst(t);
    if (t == op_class || t == op_nclass)
        inst->char_class = _s.current_class;
    else if (t == op_char)
        inst->rune = _ignore_case ? regex_fold(_s.current_rune) : _s.current_rune;
    push_operand(inst, inst);
    _s.last_was_operand = true;
}

regex_operand compiler::pop_operand(char op_char)
{
    regex_operand a;
    if (!_s.operands.pop(a)) {
        charstr text;
        text << "missing operand for " << op_char;
        throw exception(token(text));
    }
    return a;
}

// Joins fragments while the operator on top binds at least as tightly as
// priority; ")" joins down to its "(" and stops there.
void compiler::evaluate(uint32_t priority)
{
    for (;;) {
        if (_s.operators.is_empty())
            fail("can't happen: operator stack underflow");
        if (priority != op_close && _s.operators.last().code < priority)
            return;
        regex_operator op;
        _s.operators.pop(op);
        switch (op.code) {
        case op_open: {
            regex_operand a = pop_operand('(');
            regex_inst* close = new_inst(op_close);
            close->subid = op.subid;
            a.last->next = close;
            regex_inst* open = new_inst(op_open);
            open->subid = op.subid;
            open->next = a.first;
            push_operand(open, close);
            return;
        }
        case op_or: {
            regex_operand b = pop_operand('|');
            regex_operand a = pop_operand('|');
            regex_inst* join = new_inst(op_nop);
            a.last->next = join;
            b.last->next = join;
            regex_inst* fork = new_inst(op_or);
            fork->left = a.first;
            fork->next = b.first;
            push_operand(fork, join);
            break;
        }
        case op_cat: {
            regex_operand b = pop_operand(0);
            regex_operand a = pop_operand(0);
            a.last->next = b.first;
            push_operand(a.first, b.last);
            break;
        }
        case op_star:
        case op_plus: {
            regex_operand a = pop_operand(op.code == op_star ? '*' : '+');
            regex_inst* fork = new_inst(op_or);
            fork->left = a.first;
            a.last->next = fork;
            push_operand(op.code == op_star ? fork : a.first, fork);
            break;
        }
        case op_quest: {
            regex_operand a = pop_operand('?');
            regex_inst* join = new_inst(op_nop);
            regex_inst* fork = new_inst(op_or);
            fork->left = a.first;
            fork->next = join;
            a.last->next = join;
            push_operand(fork, join);
            break;
        }
        default:
            fail("unknown operator in evaluntil");
        }
    }
}

// Every next that leads to a join point leads past it. A fork's left never
// does: it is the first of a fragment, and no fragment starts with a join.
void compiler::skip_join_points()
{
    dynarray<regex_inst*>& insts = _s.program->insts;
    for (uint32_t i = 0; i + 1 < insts.size(); ++i) {
        const regex_inst* to = insts[i]->next;
        while (to && to->type == op_nop)
            to = to->next;
        insts[i]->next = to;
    }
}

// What the matcher wants to know of the whole program: whether it has
// anchors, and its prefix: the straight line of characters at the start,
// first, which nothing jumps back to, and each character behind it that only
// its predecessor reaches. Join points are left out of the count: nothing
// reaches them any more.
void compiler::summarise()
{
    static std::atomic<uint64_t> serials{0};
    regex_program& prog = *_s.program;
    prog.serial = ++serials;
    dynarray<uint32_t> reached;
    uint32_t* in_degree = reached.add(prog.insts.size());
    memset(in_degree, 0, sizeof(uint32_t) * prog.insts.size());
    for (const regex_inst* i : prog.insts) {
        if (i->type == op_nop)
            continue;
        if (i->type == op_bol || i->type == op_eol)
            prog.has_anchors = true;
        if (i->next)
            ++in_degree[i->next->index];
        if (i->type == op_or)
            ++in_degree[i->left->index];
    }
    const regex_inst* in = prog.first;
    for (uint32_t allowed = 0; in->type == op_char && in->rune < 0x80 && in_degree[in->index] == allowed;
         allowed = 1) {
        *prog.prefix.push() = static_cast<char>(in->rune);
        in = in->next;
    }
    prog.after_prefix = in;
}

// The whole compile. Open parentheses are counted before the closing
// evaluation, so that a pattern that ends inside a group says so ("(" is
// "unmatched left paren", not a missing operand).
void compiler::run()
{
    *_s.operators.push() = {op_char, 0}; // the floor, below op_start
    for (uint32_t t = lex(); t != op_end; t = lex()) {
        if ((t & regex_op_kind_mask) == regex_op_operator)
            on_operator(t);
        else
            on_operand(t);
    }
    if (_s.open_parens != 0)
        fail("unmatched left paren");
    evaluate(op_start);
    on_operand(op_end);
    evaluate(op_start);
    _s.program->first = _s.operands[0].first;
    _s.operands.reset();
    skip_join_points();
    summarise();
}

} // namespace

// The stacks start empty for every compile, and a failed compile frees all it
// made, instructions and classes included: nothing of it reaches the next one.
regex_program* regex_compile_program(const token& pattern, bool literal, bool ignore_case, bool dot_all)
{
    regex_scratch& s = regex_scratch_of_thread();
    s.operands.reset();
    s.operators.reset();
    s.pattern = pattern;
    s.pattern_done = false;
    s.next_subid = 0;
    s.open_parens = 0;
    s.last_was_operand = false;
    s.current_class = nullptr;
    s.program = new regex_program;
    s.program->ignore_case = ignore_case;
    try {
        compiler(s, literal, ignore_case, dot_all).run();
    } catch (...) {
        delete s.program;
        s.program = nullptr;
        s.operands.reset();
        s.operators.reset();
        throw;
    }
    regex_program* done = s.program;
    s.program = nullptr;
    return done;
}

} // namespace velk
