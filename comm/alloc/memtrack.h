// Allocation tracking: bytes and objects per allocated type, and a report
// that adds the statistics of the memory spaces.
//
// One tracker serves the whole process (a process-wide singleton, found by
// the type name of memtrack_registrar by every module). It starts switched
// off and nothing in the system switches it on; the report works regardless
// and then shows the statistics of the spaces alone. Its one use is the
// post-mortem: when std::bad_alloc reaches the top of a thread, the report
// goes to the file "memory.log".
//
//   velk::memtrack_enable(true);
//   velk::memtrack_alloc(&typeid(foo), sizeof(foo));
//   velk::memtrack_dump("memory.log", false);
//
// Records are keyed by the address of the type's name, not by its text, and
// are never freed. Any thread may call anything; one mutex guards the table,
// including for the whole of a report.
#pragma once

#include "comm/charstr.h"
#include "comm/hash_table.h"
#include "comm/pthreadx.h"

#include <cstddef>
#include <cstdint>
#include <typeinfo>

namespace velk {

// The counters of one type.
struct memtrack
{
    int64_t size;          // bytes allocated since the last reset or listing
    int64_t cur_size;      // bytes alive now
    int64_t total_size;    // bytes allocated since the start
    uint32_t nallocs;      // allocations since the last reset or listing
    uint32_t cur_allocs;   // allocations alive now
    uint32_t total_allocs; // allocations since the start
    const char* name;      // the type's name; not owned
};

class memtrack_registrar final
{
public:
    // The guard of the table, as the writer's queue and the registry.
    static constexpr uint32_t spin_count = 500;

    memtrack_registrar();
    // Frees the object, its table and the names it made readable; names
    // listed before are invalid afterwards.
    ~memtrack_registrar();
    memtrack_registrar(const memtrack_registrar&) = delete;
    memtrack_registrar& operator=(const memtrack_registrar&) = delete;

    // The virtual operations are the contract between modules that share the
    // tracker; their order is fixed.

    // Counts an allocation of size bytes of type (null: "unknown"). Throws
    // std::bad_alloc when a new record can't be allocated.
    virtual void track_alloc(const std::type_info* type, size_t size);
    // Counts a release; a type never allocated is dropped without a record.
    virtual void track_free(const std::type_info* type, size_t size);
    // Copies up to max_records records in table order into destination,
    // only those allocated since the last listing when modified_only, and
    // clears size and nallocs of each record copied. Gives the number copied.
    virtual uint32_t list(memtrack* destination, uint32_t max_records, bool modified_only);
    // Writes the report to file_name (created or truncated): a row per type
    // with bytes, with the bytes and allocations since the last reset when
    // diff, else those alive; totals; the statistics of the array space and
    // the global space. A file that can't be opened gives no report and no
    // message. A short write throws its opcd. Counters stay as they are.
    virtual void dump(const char* file_name, bool diff);
    // The number of records.
    virtual uint32_t count();
    // Clears size and nallocs of every record.
    virtual void reset();

    bool is_enabled() const { return _enabled != 0; }
    bool is_allowed() const { return _allowed != 0; }
    // requested = on, enabled = allowed and on; gives the old requested.
    bool enable(bool on);
    // Switches tracking off for good.
    void shutdown();

private:
    struct by_name_address
    {
        // The key is the address of the name; its low 32 bits choose the
        // bucket, the whole address tells records apart.
        uint64_t operator()(const char* name) const
        {
            return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(name));
        }
    };
    struct entry : memtrack
    {
        const char* key; // the address the record was found by
    };
    struct entry_key
    {
        const char* operator()(const entry& e) const { return e.key; }
    };

    using table = hash_table<entry, const char*, entry_key, by_name_address>;

    entry* find_or_insert(const char* key);

    uint8_t _enabled = 0;
    table _table;
    comm_mutex _mutex;
    uint8_t _requested = 0;
    uint8_t _allowed = 1;
};

// -- The free functions: each does nothing, giving 0, without a tracker ------

// Count an allocation or a release, when tracking is on.
void memtrack_alloc(const std::type_info* type, size_t size);
void memtrack_free(const std::type_info* type, size_t size);
// As list, unless the tracker was shut down.
uint32_t memtrack_list(memtrack* destination, uint32_t max_records, bool modified_only);
uint32_t memtrack_count();
// As dump, unless the tracker was shut down.
void memtrack_dump(const char* file_name, bool diff);
void memtrack_reset();
// Asks for tracking on or off; it is on only while not shut down. Gives the
// previous request.
bool memtrack_enable(bool on);
// Switches tracking off for good; called before a module's singletons end.
void memtrack_shutdown();

// Appends the name the report shows for a type name: words split at blanks,
// a word's ending "struct" or "class" dropped with the blank behind it, a
// word "[0]" written "[]". "class foo<struct bar,class baz>" gives
// "foo<bar,baz>".
void memtrack_clean_type_name(charstr& out, const token& name);

// The process's tracker, made on first use; null while it is being made
// (an allocation on the way in must not recurse).
memtrack_registrar* memtrack_instance();

} // namespace velk
