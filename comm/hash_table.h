// hash_table: the chained hash table of the library.
//
// Chains hang off a power-of-two array of heads (a dynarray of node
// pointers, so the bucket count is the array's count word). The bucket of a
// hash is found by a Fibonacci multiplication and a shift, never a modulo, so
// a weak key hash (a plain integer id) still spreads. Invariants: the bucket
// count is a power of two and at least count (load limit 1; it never
// shrinks); nodes with equal keys sit next to each other in one chain; a
// node stays at its address from insertion to erasure. The table has no lock:
// its owner holds one around every call, iteration included.
//
//   id_hash_table<thread_record> threads;          // 64 buckets
//   threads.insert_value(record);                  // key: record->id
//   thread_record** r = threads.find_value(id);    // null when absent
//
// Unlike std::unordered_map: an iterator is a bare node pointer (next()
// hashes the key again at the end of a chain), insertion hands back a zeroed
// value for the caller to fill, and nothing but erasure invalidates a node.
#pragma once

#include "comm/alloc/commalloc.h"
#include "comm/commassert.h"
#include "comm/dynarray.h"
#include "comm/token.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <type_traits>

namespace velk {

// The size that the interface registry's and the thread manager's tables
// begin with; other owners may ask for a different start.
inline constexpr uint64_t hash_table_initial_buckets = 64;

// 2^64 divided by the golden ratio, odd: multiplying by it spreads the bits
// of a hash over the high end of the product (Fibonacci hashing).
inline constexpr uint64_t hash_table_golden = 0x9E3779B97F4A7C15ull;

// VAL is the payload of a node and must be default constructible; KEYOF
// gives the KEY of a VAL, HASH the 64-bit hash of a KEY, EQUAL compares two
// KEYs. All three are stateless function objects, made on each use.
template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL = std::equal_to<KEY>>
class hash_table
{
public:
    // A chain link: the value first, the link last. An iterator is a node
    // pointer; see first() and next().
    struct node
    {
        VAL value;
        node* next;
    };

    static_assert(alignof(node) <= alignof(std::max_align_t), "nodes come from global_alloc");

    // An empty table of the bucket count that grow(initial_buckets) gives
    // (64 by default). Throws std::bad_alloc.
    explicit hash_table(uint64_t initial_buckets = hash_table_initial_buckets);
    // Destroys and frees every node (clear).
    ~hash_table() { clear(); }

    hash_table(const hash_table&) = delete;
    hash_table& operator=(const hash_table&) = delete;

    // The bucket of hash h in a table whose shift is s, in 64-bit arithmetic
    // with wrap-around. The shift is taken modulo 64, as the hardware does, so
    // a one-bucket table (s of 64) always gives bucket 0.
    static uint64_t bucket_of(uint64_t h, uint32_t s)
    {
        s &= 63;
        return ((h ^ (h >> s)) * hash_table_golden) >> s;
    }

    // -- Lookup --------------------------------------------------------------

    // The value of the first node with a key equal to k, or null. The pointer
    // stays valid until that node is erased.
    VAL* find_value(const KEY& k) { return value_of(find_node(k)); }
    const VAL* find_value(const KEY& k) const { return value_of(find_node(k)); }

    // The position for insertion and erasure of k: the address of the pointer
    // that leads to the first node with an equal key; else of the null link
    // that ends the chain; else, for an empty chain, of the bucket itself.
    // Null only when the table has no buckets (after clear). Valid until the
    // next insertion, erasure or growth.
    node** find_slot(const KEY& k);

    // -- Insertion -----------------------------------------------------------

    // Adds a node for k at the end of k's chain and gives its value for the
    // caller to fill in; the key the caller stores must equal k. The value is
    // value-initialised: zero, except what a constructor of VAL's own sets.
    // (A user-provided constructor of VAL that leaves members alone leaves
    // them undefined.) Null, with nothing changed, when a node with an
    // equal key is there. Grows first when count + 1 exceeds the buckets.
    // Throws std::bad_alloc (or what VAL() throws) with the table unchanged.
    VAL* insert_unique(const KEY& k);

    // As insert_unique, with v copied in as the value and its key taken from
    // it. False, with the table as it was, when v's key is already there;
    // that is not an error. Throws as insert_unique, or what copying v
    // throws, with the table unchanged.
    bool insert_value(const VAL& v);

    // As insert_unique, but a key that is there already is no obstacle: the
    // new node goes directly before the first node with an equal key, so
    // equal keys stay together. Never null.
    VAL* insert_multi(const KEY& k);

    // -- Erasure -------------------------------------------------------------

    // Unlinks, destroys and frees the node whose value is v itself (compared
    // by address), searching only the chain of k, which must be v's key.
    // False, with nothing changed, when v is not in that chain.
    bool erase_value_slot(const VAL* v, const KEY& k);

    // Unlinks, destroys and frees every node with a key equal to k and gives
    // their number; 0 for an absent key. Other nodes stay where they are.
    uint64_t erase(const KEY& k);

    // Destroys and frees every node in bucket order, then the bucket array:
    // the table is empty and has no buckets. The next insertion grows it
    // again, from one bucket.
    void clear();

