// zstring: a string that borrows a text until it is changed, and then takes
// a charstr from a pool.
//
// Reading a borrowed text costs nothing and touches no pool. The first change
// (get_str, or any <<) takes a charstr from a zpool, copies the borrowed text
// into it and owns it from then on; the destructor gives it back. Invariant:
// zptr is never null; while buf is set, zptr and zend are the static empty
// text and the text lives in buf.
//
//   velk::zstring detail;                    // borrows nothing yet
//   detail << "index " << name;              // takes a pooled charstr
//   report(detail.get_token());
//
// A borrowed text must outlive the zstring and stay unchanged, also when it
// is the text of another zstring, borrowed by copy construction.
#pragma once

#include "comm/charstr.h"
#include "comm/pool.h"
#include "comm/token.h"

#include <cstdint>

namespace velk {

class zstring
{
public:
    // A pool of spare charstrs. A string whose capacity (in characters) is at
    // or above max_size is freed instead of stored. The process-wide zpool is
    // worked on by every module's own copy of this code: its layout (the pool's
    // four words, then max_size) must agree in all of them.
    class zpool : public pool<charstr*>
    {
    public:
        zpool() = default;
        // Frees the strings stored in it: unlike a plain pool, a zpool owns
        // what it stores. No other thread may use it any more.
        ~zpool();

        uint64_t max_size = UINT64_MAX; // all ones: every string is kept
    };

    // Empty, borrowing the static empty text.
    zstring() = default;
    // Borrows a zero-terminated text; its end is found when first needed.
    // Null borrows the empty text.
    explicit zstring(const char* czstr);
    // Copies the token's text into a pooled string at once: a token need not
    // be terminated, nor outlive the call. Throws std::bad_alloc.
    explicit zstring(const token& t);
    // Copies the string's text into a pooled string. Throws std::bad_alloc.
    explicit zstring(const charstr& s);
    // Borrows other's text, from its pooled string if it has one, without
    // owning it; keeps other's pool for its own later string.
    zstring(const zstring& other);
    // Empty; its string, once needed, comes from pool.
    explicit zstring(zpool* pool) : _pool(pool) {}

    zstring& operator=(const zstring&) = delete;

    ~zstring() { free_string(); }

    // The owned string, made on first call: taken from pool, or else the
    // object's own, or else the thread's default; a new one when the pool has
    // none. The borrowed text is copied in. Throws std::bad_alloc, with the
    // zstring unchanged.
    charstr& get_str(zpool* pool = nullptr);

    // Gives the owned string back: freed when its capacity reaches the pool's
    // max_size, else stored in the pool. The zstring is empty afterwards.
    void free_string();

    // Reading works on the owned string, else on the borrowed text.
    const char* c_str() const { return _buf ? _buf->c_str() : _zptr; }
    token get_token() const;
    uint32_t lens() const;
    bool is_empty() const { return lens() == 0; }

    // The pool the string came from or will come from; null until needed.
    zpool* get_pool() const { return _pool; }
    // True once the zstring owns a pooled string.
    bool owns_string() const { return _buf != nullptr; }

    // Appends through get_str; each throws std::bad_alloc with the text kept.
    // Every zstring starts with a non-null borrowed text, so there is no
    // borrowing append: the first one copies.
    zstring& operator<<(const char* czstr);
    zstring& operator<<(const token& t);
    zstring& operator<<(const charstr& s);
    zstring& operator<<(const zstring& z);

    // This thread's default pool, made on first use from the process heap and
    // never freed: a string may go back to it from any thread, at any time.
    // Throws std::bad_alloc.
    static zpool* thread_pool();

    // The process-wide pool, a singleton under the type name of zpool.
    static zpool* process_pool();

private:
    static constexpr char empty_text[1] = "";

    uint32_t borrowed_lens() const;

    const char* _zptr = empty_text;
    // The last character of the borrowed text, or a zero byte when the end is
    // to be found by a scan, or null when not known yet.
    mutable const char* _zend = empty_text;
    charstr* _buf = nullptr;
    zpool* _pool = nullptr;
};

} // namespace velk
