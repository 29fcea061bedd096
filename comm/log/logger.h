// The logger: text from any thread at a small cost, written on a thread of
// its own.
//
// A log call takes a pooled message (policy_msg and logmsg in one block),
// writes the level's prefix and the source into it, and gives it to the
// composer, who appends. The composer's last release delivers it: the
// message is linked into the queue of the module's log_writer, whose thread
// writes it to the logger's file (opened lazily, with the text written
// before gathered in pending), to the console in the level's colour, and,
// when switched on, to the debugger. The writer's last release gives the
// message back to the pool. In the steady state nothing is allocated.
//
//   velk::logger log(false, true);
//   log.open("/var/log/app.log");
//   if (velk::log_ref m = log.create_msg(velk::log_level::message, "app", nullptr))
//       *m << "started in " << ms << " ms";   // delivered here
//   velk::logger::flush();
//
// A text that ends in the character 13 is synchronous: its composer waits
// until the writer has written it. Levels: 0 fatal, 1 error, 2 warning,
// 3 and 4 info, 5 debug, 6 perf; -1 takes the level from the text's first
// word; 7 and above have no prefix.
#pragma once

#include "comm/binstream/filestream.h"
#include "comm/charstr.h"
#include "comm/dynarray.h"
#include "comm/log/logmsg.h"
#include "comm/policy_base.h"
#include "comm/pool.h"
#include "comm/pthreadx.h"
#include "comm/ref.h"
#include "comm/thread.h"
#include "comm/token.h"

#include <atomic>
#include <cstdint>

namespace velk {

// -- Levels and the time format --------------------------------------------------

// The level that the first word of text names, case ignored: "error:" 1,
// "warn:" and "warning:" 2, "info:" 4, "msg:" 3, "dbg:" and "debug:" 5,
// "perf:" 6; any other text 4. text is moved past the word, and then past
// blanks, tabs, line feeds and carriage returns.
int32_t log_level_from_text(token& text);

// The console attribute of a level (foreground bits 1 blue, 2 green, 4 red,
// 8 bright; background the same times 16), or -1 for level 4, which leaves
// the console's colour as it is.
int32_t log_console_attribute(int32_t type);

// A duration of ms (with_ms: the last three digits are milliseconds; else
// seconds) as days "d" hh:mm:ss for fields 4 and up, h:mm:ss for 3, m:ss
// for 2, s for 1 (minutes and seconds padded to 2 digits, the leading
// field not), nothing for 0; with with_ms, "." and 3 digits follow. A
// negative fields writes nothing at all.
void append_log_time(charstr& out, uint64_t ms, bool with_ms, int32_t fields);

// -- The message's policy ----------------------------------------------------------

// The counter of a pooled message, allocated together with the message. Its
// last release either delivers the message (the composer let go) or gives
// it back to the pool (the writer let go).
class policy_msg : public counted_base
{
public:
    explicit policy_msg(pool<policy_msg*>* p) : _pool(p), _msg(&_storage) {}
    logmsg* msg() const { return _msg; }

protected:
    void release_hook() override;

private:
    pool<policy_msg*>* _pool;
    logmsg* _msg;
    logmsg _storage;
};

// -- The log file --------------------------------------------------------------------

// A file stream with a name that is opened on the first message written to
// it, and the text that came before it could be opened. Used by the writer
// thread alone, once the logger has named it.
class logger_file : public filestream
{
public:
    explicit logger_file(bool stdout_copy = false) : _stdout_copy(stdout_copy) {}

    // The path; empty: not configured, nothing is opened.
    const charstr& name() const { return _name; }
    // Text written while the file could not be opened.
    const charstr& pending() const { return _pending; }
    // Also to the console.
    bool stdout_copy() const { return _stdout_copy; }

private:
    friend class logger;
    friend class log_writer;

    // Opens the named file when it is not open (truncating it) and writes
    // pending first, with one raw write. False while it can't be opened.
    // Doesn't throw.
    bool ensure_open();
    // Writes what the current drain gathered with one raw write and empties
    // it. What the file doesn't take (a full device, a size limit, a
    // failing write) is dropped. Doesn't throw.
    void write_gathered();

