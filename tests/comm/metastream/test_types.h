// Test types of metastream: structures with nested structures, dynamic and
// fixed arrays of primitives and of structures, optional, obsolete and
// defaulted members, and three levels of generated values. Each has its streaming function
// and a member-by-member comparison, so that any format's tests can reuse
// them.
#pragma once

#include "comm/charstr.h"
#include "comm/dynarray.h"
#include "comm/metastream/metastream.h"

#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace velk::testing {

struct point
{
    int32_t x = 0;
    int32_t y = 0;
};

inline void stream_meta(metastream& m, point* p)
{
    if (!m.struct_begin("point", p))
        return;
    m.member("x", p, &point::x);
    m.member("y", p, &point::y);
    m.struct_end();
}

inline bool operator==(const point& a, const point& b)
{
    return a.x == b.x && a.y == b.y;
}

// Nested structure, arrays of both kinds, a fixed array, floats and bools.
struct shape
{
    charstr name;
    point origin;
    dynarray<point> vertices;
    dynarray<int32_t> weights;
    int16_t corners[4] = {};
    double scale = 0;
    bool closed = false;
};

inline void stream_meta(metastream& m, shape* p)
{
    if (!m.struct_begin("shape", p))
        return;
    m.member("name", p, &shape::name);
    m.member("origin", p, &shape::origin);
    m.member("vertices", p, &shape::vertices);
    m.member("weights", p, &shape::weights);
    m.member("corners", p, &shape::corners);
    m.member("scale", p, &shape::scale);
    m.member("closed", p, &shape::closed);
    m.struct_end();
}

template <class T>
bool same_array(const dynarray<T>& a, const dynarray<T>& b)
{
    if (a.size() != b.size())
        return false;
    for (uint32_t i = 0; i < a.size(); ++i)
        if (!(a[i] == b[i]))
            return false;
    return true;
}

inline bool operator==(const shape& a, const shape& b)
{
    return a.name == b.name && a.origin == b.origin && same_array(a.vertices, b.vertices) &&
           same_array(a.weights, b.weights) && memcmp(a.corners, b.corners, sizeof a.corners) == 0 &&
           a.scale == b.scale && a.closed == b.closed;
}

// A shape with every member set, for the samples that formats write and
// read back: the fixed array's first and last corners are given, the two
// between stay 0.
inline shape make_shape(const char* name, point origin, std::initializer_list<point> vertices,
                        std::initializer_list<int32_t> weights, int16_t first_corner, int16_t last_corner,
                        double scale, bool closed)
{
    shape s;
    s.name = name;
    s.origin = origin;
    for (const point& v : vertices)
        *s.vertices.push() = v;
    for (int32_t w : weights)
        *s.weights.push() = w;
    s.corners[0] = first_corner;
    s.corners[3] = last_corner;
    s.scale = scale;
    s.closed = closed;
    return s;
}

// Optional, obsolete and defaulted members.
struct settings
{
    int32_t level = 0;   // optional
    charstr comment;     // optional
    int64_t legacy = 0;  // obsolete: read when present, never written
    point anchor;        // default {7, 8}
    int32_t retries = 0; // default 3
    charstr mode;        // default "fast"
    dynarray<uint16_t> ports; // default [80, 443]
};

inline const meta::byte_array& anchor_default()
{
    static const meta::byte_array d = metastream::make_default(point{7, 8});
    return d;
}
inline const meta::byte_array& retries_default()
{
    static const meta::byte_array d = metastream::make_default(int32_t(3));
    return d;
}
inline const meta::byte_array& mode_default()
{
    static const meta::byte_array d = metastream::make_default(charstr("fast"));
    return d;
}
inline const meta::byte_array& ports_default()
{
    static const meta::byte_array d = [] {
        dynarray<uint16_t> ports;
        *ports.add(1) = 80;
        *ports.add(1) = 443;
        return metastream::make_default(ports);
    }();
    return d;
}

inline void stream_meta(metastream& m, settings* p)
{
    if (!m.struct_begin("settings", p))
        return;
    m.member("level", p, &settings::level, metastream::member_optional);
    m.member("comment", p, &settings::comment, metastream::member_optional);
    m.member("legacy", p, &settings::legacy, metastream::member_obsolete);
    m.member("anchor", p, &settings::anchor, 0, &anchor_default());
    m.member("retries", p, &settings::retries, 0, &retries_default());
    m.member("mode", p, &settings::mode, 0, &mode_default());
    m.member("ports", p, &settings::ports, 0, &ports_default());
    m.struct_end();
}

// A structure whose nested structure has a default as a whole.
struct framed
{
    charstr title;
    shape body; // default: a named triangle
};

inline const meta::byte_array& body_default()
{
    static const meta::byte_array d = [] {
        shape s;
        s.name = "triangle";
        s.origin = {1, 1};
        *s.vertices.push() = {0, 0};
        *s.vertices.push() = {4, 0};
        *s.vertices.push() = {0, 3};
        *s.weights.push() = 5;
        s.corners[0] = 3;
        s.scale = 0.5;
        s.closed = true;
        return metastream::make_default(s);
    }();
    return d;
}

inline void stream_meta(metastream& m, framed* p)
{
    if (!m.struct_begin("framed", p))
        return;
    m.member("title", p, &framed::title);
    m.member("body", p, &framed::body, 0, &body_default());
    m.struct_end();
}

// Three levels of generated values: a forest of branches of leaves.
struct leaf
{
    int64_t id = 0;
    charstr tag;
    dynarray<uint16_t> small;
    float weight = 0;
    uint8_t flags[3] = {};
};

inline void stream_meta(metastream& m, leaf* p)
{
    if (!m.struct_begin("leaf", p))
        return;
    m.member("id", p, &leaf::id);
    m.member("tag", p, &leaf::tag);
    m.member("small", p, &leaf::small);
    m.member("weight", p, &leaf::weight);
    m.member("flags", p, &leaf::flags);
    m.struct_end();
}

inline bool operator==(const leaf& a, const leaf& b)
{
    return a.id == b.id && a.tag == b.tag && same_array(a.small, b.small) &&
           memcmp(&a.weight, &b.weight, sizeof a.weight) == 0 && memcmp(a.flags, b.flags, sizeof a.flags) == 0;
}

struct branch
{
    charstr name;
    point at;
    dynarray<leaf> leaves;
};

inline void stream_meta(metastream& m, branch* p)
{
    if (!m.struct_begin("branch", p))
        return;
    m.member("name", p, &branch::name);
    m.member("at", p, &branch::at);
    m.member("leaves", p, &branch::leaves);
    m.struct_end();
}

inline bool operator==(const branch& a, const branch& b)
{
    return a.name == b.name && a.at == b.at && same_array(a.leaves, b.leaves);
}

struct forest
{
    int32_t seed = 0;
    dynarray<branch> branches;
};

inline void stream_meta(metastream& m, forest* p)
{
    if (!m.struct_begin("forest", p))
        return;
    m.member("seed", p, &forest::seed);
    m.member("branches", p, &forest::branches);
    m.struct_end();
}

inline bool operator==(const forest& a, const forest& b)
{
    return a.seed == b.seed && same_array(a.branches, b.branches);
}

} // namespace velk::testing