    // -- Iteration -----------------------------------------------------------

    // The first node in bucket order, or null for an empty table.
    node* first() const;

    // The node after n in bucket order, then chain order, or null after the
    // last. Costs one hash of n's key at the end of a chain. Any insertion,
    // erasure or growth ends a walk; a walk after a growth visits the nodes
    // in the new order.
    node* next(const node* n) const;

    // -- Size ----------------------------------------------------------------

    // Makes room for n nodes at load 1: to 2^b buckets, b the bit length of
    // n - 1 (0 for n below 2), so 65 gives 128 and 64 gives 64. False, with
    // nothing done, when n is not above the bucket count. Nodes are relinked,
    // never moved. Throws std::bad_alloc with the table unchanged.
    bool grow(uint64_t n);

    uint64_t count() const { return _count; }
    bool is_empty() const { return _count == 0; }
    uint64_t bucket_count() const { return _buckets.size(); }
    uint32_t shift() const { return _shift; }

    // The chain heads, read-only; for checks of the table's inner order.
    const dynarray<node*, uint64_t>& buckets() const { return _buckets; }

private:
    static KEY key_of(const node* n) { return KEYOF{}(n->value); }
    static VAL* value_of(node* n) { return n ? &n->value : nullptr; }
    static bool same_key(const node* n, const KEY& k) { return EQUAL{}(KEYOF{}(n->value), k); }
    node** bucket_slot(uint64_t h) { return _buckets.ptr() + bucket_of(h, _shift); }

    node* find_node(const KEY& k) const;
    node* make_node();
    static void free_node(node* n);
    void link(node** slot, node* n);
    void relink(node** fresh, uint32_t fresh_shift, node* n);
    // Shared by the insertions: a node filled by fill, linked at slot after
    // a growth if one is due.
    template <class FILL>
    VAL* add_at(node** slot, const KEY& k, FILL fill);
    static void leave_zeroed(VAL&) {}

