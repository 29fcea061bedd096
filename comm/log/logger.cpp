// The logger: messages from the pool, their delivery at the composer's last
// release, the writer's queue and thread, and the writing of one line.
//
// Invariants: a message in the queue has no logger (it is delivered) and
// one reference, the queue's. Only one drain writes at a time, so that the
// lines of one composer reach a file in the order they were delivered.
#include "comm/log/logger.h"

#include "comm/alloc/commalloc.h"
#include "comm/os/console.h"
#include "comm/singleton.h"
#include "comm/timer.h"
#include "comm/zstring.h"

#include <atomic>
#include <cstring>
#include <new>
#include <utility>

namespace velk {

namespace {

// The places that the logger's singletons give their manager, for reports:
// the fallback logger's is that of the registry's front, where the log call
// began, and is the same in every build.
constexpr const char* console_logger_place = "comm/interface";
constexpr int32_t console_logger_line = 529;
constexpr const char* logger_place = "comm/log/logger";
// The logger's own registration of the array space, process-wide; its line
// is the same in every build, so that reports from all modules agree.
constexpr int32_t logger_array_space_line = 227;

// A new message reserves this much text, so that a line of usual length
// never grows its buffer.
constexpr uint32_t message_reserve = 128;

// The gathered text of a file is written out at this size even in the
// middle of a drain.
constexpr uint32_t gather_limit = 64 * 1024;

std::atomic<bool> debugger_copy{false};

struct level_word
{
    token word;
    int32_t level;
};

// In the order they are tried: "warn:" before "warning:", and "msg:" (3)
// after "info:" (4), as the levels have always been read.
constexpr level_word level_words[] = {
    {"error:", 1}, {"warn:", 2}, {"warning:", 2}, {"info:", 4},
    {"msg:", 3},   {"dbg:", 5},  {"debug:", 5},   {"perf:", 6},
};

void append_2digits(charstr& out, uint64_t v)
{
    out << static_cast<char>('0' + v / 10 % 10) << static_cast<char>('0' + v % 10);
}

} // namespace

// -- Levels and the time format --------------------------------------------------

token log_level_prefix(int32_t type)
{
    static constexpr token prefixes[] = {"FATAL: ", "ERROR: ", "WARNING: ", "INFO: ",
                                         "INFO: ",  "DEBUG: ", "PERF: "};
    return type >= 0 && type <= 6 ? prefixes[type] : token();
}

int32_t log_level_from_text(token& text)
{
    int32_t level = 4;
    for (const level_word& w : level_words) {
        if (text.consume_prefix_icase(w.word)) {
            level = w.level;
            break;
        }
    }
    const char* p = text.ptr();
    const char* e = text.ptre();
    while (p < e && (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r'))
        ++p;
    text = token(p, e);
    return level;
}

int32_t log_console_attribute(int32_t type)
{
    static constexpr int32_t attributes[] = {13, 12, 14, 15, -1, 3, 10};
    return type >= 0 && type <= 6 ? attributes[type] : 112;
}

void append_log_time(charstr& out, uint64_t ms, bool with_ms, int32_t fields)
{
    if (fields < 0)
        return;
    uint64_t s = with_ms ? ms / 1000 : ms;
    if (fields >= 4) {
        out << s / 86400 << 'd';
        append_2digits(out, s / 3600 % 24);
        out << ':';
        append_2digits(out, s / 60 % 60);
        out << ':';
        append_2digits(out, s % 60);
    } else if (fields == 3) {
        out << s / 3600 << ':';
        append_2digits(out, s / 60 % 60);
        out << ':';
        append_2digits(out, s % 60);
    } else if (fields == 2) {
        uint64_t m = s / 60;
        if (m < 10)
            out << '0';
        out << m << ':';
        append_2digits(out, s % 60);
    } else if (fields == 1) {
        if (s < 10)
            out << '0';
        out << s;
    }
    if (with_ms) {
        uint64_t f = ms % 1000;
        out << '.' << static_cast<char>('0' + f / 100) << static_cast<char>('0' + f / 10 % 10)
            << static_cast<char>('0' + f % 10);
    }
}

// -- The message pool --------------------------------------------------------------------

namespace {

// The module's pool; the messages stored in it at the end go with it.
struct message_pool
{
    pool<policy_msg*> messages;

    ~message_pool()
    {
        while (policy_msg* m = messages.create_instance())
            delete m;
    }
};

message_pool* the_pool = nullptr;

struct pool_lifetime
{
    // The messages' text lies in the array space: it must outlive them. A
    // module whose first array use is its logger shares the process's space.
    pool_lifetime()
    {
        comm_array_mspace_ensure_shared(logger_place, logger_array_space_line);
        the_pool = register_singleton_of<message_pool>(true, nullptr, 0);
    }
    ~pool_lifetime() { remove_singleton(std::exchange(the_pool, nullptr)); }
};

} // namespace

pool<policy_msg*>& log_message_pool()
{
    static pool_lifetime lifetime;
    return the_pool->messages;
}

// -- policy_msg ----------------------------------------------------------------------------

// Delivered messages go back to the pool; one whose composer let go is
// delivered now. A pool that can't take it (no node to be had) lets it go.
void policy_msg::release_hook()
{
    if (_msg->_logger) {
        logger::deliver(this, _msg);
        return;
    }
    // The file's reference goes when the message is taken again, on the
    // composer's thread, which also takes the next one: the file's counter
    // stays in one thread's cache instead of bouncing with the writer's.
    try {
        _pool->release_instance(this);
    } catch (const std::bad_alloc&) {
        delete this;
    }
}

// -- The log file ----------------------------------------------------------------------------

namespace {

// One raw write of [p, p + len) to f; what the file doesn't take is dropped.
// A full disk or a size limit would only refuse the rest again (or raise
// SIGXFSZ), and a log line must not fail the process that logs it. One call
// takes at most 2^32 - 1 bytes: a longer pending text is cut there too.
void write_once(filestream& f, const char* p, uint64_t len)
{
    (void)f.write_raw(p, len); // a short or failed write counts as done
}

} // namespace

// A failure to open, even for want of memory for the name, counts as not
// open: the text gathers in pending and the next message tries again.
bool logger_file::ensure_open()
{
    if (is_open())
        return true;
    if (_name.is_empty())
        return false;
    try {
        if (open(zstring(_name.c_str()), "wct"))
            return false;
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (!_pending.is_empty()) {
        write_once(*this, _pending.ptr(), _pending.lens());
        charstr().swap(_pending); // frees it
    }
    return true;
}

void logger_file::write_gathered()
{
    if (_gathered.is_empty())
        return;
    write_once(*this, _gathered.ptr(), _gathered.lens());
    _gathered.reset();
}

// -- Filters ------------------------------------------------------------------------------------

log_filter_slots::~log_filter_slots()
{
    for (uint64_t w = 0; w < _nwords; ++w) {
        uint64_t bits = _used[w];
        for (uint32_t b = 0; bits; ++b, bits >>= 1)
            if (bits & 1)
                delete _pages[w / page_words][(w % page_words) * 64 + b].filter;
    }
    for (slot* page : _pages)
        delete[] page;
}

uint32_t log_filter_slots::add(log_filter* f, const token& source, int32_t level)
{
    uint64_t w = 0;
    while (w < _nwords && _used[w] == ~uint64_t(0))
        ++w;
    try {
        if (w == _nwords) {
            if (w % page_words == 0)
                *_pages.add(1) = new slot[page_slots]();
            *_used.add(1) = 0;
            ++_nwords;
        }
        uint32_t b = static_cast<uint32_t>(__builtin_ctzll(~_used[w]));
        slot& s = _pages[w / page_words][(w % page_words) * 64 + b];
        s.source = source;
        s.level = level;
        s.filter = f;
        _used[w] |= uint64_t(1) << b;
        return static_cast<uint32_t>(w * 64 + b);
    } catch (...) {
        delete f;
        throw;
    }
}

bool log_filter_slots::remove(uint32_t index)
{
    uint64_t w = index / 64;
    uint64_t bit = uint64_t(1) << (index % 64);
    if (w >= _nwords || !(_used[w] & bit))
        return false;
    slot& s = _pages[w / page_words][(w % page_words) * 64 + index % 64];
    delete std::exchange(s.filter, nullptr);
    _used[w] &= ~bit;
    return true;
}

template <class F>
void log_filter_slots::walk(F f) const
{
    for (uint64_t page = 0; page * page_words < _nwords; ++page) {
        for (uint64_t k = 0; k < page_words && page * page_words + k < _nwords; ++k) {
            uint64_t w = page * page_words + k;
            for (uint32_t b = 0; b < 64; ++b) {
                uint64_t bits = _used.ptr()[w]; // again after each call
                if (!(bits >> b))
                    break;
                if (bits & (uint64_t(1) << b)) {
                    const slot& s = _pages.ptr()[page][k * 64 + b];
                    f(s.filter, s.source, s.level);
                }
            }
        }
    }
}

// -- logger -------------------------------------------------------------------------------------

logger::logger(bool stdout_copy, bool make_file) : _stdout_copy(stdout_copy)
{
    log_writer::instance().ensure_running();
    if (make_file)
        this->make_file();
}

logger::~logger() = default;

void logger::make_file()
{
    auto* f = new logger_file(_stdout_copy);
    counted_base* policy;
    try {
        policy = new policy_logger_file(f);
    } catch (...) {
        delete f;
        throw;
    }
    _file = ref<logger_file>(policy, f);
}

void logger::open(const token& name)
{
    if (!_file)
        make_file();
    log_writer& w = log_writer::instance();
    // The writer reads the name when it opens the file.
    comm_mutex_guard g(w._drain_mutex);
    logger_file* f = _file.get();
    if (f->is_open() && !(f->_name == name))
        f->close(); // the next message opens the new name
    f->_name = name;
    f->_stdout_copy = _stdout_copy;
}

log_ref logger::make_msg(int32_t type, const tokenhash& source, const uint64_t* time_ms)
{
    pool<policy_msg*>& p = log_message_pool();
    policy_msg* policy = p.create_instance();
    if (!policy)
        policy = new policy_msg(&p);
    logmsg* m = policy->msg();
    try {
        m->_file.release();
        m->_text.alloc_buf(message_reserve - 1); // keeps a buffer that fits
        m->_text.reset();
        m->_logger = this;
        m->_type = type;
        m->_source = source;
        if (type == log_level::perf)
            m->_start = current_time_ns();
        if (time_ms) {
            append_log_time(m->_text, *time_ms, true, 3);
            m->_text << ' ';
        }
        m->_text << log_level_prefix(type);
        if (!source.is_empty())
            m->_text << '[' << source << "] ";
    } catch (...) {
        delete policy; // not counted yet
        throw;
    }
    return log_ref(policy, m);
}

void logger::deliver(policy_msg* policy, logmsg* m)
{
    logger* target = m->_logger;
    if (m->_type == log_level::perf) {
        float ms = static_cast<float>(current_time_ns() - m->_start) * 0.000001f;
        m->_text << " (";
        m->_text.append_float(ms, -6, 24);
        m->_text << "ms)";
    }
    if (m->_type == log_level::none) {
        token t = m->_text;
        m->_type = log_level_from_text(t);
    }
    bool synchronous = !m->_text.is_empty() && m->_text.ptr()[m->_text.lens() - 1] == '\r';
    m->_file = target->_file.lock();
    m->_console = target->_console;
    log_ref r(policy, m);
    // The filters see the message as its composer made it, logger included.
    target->run_filters(r);
    // Cleared before the queue gets it: the writer's release must find the
    // message delivered.
    m->_logger = nullptr;
    target->enqueue(r);
    if (synchronous)
        flush();
}

void logger::run_filters(log_ref& msg)
{
    if (!_filters.is_empty()) {
        _filters.walk([&](log_filter* f, const charstr& source, int32_t level) {
            if (msg->type() <= level && token(source) == msg->source())
                (*f)(msg);
        });
    }
}

void logger::enqueue(log_ref& msg) { log_writer::instance().push(msg); }

void logger::post(const token& text, const token& source)
{
    token rest = text;
    int32_t level = log_level_from_text(rest);
    log_ref m = make_msg(level, tokenhash(source), nullptr);
    *m << rest;
}

void logger::flush() { log_writer::instance().flush(); }

bool logger::terminate() { return log_writer::instance().terminate(); }

void logger::enable_debugger_output(bool on) { debugger_copy.store(on, std::memory_order_relaxed); }

void logger::set_console_colours(int32_t mode) { os::console_set_colour_mode(mode); }

// -- The module's own logger ----------------------------------------------------------------

namespace {

std::atomic<logger*> chosen_logger{nullptr};
stdoutlogger* console_logger = nullptr;

// Made on the first log call that finds no logger of the host's; it ends
// with the module, before the writer that it made.
struct console_logger_lifetime
{
    console_logger_lifetime()
    {
        console_logger = register_singleton_of<stdoutlogger>(true, console_logger_place, console_logger_line);
    }
    ~console_logger_lifetime() { remove_singleton(std::exchange(console_logger, nullptr)); }
};

} // namespace

void set_module_logger(logger* l) { chosen_logger.store(l, std::memory_order_release); }

// -- The log call ----------------------------------------------------------------------------------

namespace {

// Set once, by a static initialiser of the registry, before the first line
// of most modules; atomic because a late installation may race a line.
constinit std::atomic<log_route_fn> installed_route{nullptr};
constinit std::atomic<logger_route_fn> installed_logger_route{nullptr};

} // namespace

void install_log_route(log_route_fn route, logger_route_fn logger_route)
{
    installed_route.store(route, std::memory_order_release);
    installed_logger_route.store(logger_route, std::memory_order_release);
}

log_ref create_log_msg(int32_t type, const tokenhash& source, const void* context)
{
    log_ref out;
    if (log_route_fn route = installed_route.load(std::memory_order_acquire))
        if (route(out, type, source, context))
            return out;
    logger* l = module_logger();
    return l ? l->create_msg(type, source, context) : log_ref();
}

logger* get_logger()
{
    if (logger_route_fn route = installed_logger_route.load(std::memory_order_acquire))
        if (logger* l = route())
            return l;
    return module_logger();
}

logger* module_logger()
{
    if (logger* l = chosen_logger.load(std::memory_order_acquire))
        return l;
    static console_logger_lifetime lifetime;
    return console_logger;
}

// -- The writer ------------------------------------------------------------------------------------

namespace {

log_writer* the_writer = nullptr;

// The pool is made first, so that it outlives the writer, whose end gives
// the last messages back to it.
struct writer_lifetime
{
    writer_lifetime()
    {
        log_message_pool();
        the_writer = register_singleton_of<log_writer>(true, logger_place, __LINE__);
    }
    ~writer_lifetime() { remove_singleton(std::exchange(the_writer, nullptr)); }
};

} // namespace

log_writer& log_writer::instance()
{
    static writer_lifetime lifetime;
    return *the_writer;
}

log_writer* log_writer::existing() { return the_writer; }

log_writer::log_writer() : _mutex(500), _drain_mutex(500)
{
    _queue.next = _queue.prev = &_queue;
    ensure_running();
}

log_writer::~log_writer()
{
    try {
        drain();
    } catch (...) { // running out of memory now has nobody to report to
    }
    thread t = writer_thread();
    if (!t.is_invalid())
        thread::cancel_and_wait(t, stop_wait_ms);
    while (node* n = _spare) {
        _spare = n->next;
        n->~node();
        global_release(n);
    }
}

void log_writer::ensure_running()
{
    if (_running.exchange(true))
        return;
    thread t = thread::create_new(&log_writer::run, this, nullptr, "log_writer");
    if (t.is_invalid())
        _running = false; // messages wait for the next try, or for the end
    _thread_id = t.id();
}

void* log_writer::run(void* self)
{
    auto* w = static_cast<log_writer*>(self);
    while (!thread::self_should_cancel()) {
        w->drain();
        sleep(1);
    }
    // Lines that come from now on wait for flush, terminate or the end.
    w->_running = false;
    w->drain();
    return nullptr;
}

log_writer::node* log_writer::new_node()
{
    void* block = global_alloc(sizeof(node));
    if (!block)
        throw std::bad_alloc();
    return new (block) node{nullptr, nullptr, log_ref()};
}

void log_writer::link(node* n)
{
    n->next = &_queue;
    n->prev = _queue.prev;
    _queue.prev->next = n;
    _queue.prev = n;
    ++_count;
}

// A spare node is taken under the lock that the link needs anyway; only a
// new one is allocated outside it.
void log_writer::push(log_ref& msg)
{
    {
        comm_mutex_guard g(_mutex);
        if (node* n = _spare) {
            _spare = n->next;
            n->msg = std::move(msg);
            link(n);
            return;
        }
    }
    node* n = new_node();
    n->msg = std::move(msg);
    comm_mutex_guard g(_mutex);
    link(n);
}

uint64_t log_writer::queued()
{
    comm_mutex_guard g(_mutex);
    return _count;
}

bool log_writer::is_idle()
{
    comm_mutex_guard g(_mutex);
    return _count == 0 && _in_progress == 0;
}

// Takes the whole queue at once and writes it outside the lock. The text
// for one file is gathered and written in one call per file change, per
// gather_limit, and at the end of the batch. The batch's nodes go back to
// the spare list together, under the lock taken to end the batch.
void log_writer::drain()
{
    comm_mutex_guard d(_drain_mutex);
    for (;;) {
        node* first;
        {
            comm_mutex_guard g(_mutex);
            if (_count == 0)
                return;
            first = _queue.next;
            _queue.prev->next = nullptr;
            _queue.next = _queue.prev = &_queue;
            _in_progress = _count;
            _count = 0;
        }
        ref<logger_file> current;
        int32_t consoles = 0; // bit 1 standard output, bit 2 standard error
        node* n = first;
        node* last = first;
        try {
            for (; n; n = n->next) {
                last = n;
                log_ref m = std::move(n->msg);
                consoles |= write_message(*m, current);
            }
            if (current)
                current->write_gathered();
        } catch (...) {
            // Only allocation fails here; the batch's remaining lines go with it.
            for (; n; n = n->next) {
                last = n;
                n->msg.release();
            }
            if (current)
                current->_gathered.reset();
            end_batch(first, last);
            throw;
        }
        // Lines reach the console within the batch, not at the end of the
        // process: a report before a crash must be seen.
        if (consoles & os::console_stdout)
            os::console_flush(os::console_stdout);
        if (consoles & os::console_stderr)
            os::console_flush(os::console_stderr);
        end_batch(first, last);
    }
}

void log_writer::end_batch(node* first, node* last)
{
    comm_mutex_guard g(_mutex);
    last->next = _spare;
    _spare = first;
    _in_progress = 0;
}

// Gives the console stream written, or 0.
int32_t log_writer::write_message(logmsg& m, ref<logger_file>& current)
{
    charstr& text = m._text;
    if (text.is_empty() || text.ptr()[text.lens() - 1] != '\n')
        text << '\n';
    if (logger_file* f = m._file.get()) {
        if (f->ensure_open()) {
            if (current.get() != f) {
                if (current)
                    current->write_gathered();
                current = m._file;
            }
            f->_gathered << text;
            if (f->_gathered.lens() >= gather_limit)
                f->write_gathered();
        } else {
            f->_pending << text;
        }
        if (!f->_stdout_copy)
            return 0;
    }
    int32_t stream = m._console;
    int32_t attribute = log_console_attribute(m._type);
    if (attribute >= 0)
        os::console_set_attribute(stream, static_cast<uint16_t>(attribute));
    os::console_write(stream, text.ptr(), text.lens());
    if (attribute >= 0)
        os::console_set_attribute(stream, 7);
    if (debugger_copy.load(std::memory_order_relaxed))
        os::debugger_output(text.c_str());
    return stream;
}

void log_writer::flush()
{
    if (thread::self() == writer_thread())
        return; // it would wait for itself
    if (!_running) {
        drain();
        return;
    }
    for (uint32_t i = 0; i < flush_steps; ++i) {
        if (is_idle())
            return;
        sleep(flush_step_ms);
    }
}

bool log_writer::terminate()
{
    drain();
    thread t = writer_thread();
    bool ended = t.is_invalid() || thread::cancel_and_wait(t, stop_wait_ms);
    if (ended) {
        _thread_id = thread::invalid_id;
        _running = false;
    }
    return ended;
}

} // namespace velk
