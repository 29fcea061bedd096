// Test helpers for the registry's table: text of a token, fake creators, and
// the set of keys of a list result.
#pragma once

#include "interface/interface_register.h"

#include <cstdint>
#include <set>
#include <string>

namespace register_helpers {

inline std::string str(const velk::token& t) { return std::string(t.ptr() ? t.ptr() : "", t.lens()); }

// Distinct fake creators: the table never calls them.
inline velk::creator_fn fake(uintptr_t n) { return reinterpret_cast<velk::creator_fn>(0x1000 + 16 * n); }

inline std::set<std::string> keys_of(const velk::dynarray<velk::creator_match>& found)
{
    std::set<std::string> keys;
    for (const velk::creator_match& m : found)
        keys.insert(str(m.key));
    return keys;
}

} // namespace register_helpers