    dynarray<node*, uint64_t> _buckets;
    uint64_t _count = 0;
    uint32_t _shift = 64; // 64 - log2(buckets); 64 also for a table without buckets
};

// -- Construction ---------------------------------------------------------------

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::hash_table(uint64_t initial_buckets)
{
    VELK_ASSERT_MSG(initial_buckets > 0, "a hash table needs at least one bucket");
    grow(initial_buckets);
}

// -- Lookup ---------------------------------------------------------------------

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
auto hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::find_node(const KEY& k) const -> node*
{
    node* const* heads = _buckets.ptr();
    if (!heads) // cleared?
        return nullptr;
    node* n = heads[bucket_of(HASH{}(k), _shift)];
    while (n && !same_key(n, k))
        n = n->next;
    return n;
}

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
auto hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::find_slot(const KEY& k) -> node**
{
    if (!_buckets.ptr()) // cleared?
        return nullptr;
    node** slot = bucket_slot(HASH{}(k));
    while (*slot && !same_key(*slot, k))
        slot = &(*slot)->next;
    return slot;
}

// -- Insertion ------------------------------------------------------------------

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
VAL* hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::insert_unique(const KEY& k)
{
    node** slot = find_slot(k);
    if (slot && *slot) // an equal key is there?
        return nullptr;
    return add_at(slot, k, leave_zeroed);
}

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
bool hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::insert_value(const VAL& v)
{
    KEY k = KEYOF{}(v);
    node** slot = find_slot(k);
    if (slot && *slot)
        return false;
    add_at(slot, k, [&v](VAL& fresh) { fresh = v; });
    return true;
}

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
VAL* hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::insert_multi(const KEY& k)
{
    return add_at(find_slot(k), k, leave_zeroed);
}

// The node is made and filled before the growth and linked last, so that a
// failure of any step leaves the table as it was. A growth moves the chains,
// so the slot is looked up again.
template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
template <class FILL>
VAL* hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::add_at(node** slot, const KEY& k, FILL fill)
{
    node* n = make_node();
    try {
        fill(n->value);
        if (grow(_count + 1))
            slot = find_slot(k);
    } catch (...) {
        free_node(n);
        throw;
    }
    link(slot, n);
    return &n->value;
}

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
void hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::link(node** slot, node* n)
{
    n->next = *slot;
    *slot = n;
    ++_count;
}

// node() value-initialises: node has no user-provided constructor, so the
// whole node is zeroed and then VAL's constructor, if any, runs. A memset
// ahead of placement new would not do: the compiler may drop stores made
// before an object's constructor begins.
template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
auto hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::make_node() -> node*
{
    void* p = global_alloc(sizeof(node));
    if (!p)
        throw std::bad_alloc();
    if constexpr (std::is_nothrow_default_constructible_v<VAL>) {
        return ::new (p) node();
    } else {
        try {
            return ::new (p) node();
        } catch (...) {
            global_release(p);
            throw;
        }
    }
}

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
void hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::free_node(node* n)
{
    std::destroy_at(n);
    global_release(n);
}

// -- Erasure --------------------------------------------------------------------

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
bool hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::erase_value_slot(const VAL* v, const KEY& k)
{
    if (!_buckets.ptr()) // cleared?
        return false;
    node** slot = bucket_slot(HASH{}(k));
    while (*slot && &(*slot)->value != v)
        slot = &(*slot)->next;
    node* n = *slot;
    if (!n)
        return false;
    *slot = n->next;
    free_node(n);
    --_count;
    return true;
}

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
uint64_t hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::erase(const KEY& k)
{
    node** slot = find_slot(k);
    uint64_t removed = 0;
    while (slot && *slot && same_key(*slot, k)) {
        node* n = *slot;
        *slot = n->next;
        free_node(n);
        ++removed;
    }
    _count -= removed;
    return removed;
}

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
void hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::clear()
{
    for (node* head : _buckets) {
        while (head) {
            node* n = head;
            head = n->next;
            free_node(n);
        }
    }
    _buckets.discard();
    _count = 0;
    _shift = 64;
}

// -- Iteration ------------------------------------------------------------------

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
auto hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::first() const -> node*
{
    for (node* head : _buckets)
        if (head)
            return head;
    return nullptr;
}

template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
auto hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::next(const node* n) const -> node*
{
    if (n->next)
        return n->next;
    uint64_t buckets = _buckets.size();
    for (uint64_t i = bucket_of(HASH{}(key_of(n)), _shift) + 1; i < buckets; ++i)
        if (_buckets[i])
            return _buckets[i];
    return nullptr;
}

// -- Growth ---------------------------------------------------------------------

// The new array is complete before the old one goes, so a failed allocation
// changes nothing. Old chains are walked in bucket order, each from its head.
template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
bool hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::grow(uint64_t n)
{
    if (n <= bucket_count())
        return false;
    uint32_t bits = n < 2 ? 0 : 64 - __builtin_clzll(n - 1);
    // 2^61 heads of 8 bytes would wrap the allocator's 64-bit byte count.
    if (bits > 60)
        throw std::bad_alloc();
    uint64_t size = uint64_t(1) << bits;
    uint32_t fresh_shift = 64 - bits;

    dynarray<node*, uint64_t> fresh;
    memset(static_cast<void*>(fresh.alloc(size)), 0, size * sizeof(node*));
    for (node* head : _buckets) {
        while (head) {
            node* moving = head;
            head = moving->next;
            relink(fresh.ptr(), fresh_shift, moving);
        }
    }
    _shift = fresh_shift;
    _buckets.swap(fresh); // the old array goes with fresh
    return true;
}

// Directly before the first node with an equal key, else at the end of the
// chain: equal keys stay together.
template <class VAL, class KEY, class KEYOF, class HASH, class EQUAL>
void hash_table<VAL, KEY, KEYOF, HASH, EQUAL>::relink(node** fresh, uint32_t fresh_shift, node* n)
{
    KEY k = key_of(n);
    node** slot = fresh + bucket_of(HASH{}(k), fresh_shift);
    while (*slot && !same_key(*slot, k))
        slot = &(*slot)->next;
    n->next = *slot;
    *slot = n;
}

// -- Text keys: the registry's form ---------------------------------------------

// The leading keylen characters from first. An end that would wrap below the
// start is taken as the start, so an overflowed keylen gives an empty key.
inline token prefix_key(const char* first, uint32_t keylen)
{
    uintptr_t start = reinterpret_cast<uintptr_t>(first);
    uintptr_t end = start + keylen;
    return token(first, end < start ? uint32_t(0) : keylen);
}

// token_hash, widened to the table's 64-bit hash word.
struct token_key_hash
{
    uint64_t operator()(const token& k) const { return token_hash(k.ptr(), k.ptre()); }
};

// Lengths first, the bytes only when they agree. Inline, unlike
// token::operator==, since it runs on every step of a chain.
struct token_key_equal
{
    bool operator()(const token& a, const token& b) const
    {
        uint32_t n = a.lens();
        return n == b.lens() && (n == 0 || memcmp(a.ptr(), b.ptr(), n) == 0);
    }
};

// The key of an entry that holds its whole text in `ifcname` and the length
// of the key part in `keylen`; the rest of the text is not part of the key.
template <class ENTRY>
struct name_prefix_key
{
    token operator()(const ENTRY& e) const { return prefix_key(e.ifcname.ptr(), e.keylen); }
};

template <class ENTRY, class KEYOF = name_prefix_key<ENTRY>>
using token_hash_table = hash_table<ENTRY, token, KEYOF, token_key_hash, token_key_equal>;

// -- Integer ids: the thread manager's form -------------------------------------

// The id is its own hash; the bucket's multiplication does the spreading.
struct id_key_hash
{
    uint64_t operator()(uint32_t id) const { return id; }
};

// The value is a pointer to a record that carries its 32-bit `id`.
template <class RECORD>
struct record_id_key
{
    uint32_t operator()(RECORD* const& r) const { return r->id; }
};

template <class RECORD>
using id_hash_table = hash_table<RECORD*, uint32_t, record_id_key<RECORD>, id_key_hash>;

} // namespace velk