    charstr _pending;
    charstr _name;
    bool _stdout_copy;
    charstr _gathered; // the current drain's text for the open file
};

// The policy of a logger's file: the last release deletes the file.
class policy_logger_file : public counted_base
{
public:
    explicit policy_logger_file(logger_file* f) : _file(f) {}
    ~policy_logger_file() override { delete _file; }

private:
    logger_file* _file;
};

// -- Filters -------------------------------------------------------------------------

// Called on the composer's thread at delivery, for messages of a source and
// up to a level; see logger::add_filter.
class log_filter
{
public:
    virtual ~log_filter() = default;
    virtual void operator()(const log_ref& msg) = 0;
};

// Slots of filters in pages of 256, with a bit per slot in use.
class log_filter_slots
{
public:
    static constexpr uint32_t page_slots = 256;
    static constexpr uint32_t page_words = page_slots / 64;

    log_filter_slots() = default;
    // Deletes the filters and frees the pages.
    ~log_filter_slots();
    log_filter_slots(const log_filter_slots&) = delete;
    log_filter_slots& operator=(const log_filter_slots&) = delete;

    // Takes f into the first free slot and gives the slot's index.
    // std::bad_alloc, with f deleted, when a page can't be allocated.
    uint32_t add(log_filter* f, const token& source, int32_t level);
    // Deletes the filter of slot index; false for a slot not in use.
    bool remove(uint32_t index);
    bool is_empty() const { return _nwords == 0; }

    // Calls f(filter, source, level) for every slot in use, page by page and
    // bit by bit; the word array is read again after each call, since a
    // filter may add filters.
    template <class F>
    void walk(F f) const;

private:
    struct slot
    {
        log_filter* filter;
        charstr source;
        int32_t level;
    };

    dynarray<slot*> _pages;
    uint64_t _nwords = 0;
    dynarray<uint64_t> _used;
};

// -- The logger ------------------------------------------------------------------------

class logger
{
public:
    // stdout_copy: a file made for this logger also writes to the console.
    // make_file: make the (unnamed) file now; see open. Makes sure the
    // module's log_writer runs. Throws std::bad_alloc.
    explicit logger(bool stdout_copy = false, bool make_file = false);
    // Releases the file and deletes the filters. Messages it composed and
    // has not delivered yet must be gone before.
    virtual ~logger();
    logger(const logger&) = delete;
    logger& operator=(const logger&) = delete;

    // Links msg at the tail of the writer's queue. Called at delivery, on
    // the composer's thread, after the filters have seen msg.
    virtual void enqueue(log_ref& msg);

    // Names the log file (making it when there is none) and passes on
    // stdout_copy; the file is opened by the writer at its next message.
    // Throws std::bad_alloc.
    void open(const token& name);

    // The highest level let through; perf lets level 6 through too, and is
    // on for a level of 6 or above.
    void set_level(int32_t level, bool perf = false)
    {
        _level = level;
        _perf = perf || level >= log_level::perf;
    }
    int32_t level() const { return _level; }
    bool perf() const { return _perf; }

    // A new message of level type with the level's prefix and "[source] ",
    // or an empty reference when the level refuses it (a comparison and
    // nothing more). source must stay valid until the line is written.
    // context is not used here. Throws std::bad_alloc.
    log_ref create_msg(int32_t type, const tokenhash& source, const void* context)
    {
        if (type > _level && !(_perf && type == log_level::perf))
            return log_ref();
        return make_msg(type, source, nullptr);
    }
    // The same, with the time *time_ms (milliseconds) as h:mm:ss.mmm and a
    // blank before the prefix when time_ms is not null.
    log_ref create_msg(int32_t type, const tokenhash& source, const void* context, const uint64_t* time_ms)
    {
        if (type > _level && !(_perf && type == log_level::perf))
            return log_ref();
        return make_msg(type, source, time_ms);
    }

    // Logs a finished text at the level its first word names (the word is
    // dropped), whatever the level filter says. source must stay valid
    // until the line is written. Throws std::bad_alloc.
    void post(const token& text, const token& source = token());

    // Waits until the module's writer has written every queued message, at
    // most 3 seconds; says nothing of a timeout. On the writer thread it
    // returns at once (it would wait for itself); when no writer runs, the
    // caller writes the queue itself.
    static void flush();
    // Writes the queue on the calling thread, then stops the writer and
    // waits for it up to 10 seconds. True when it ended. A logger made
    // afterwards starts the writer again.
    static bool terminate();
    // Copies every line to the debugger (nothing on this platform).
    static void enable_debugger_output(bool on);
    // Console colours: -1 when the console stream is a terminal (the
    // default), 0 never, 1 always.
    static void set_console_colours(int32_t mode);

