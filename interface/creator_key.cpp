// creator_key: the parse of registry keys, one step per separator, each step
// working on what the step before left over.
#include "interface/creator_key.h"

namespace velk {

namespace {

// A client hook's kind: "client", then "-" and the hash.
constexpr token client_kind = "client";

bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Splits t at its first c: the part before comes back, t keeps the part
// after. Without c everything comes back and t is left empty at its end.
token cut_front_at(token& t, char c)
{
    for (const char* p = t.ptr(); p < t.ptre(); ++p) {
        if (*p == c) {
            token left(t.ptr(), p);
            t = token(p + 1, t.ptre());
            return left;
        }
    }
    token whole = t;
    t = token(t.ptre(), t.ptre());
    return whole;
}

// Step 6: a suffix that starts with a digit gives the number at the start of
// kind; "client-N" gives N and shortens kind to "client"; anything else 0.
void read_suffix_hash(creator_key& k, const token& suffix)
{
    if (is_digit(suffix.first_char())) {
        k.hash = read_key_number(k.kind);
        return;
    }
    uint32_t n = client_kind.lens();
    bool is_client = k.kind.lens() > n && k.kind[n] == '-' &&
                     token(k.kind.ptr(), n) == client_kind;
    if (is_client) {
        k.hash = read_key_number(token(k.kind.ptr() + n + 1, k.kind.ptre()));
        k.kind = token(k.kind.ptr(), n);
    }
}

// Step 7: "file:handle", split at the last ":".
void read_module_part(creator_key& k, token part)
{
    constexpr uint32_t flags = cut_drop_separator | cut_return_right | cut_empty_if_none;
    token handle = part.cut_back_at(':', flags);
    k.module = part;
    k.module_handle = handle.touint(10);
}

} // namespace

uint32_t read_key_number(const token& t)
{
    // Truncating the 64-bit reading keeps exactly the 32-bit wrapped value.
    return static_cast<uint32_t>(t.touint(10));
}

interface_name split_interface_name(const token& name)
{
    interface_name n;
    // "::" as a group of two characters, so that a run of ":" is cut as one;
    // a group of one character would cut at the last ":" alone.
    n.ns = name;
    token rest = n.ns.cut_back_at_group("::", cut_drop_separator | cut_return_right);
    n.class_name = cut_front_at(rest, '.');
    n.method = rest;
    return n;
}

creator_key parse_creator_key(const token& full)
{
    constexpr uint32_t right_or_empty = cut_drop_separator | cut_return_right | cut_empty_if_none;
    constexpr uint32_t right_or_whole = cut_drop_separator | cut_return_right;
    creator_key k;

    token key = full;
    token module_part = key.cut_back_at('*', right_or_empty);
    k.key = key;

    token name = key;
    token suffix = name.cut_back_at('@', right_or_empty);

    token rest = name.cut_back_at_substring("::", false, right_or_whole);
    k.ns = name;
    k.method = rest.cut_back_at('.', right_or_empty);
    k.class_name = rest;

    token script = suffix;
    k.kind = cut_front_at(script, '.');
    k.script = script;
    read_suffix_hash(k, suffix);

    read_module_part(k, module_part);
    return k;
}

} // namespace velk
