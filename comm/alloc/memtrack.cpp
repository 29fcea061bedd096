// Allocation tracking: the process-wide table of counters per type and the
// report "memory.log".
//
// Invariant: enabled == (requested && allowed), and allowed, once cleared,
// stays clear. The report allocates nothing but its buffer (once per module)
// and the file stream, so that it can be written when memory has run out.
#include "comm/alloc/memtrack.h"

#include "comm/alloc/commalloc.h"
#include "comm/alloc/mspace.h"
#include "comm/binstream/filestream.h"
#include "comm/charstr.h"
#include "comm/singleton.h"
#include "comm/zstring.h"

#include <cxxabi.h>

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace velk {

namespace {

// The place that the report buffer gives its singleton manager, the same in
// every build.
constexpr const char* report_buffer_place = "comm/alloc/memtrack";
constexpr int32_t report_buffer_line = 235;

// Stops recursion when making the tracker allocates; plain, not per thread:
// another thread that comes in meanwhile is simply not tracked.
bool making_tracker = false;
// Stops tracking of the tracker's own table growth; plain as above.
bool inside_table = false;

constexpr const char* unknown_type = "unknown";

// The report is written out whenever its buffer holds this much: the buffer
// is made for 8000 characters, and no row is longer than a hundred.
constexpr uint32_t report_capacity = 8000;
constexpr uint32_t report_flush_at = 7901;

constexpr token report_heading = "======== bytes | #alloc |  type ======\n";

// The name the report shows for a type: the run-time name, demangled once
// when its record is made (records live as long as the process).
const char* readable_name(const char* raw)
{
    if (raw == unknown_type)
        return raw;
    int status = 0;
    char* demangled = abi::__cxa_demangle(raw, nullptr, nullptr, &status);
    return status == 0 && demangled ? demangled : raw;
}

// -- The report buffer: one per module, made on demand -----------------------------

charstr* report_buffer = nullptr;

struct report_buffer_lifetime
{
    // The buffer lies in the array space: it must outlive the buffer.
    report_buffer_lifetime()
    {
        comm_array_mspace_ensure();
        report_buffer = register_singleton_of<charstr>(true, report_buffer_place, report_buffer_line);
    }
    ~report_buffer_lifetime() { remove_singleton(std::exchange(report_buffer, nullptr)); }
};

charstr& the_report_buffer()
{
    static report_buffer_lifetime lifetime;
    return *report_buffer;
}

// -- The report's text ------------------------------------------------------------------

void append_row(charstr& out, int64_t bytes, uint32_t n, const char* name)
{
    out.append_num_thousands(bytes, ',', 12, align_right);
    out.append_num(10, n, 0, 9, align_right);
    out << '\t';
    memtrack_clean_type_name(out, token(name));
    out << '\n';
}

void append_statistics(charstr& out)
{
    mspace_stats a = mspace_statistics(comm_array_space());
    mspace_stats g = global_statistics();
    struct line
    {
        token text;
        uint64_t value;
        bool bytes;
    };
    const line lines[] = {
        {"\nnon-mmapped space allocated from system: ", a.arena + g.arena, true},
        {"\nnumber of free chunks:                   ", a.free_chunks + g.free_chunks, false},
        {"\nmaximum total allocated space:           ", a.peak_bytes + g.peak_bytes, true},
        {"\ntotal allocated space:                   ", a.used_bytes + g.used_bytes, true},
        {"\ntotal free space:                        ", a.free_bytes + g.free_bytes, true},
        {"\nreleasable (via malloc_trim) space:      ", a.top_bytes + g.top_bytes, true},
    };
    for (const line& l : lines) {
        out << l.text;
        out.append_num_metric(static_cast<int64_t>(l.value), 8, align_right, ' ');
        if (l.bytes)
            out << 'B';
    }
}

// Writes all of text; a failure throws the stream's code. A short write is
// success to the stream, so it throws IOerr: a cut report would pass for whole.
void write_out(filestream& file, const charstr& text)
{
    uint64_t len = text.lens();
    if (!len)
        return;
    opcd e = file.write_raw(text.ptr(), len);
    if (e)
        throw e;
    if (len)
        throw ers::io_error;
}

} // namespace

// A word ending in "struct" or "class" loses the ending and the blank behind
// it; "[0]" becomes "[]"; anything else is copied with its blank.
void memtrack_clean_type_name(charstr& out, const token& name)
{
    const char* p = name.ptr();
    const char* end = name.ptre();
    while (p < end) {
        const char* blank = static_cast<const char*>(memchr(p, ' ', end - p));
        token word(p, blank ? blank : end);
        p = blank ? blank + 1 : end;
        uint32_t n = word.lens();
        if (n >= 6 && token(word.ptre() - 6, 6) == token("struct")) {
            out << token(word.ptr(), n - 6);
        } else if (n >= 5 && token(word.ptre() - 5, 5) == token("class")) {
            out << token(word.ptr(), n - 5);
        } else {
            out << (word == token("[0]") ? token("[]") : word);
            if (blank)
                out << ' ';
        }
    }
}

// -- The tracker ------------------------------------------------------------------------

memtrack_registrar::memtrack_registrar() : _table(hash_table_initial_buckets), _mutex(spin_count) {}

memtrack_registrar::~memtrack_registrar()
{
    for (auto* n = _table.first(); n; n = _table.next(n))
        if (n->value.name != n->value.key)
            free(const_cast<char*>(n->value.name)); // demangled by readable_name
}

memtrack_registrar::entry* memtrack_registrar::find_or_insert(const char* key)
{
    if (entry* e = _table.find_value(key))
        return e;
    entry* e = _table.insert_unique(key);
    e->key = key;
    e->name = readable_name(key);
    return e;
}

void memtrack_registrar::track_alloc(const std::type_info* type, size_t size)
{
    if (inside_table)
        return;
    const char* key = type ? type->name() : unknown_type;
    comm_mutex_guard g(_mutex);
    inside_table = true;
    entry* e;
    try {
        e = find_or_insert(key);
    } catch (...) {
        inside_table = false;
        throw;
    }
    inside_table = false;
    int64_t n = static_cast<int64_t>(size);
    ++e->nallocs;
    ++e->cur_allocs;
    ++e->total_allocs;
    e->size += n;
    e->cur_size += n;
    e->total_size += n;
}

void memtrack_registrar::track_free(const std::type_info* type, size_t size)
{
    const char* key = type ? type->name() : unknown_type;
    comm_mutex_guard g(_mutex);
    if (entry* e = _table.find_value(key)) {
        e->cur_size -= static_cast<int64_t>(size);
        --e->cur_allocs;
    }
}

uint32_t memtrack_registrar::list(memtrack* destination, uint32_t max_records, bool modified_only)
{
    comm_mutex_guard g(_mutex);
    uint32_t written = 0;
    for (auto* n = _table.first(); n && written < max_records; n = _table.next(n)) {
        entry& e = n->value;
        if (e.nallocs == 0 && modified_only)
            continue;
        destination[written++] = static_cast<const memtrack&>(e);
        e.size = 0;
        e.nallocs = 0;
    }
    return written;
}

uint32_t memtrack_registrar::count()
{
    comm_mutex_guard g(_mutex);
    return static_cast<uint32_t>(_table.count());
}

void memtrack_registrar::reset()
{
    comm_mutex_guard g(_mutex);
    for (auto* n = _table.first(); n; n = _table.next(n)) {
        n->value.size = 0;
        n->value.nallocs = 0;
    }
}

// The whole report is made under the mutex: tracking on other threads waits.
void memtrack_registrar::dump(const char* file_name, bool diff)
{
    comm_mutex_guard g(_mutex);
    filestream file;
    if (file.open(zstring(file_name), "wct"))
        return; // no report, and no message

    charstr& buf = the_report_buffer();
    buf.alloc_buf(report_capacity); // allocates on the first report only
    buf.reset();
    buf << report_heading;

    int64_t total_bytes = 0;
    uint64_t total_n = 0;
    for (auto* n = _table.first(); n; n = _table.next(n)) {
        const entry& e = n->value;
        int64_t bytes = diff ? e.size : e.cur_size;
        uint32_t count = diff ? e.nallocs : e.cur_allocs;
        if (bytes == 0)
            continue;
        total_bytes += bytes;
        total_n += count;
        append_row(buf, bytes, count, e.name);
        if (buf.lens() >= report_flush_at) {
            write_out(file, buf);
            buf.reset();
        }
    }

    buf << report_heading;
    buf.append_num_metric(total_bytes, 14, align_right, ' ');
    buf << 'B';
    buf.append_num_thousands(static_cast<int64_t>(total_n), ',', 8, align_right);
    buf << "\t (total)\n";
    append_statistics(buf);

    write_out(file, buf);
    buf.reset();
    file.close();
}

bool memtrack_registrar::enable(bool on)
{
    bool old = _requested != 0;
    _requested = on;
    _enabled = _allowed && on;
    return old;
}

void memtrack_registrar::shutdown()
{
    _requested = 0;
    _allowed = 0;
    _enabled = 0;
}

// -- The singleton ------------------------------------------------------------------------

namespace {

void* create_tracker() { return new memtrack_registrar; }
void destroy_tracker(void* p) { delete static_cast<memtrack_registrar*>(p); }

std::atomic<memtrack_registrar*> tracker_cache{nullptr};

} // namespace

memtrack_registrar* memtrack_instance()
{
    if (memtrack_registrar* t = tracker_cache.load(std::memory_order_acquire))
        return t;
    if (making_tracker)
        return nullptr;
    making_tracker = true;
    // Process-wide: every module finds the first module's tracker by name.
    static memtrack_registrar* const tracker = static_cast<memtrack_registrar*>(register_singleton(
        &create_tracker, &destroy_tracker, nullptr, singleton_type_name<memtrack_registrar>(), nullptr, 0,
        false));
    making_tracker = false;
    tracker_cache.store(tracker, std::memory_order_release);
    return tracker;
}

void memtrack_alloc(const std::type_info* type, size_t size)
{
    if (memtrack_registrar* t = memtrack_instance(); t && t->is_enabled())
        t->track_alloc(type, size);
}

void memtrack_free(const std::type_info* type, size_t size)
{
    if (memtrack_registrar* t = memtrack_instance(); t && t->is_enabled())
        t->track_free(type, size);
}

uint32_t memtrack_list(memtrack* destination, uint32_t max_records, bool modified_only)
{
    memtrack_registrar* t = memtrack_instance();
    return t && t->is_allowed() ? t->list(destination, max_records, modified_only) : 0;
}

uint32_t memtrack_count()
{
    memtrack_registrar* t = memtrack_instance();
    return t ? t->count() : 0;
}

void memtrack_dump(const char* file_name, bool diff)
{
    if (memtrack_registrar* t = memtrack_instance(); t && t->is_allowed())
        t->dump(file_name, diff);
}

void memtrack_reset()
{
    if (memtrack_registrar* t = memtrack_instance())
        t->reset();
}

bool memtrack_enable(bool on)
{
    memtrack_registrar* t = memtrack_instance();
    return t ? t->enable(on) : false;
}

void memtrack_shutdown()
{
    if (memtrack_registrar* t = memtrack_instance())
        t->shutdown();
}

} // namespace velk