    // Where this logger's console lines go: 1 standard output (the
    // default), 2 standard error, for a program whose standard output
    // carries its results.
    void set_console(int32_t stream) { _console = stream == 2 ? 2 : 1; }
    int32_t console() const { return _console; }

    // Takes f, called at delivery for messages from source up to level, and
    // gives its slot. Register filters before logging starts: the walk
    // takes no lock. std::bad_alloc, with f deleted.
    uint32_t add_filter(log_filter* f, const token& source, int32_t level)
    {
        return _filters.add(f, source, level);
    }
    bool remove_filter(uint32_t slot) { return _filters.remove(slot); }

    const ref<logger_file>& file() const { return _file; }

private:
    friend class policy_msg;

    log_ref make_msg(int32_t type, const tokenhash& source, const uint64_t* time_ms);
    // The composer's last release: runs the filters, then hands msg to enqueue.
    static void deliver(policy_msg* policy, logmsg* msg);
    // Calls each filter whose source is msg's and whose level takes it.
    void run_filters(log_ref& msg);
    void make_file();

    log_filter_slots _filters;
    ref<logger_file> _file;
    int32_t _level = log_level::all;
    bool _stdout_copy;
    bool _perf = false;
    int32_t _console = 1;
};

// The console logger: no file, every line to standard output.
class stdoutlogger : public logger
{
public:
    stdoutlogger() : logger(true, false) {}
};

// -- The writer ---------------------------------------------------------------------------

// The module's queue of delivered messages and the thread "log_writer" that
// writes them, polling every millisecond. Its destruction writes what is
// still queued on the destroying thread, then stops the thread.
class log_writer
{
public:
    // How long the destroyer and terminate wait for the thread.
    static constexpr uint32_t stop_wait_ms = 10000;
    // flush waits at most flush_steps times flush_step_ms: the same 3 s as
    // 150 steps of 20 ms, but a line written sooner is seen sooner.
    static constexpr uint32_t flush_step_ms = 1;
    static constexpr uint32_t flush_steps = 3000;

    // The module's writer, made on first use with its thread running.
    static log_writer& instance();
    // The module's writer if it was made and still exists, else null.
    static log_writer* existing();

    log_writer();
    ~log_writer();
    log_writer(const log_writer&) = delete;
    log_writer& operator=(const log_writer&) = delete;

    // Links msg at the tail of the queue; msg is empty afterwards.
    void push(log_ref& msg);
    // Writes every queued message on the calling thread, in queue order.
    // One drain runs at a time. A file that fails drops the text; only
    // std::bad_alloc is thrown, and the rest of that batch is dropped.
    void drain();
    // Starts the thread when it does not run.
    void ensure_running();
    // Queue empty and nothing being written.
    bool is_idle();
    // Waits as logger::flush.
    void flush();
    // As logger::terminate.
    bool terminate();

    // The writer thread, or the invalid id when it does not run.
    thread writer_thread() const { return thread(_thread_id.load()); }
    // Messages queued now; for tests.
    uint64_t queued();

private:
    friend class logger;

    struct node
    {
        node* next;
        node* prev;
        log_ref msg;
    };

    static void* run(void* self);
    // Gives the console stream written, or 0.
    static int32_t write_message(logmsg& m, ref<logger_file>& current);
    static node* new_node();
    // Links n at the tail; under _mutex.
    void link(node* n);
    // Gives the written nodes first..last back and ends the batch.
    void end_batch(node* first, node* last);

    std::atomic<uint32_t> _thread_id{thread::invalid_id};
    std::atomic<bool> _running{false};
    node* _spare = nullptr; // spare nodes, linked by next; under _mutex
    node _queue; // the sentinel: next is the oldest, prev the newest
    uint64_t _limits[2] = {~uint64_t(0), ~uint64_t(0)};
    comm_mutex _mutex;
    comm_mutex _drain_mutex;
    uint64_t _count = 0;       // queued
    uint64_t _in_progress = 0; // taken by a drain and not written yet
};

// -- The message pool --------------------------------------------------------------------

// The module's pool of messages, made on first use.
pool<policy_msg*>& log_message_pool();

} // namespace velk
