// pool: a lock-free, unordered store of pointers, for objects that are
// reused instead of freed (log messages, temporary strings).
//
// Two tagged stacks of nodes: items, whose nodes hold a stored pointer, and
// spare nodes. Each stack's head and its tag form one 16-byte unit that is
// replaced by a single 128-bit compare-and-exchange; the tag grows with every
// change, so a head that was popped and pushed back in between is still seen
// as changed (the ABA problem). Nodes come from global_alloc and are freed
// only when the pool ends, which is what makes it safe to read the next field
// of a node that another thread may just have taken.
//
//   velk::pool<policy_msg*> messages;
//   policy_msg* m = messages.create_instance();   // null: build a new one
//   ...
//   messages.release_instance(m);                 // stored for the next taker
//
// Any number of threads may take and store at once. The pool owns its nodes,
// never the stored objects.
#pragma once

#include "comm/alloc/commalloc.h"

#include <cstdint>
#include <new>
#include <type_traits>

// The tagged heads need the 128-bit compare-and-exchange inline. On x86-64
// GCC emits cmpxchg16b for the 16-byte __sync builtins only with -mcx16 (the
// build passes it); without it they would become calls to libatomic, which
// may take a lock.
#if defined(__x86_64__) && !defined(__GCC_HAVE_SYNC_COMPARE_AND_SWAP_16)
#error "velk::pool needs cmpxchg16b: compile with -mcx16"
#endif

namespace velk {

// -- Tagged stack --------------------------------------------------------------

// A stack of nodes whose first field is `Node* next`. The head and its tag
// are one 16-byte unit: 16 is the width of the compare-and-exchange, which
// needs that alignment.
template <class Node>
class alignas(16) tagged_stack
{
public:
    // The top node, unlinked, or null for an empty stack.
    Node* pop_node()
    {
        for (;;) {
            uint64_t tag = __atomic_load_n(&_tag, __ATOMIC_ACQUIRE);
            Node* head = __atomic_load_n(&_head, __ATOMIC_ACQUIRE);
            if (!head)
                return nullptr;
            // head may be taken by another thread meanwhile; its memory stays,
            // and a stale next makes the exchange below fail on the tag.
            Node* next = __atomic_load_n(&head->next, __ATOMIC_RELAXED);
            if (exchange(head, tag, next))
                return head;
        }
    }

    // Links node on top. The node must not be in any stack.
    void push_node(Node* node)
    {
        for (;;) {
            uint64_t tag = __atomic_load_n(&_tag, __ATOMIC_ACQUIRE);
            Node* head = __atomic_load_n(&_head, __ATOMIC_ACQUIRE);
            __atomic_store_n(&node->next, head, __ATOMIC_RELAXED);
            if (exchange(head, tag, node))
                return;
        }
    }

    // A look without a lock: true when the stack was empty at that moment.
    bool is_empty() const { return __atomic_load_n(&_head, __ATOMIC_ACQUIRE) == nullptr; }

    // The number of changes so far; for tests.
    uint64_t tag() const { return __atomic_load_n(&_tag, __ATOMIC_ACQUIRE); }

private:
    // Replaces (head, tag) with (to, tag + 1) when the unit still holds the
    // values read. A full barrier either way.
    bool exchange(Node* head, uint64_t tag, Node* to)
    {
        unit expected{head, tag};
        unit desired{to, tag + 1};
#if defined(__GCC_HAVE_SYNC_COMPARE_AND_SWAP_16)
        return __sync_bool_compare_and_swap(reinterpret_cast<unsigned __int128*>(this),
                                            as_int(expected), as_int(desired));
#else
        // A platform without an inline 128-bit exchange: libatomic's.
        return __atomic_compare_exchange(reinterpret_cast<unit*>(this), &expected, &desired, false,
                                         __ATOMIC_SEQ_CST, __ATOMIC_SEQ_CST);
#endif
    }

    struct alignas(16) unit
    {
        Node* head;
        uint64_t tag;
    };

    static unsigned __int128 as_int(const unit& u) { return __builtin_bit_cast(unsigned __int128, u); }

    Node* _head = nullptr;
    uint64_t _tag = 0;
};

// -- Pool ----------------------------------------------------------------------

// T is the stored pointer type.
template <class T>
class pool
{
    static_assert(std::is_pointer_v<T>, "a pool stores pointers");

public:
    struct node
    {
        node* next;
        T value;
    };

    pool() = default;
    pool(const pool&) = delete;
    pool& operator=(const pool&) = delete;

    // Frees the nodes of both stacks; the stored objects are not touched.
    // No other thread may use the pool any more.
    ~pool()
    {
        free_nodes(_items);
        free_nodes(_nodes);
    }

    // A stored pointer, or null when none is stored: the caller then builds a
    // new object. The most recently stored pointer comes first.
    T create_instance()
    {
        node* n = _items.pop_node();
        if (!n)
            return nullptr;
        T value = n->value;
        _nodes.push_node(n);
        return value;
    }

    // Stores value for a later create_instance. Throws std::bad_alloc when no
    // spare node exists and none can be allocated; value is then not stored.
    void release_instance(T value)
    {
        node* n = _nodes.pop_node();
        if (!n)
            n = new_node();
        n->value = value;
        _items.push_node(n);
    }

    // A look without a lock: true when nothing was stored at that moment.
    bool is_empty() const { return _items.is_empty(); }

private:
    static node* new_node()
    {
        void* block = global_alloc(sizeof(node));
        if (!block)
            throw std::bad_alloc();
        return new (block) node{nullptr, nullptr};
    }

    static void free_nodes(tagged_stack<node>& stack)
    {
        while (node* n = stack.pop_node())
            global_release(n);
    }

    tagged_stack<node> _items;
    tagged_stack<node> _nodes;
};

} // namespace velk
