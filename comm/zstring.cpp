// zstring: borrowing, the move to a pooled charstr and back, and the pools.
#include "comm/zstring.h"

#include "comm/singleton.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

namespace velk {

namespace {

// This module's key to the thread's default pool. Zero until the thread's
// first need; every module has its own, since the library is hidden in each.
constinit thread_local zstring::zpool* thread_zpool = nullptr;

// The process-wide pool, once registered. Racing first uses get the same
// instance from the singleton manager, so a plain store is enough.
constinit std::atomic<zstring::zpool*> process_zpool{nullptr};

charstr* new_string()
{
    void* block = global_alloc(sizeof(charstr));
    if (!block)
        throw std::bad_alloc();
    return new (block) charstr;
}

void delete_string(charstr* s)
{
    s->~charstr();
    global_release(s);
}

// A thread's pool outlives the thread on purpose (strings may come back to it
// later from elsewhere); the leak checker is told so, or it would report it.
void keep_deliberately(void* block)
{
#if defined(__SANITIZE_ADDRESS__)
    __lsan_ignore_object(block);
#else
    (void)block;
#endif
}

} // namespace

// -- Construction ------------------------------------------------------------

zstring::zstring(const char* czstr) : _zptr(czstr ? czstr : empty_text), _zend(czstr ? nullptr : empty_text) {}

zstring::zstring(const token& t)
{
    // zend is the last character itself: a token has no terminator to point at.
    if (!t.is_empty()) {
        _zptr = t.ptr();
        _zend = t.ptre() - 1;
    }
    get_str();
}

zstring::zstring(const charstr& s) : _zptr(s.c_str())
{
    uint32_t n = s.lens();
    _zend = n ? _zptr + n - 1 : _zptr;
    get_str();
}

zstring::zstring(const zstring& other) : _pool(other._pool)
{
    if (other._buf) {
        uint32_t n = other._buf->lens();
        _zptr = other._buf->c_str();
        _zend = n ? _zptr + n - 1 : _zptr;
    } else {
        _zptr = other._zptr;
        _zend = other._zend;
    }
}

// -- Reading -----------------------------------------------------------------

// zend non-null and on a non-zero byte: the text runs through it. Otherwise
// the end comes from a scan, and is remembered.
uint32_t zstring::borrowed_lens() const
{
    if (_zend && *_zend)
        return static_cast<uint32_t>(_zend - _zptr + 1);
    size_t n = strlen(_zptr);
    _zend = n ? _zptr + n - 1 : _zptr;
    return static_cast<uint32_t>(n);
}

uint32_t zstring::lens() const { return _buf ? _buf->lens() : borrowed_lens(); }

token zstring::get_token() const
{
    if (_buf)
        return token(*_buf);
    return token(_zptr, borrowed_lens());
}

// -- The pooled string ---------------------------------------------------------

charstr& zstring::get_str(zpool* pool)
{
    if (_buf)
        return *_buf;
    zpool* from = pool ? pool : _pool ? _pool : thread_pool();
    charstr* s = from->create_instance();
    if (!s)
        s = new_string();
    s->reset();
    if (uint32_t n = borrowed_lens()) {
        try {
            s->append(token(_zptr, n));
        } catch (...) { // out of memory: the zstring stays as it was
            delete_string(s);
            throw;
        }
    }
    _zptr = _zend = empty_text;
    _buf = s;
    _pool = from;
    return *s;
}

void zstring::free_string()
{
    charstr* s = std::exchange(_buf, nullptr);
    if (!s)
        return;
    if (comm_array_allocator::capacity(s->ptr()) >= _pool->max_size) {
        delete_string(s);
        return;
    }
    try {
        _pool->release_instance(s);
    } catch (const std::bad_alloc&) { // no node for it: free it, a destructor must not throw
        delete_string(s);
    }
}

// -- Appends -----------------------------------------------------------------

zstring& zstring::operator<<(const char* czstr)
{
    get_str().append(czstr);
    return *this;
}

zstring& zstring::operator<<(const token& t)
{
    get_str().append(t);
    return *this;
}

zstring& zstring::operator<<(const charstr& s)
{
    get_str().append(s);
    return *this;
}

zstring& zstring::operator<<(const zstring& z)
{
    charstr& s = get_str();
    // Appending itself: charstr reads its own text only after growing.
    if (&z == this)
        s.append(s);
    else
        s.append(z.get_token());
    return *this;
}

// -- Pools -------------------------------------------------------------------

zstring::zpool::~zpool()
{
    while (charstr* s = create_instance())
        delete_string(s);
}

zstring::zpool* zstring::thread_pool()
{
    if (zpool* p = thread_zpool)
        return p;
    // Zeroed, from the process heap: heads null and tags 0 before the
    // constructor sets max_size.
    void* block = std::calloc(1, sizeof(zpool));
    if (!block)
        throw std::bad_alloc();
    zpool* p = new (block) zpool;
    keep_deliberately(block);
    thread_zpool = p;
    return p;
}

zstring::zpool* zstring::process_pool()
{
    zpool* p = process_zpool.load(std::memory_order_acquire);
    if (!p) {
        p = register_singleton_of<zpool>(false);
        process_zpool.store(p, std::memory_order_release);
    }
    return p;
}

} // namespace velk
