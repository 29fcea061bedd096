// path_algebra: segments, roots, climbs and the edits built on them.
//
// Everything here walks a path as its root (see read_root) followed by
// segments, where a run of separators of either kind divides two segments.
// Edits happen in place from left to right, writing never ahead of reading,
// so that compaction needs no second buffer.
#include "comm/dir/path_algebra.h"

#include "comm/commassert.h"

#include <cstdint>
#include <cstring>

namespace velk {

namespace {

// Where the separator is "/", a leading "/" is the root of the file system.
constexpr bool slash_is_root = path_algebra::separator == '/';

bool is_sep(char c) { return path_algebra::is_separator(c); }

bool is_dot(const token& seg) { return seg.lens() == 1 && seg[0] == '.'; }
bool is_dotdot(const token& seg) { return seg.lens() == 2 && seg[0] == '.' && seg[1] == '.'; }

bool same_icase(const token& a, const token& b)
{
    return a.lens() == b.lens() && a.ends_with_icase(b);
}

// Cuts the first segment off t, with the run of separators behind it. A path
// that starts with a separator gives an empty first segment, so "/a" and "a"
// never match.
token cut_segment(token& t)
{
    const char* p = t.ptr();
    const char* e = t.ptre();
    while (p < e && !is_sep(*p))
        ++p;
    token seg(t.ptr(), p);
    while (p < e && is_sep(*p))
        ++p;
    t = token(p, e);
    return seg;
}

// The part of a path that climbs and compaction never touch.
struct path_root
{
    uint32_t len = 0;
    bool absolute = false;
    bool drive_relative = false; // "C:x": relative to the drive's own current directory
    bool drive_separator = false; // "C:/": the third character is the separator
};

// A path that starts with a separator is never read as a drive: "\:x" is a
// name below "\", not a drive-relative path.
path_root read_root(const token& t)
{
    uint32_t n = t.lens();
    if (n == 0)
        return {};
    if (slash_is_root && t[0] == '/')
        return {1, true, false, false};
    if (n >= 2 && t[0] == '\\' && t[1] == '\\')
        return {2, true, false, false}; // UNC
    if (is_sep(t[0]))
        return {1, false, false, false}; // "\a": relative, but no climb may remove its "\"
    if (n >= 2 && t[1] == ':') {
        if (n == 2)
            return {2, true, false, false};
        if (is_sep(t[2]))
            return {3, true, false, true};
        return {2, true, true, false};
    }
    return {};
}

// Whether a walk over the segments of t, "." staying and ".." going up,
// ever goes above where it started.
bool climbs_above_start(token t)
{
    int64_t depth = 0;
    while (!t.is_empty()) {
        token seg = cut_segment(t);
        if (seg.is_empty() || is_dot(seg))
            continue;
        depth += is_dotdot(seg) ? -1 : 1;
        if (depth < 0)
            return true;
    }
    return false;
}

bool starts_with_dotdot(const token& t)
{
    return t.lens() >= 2 && t[0] == '.' && t[1] == '.';
}

// Index of the last separator in [from, end), or -1.
int64_t last_separator(const char* s, uint32_t from, uint32_t end)
{
    for (uint32_t i = end; i > from; --i)
        if (is_sep(s[i - 1]))
            return i - 1;
    return -1;
}

// Whether t has characters inside s, which a change of s could move or overwrite.
bool points_into(const charstr& s, const token& t)
{
    uintptr_t first = reinterpret_cast<uintptr_t>(s.ptr());
    uintptr_t at = reinterpret_cast<uintptr_t>(t.ptr());
    return s.ptr() && !t.is_empty() && at >= first && at < first + s.lens();
}

// Replaces dst[cut, end of dst) by sep (when not 0) and tail. The growth
// comes first, so that an allocation failure leaves dst as it was.
void splice_tail(charstr& dst, uint32_t cut, char sep, const token& tail)
{
    uint32_t old = dst.lens();
    uint32_t n = (sep ? 1 : 0) + tail.lens();
    if (n) {
        char* to = dst.append_buffer(n);
        if (sep)
            *to++ = sep;
        if (tail.lens()) // a null tail has no characters to copy from
            memcpy(to, tail.ptr(), tail.lens());
    }
    if (old > cut)
        dst.del(static_cast<int32_t>(cut), old - cut);
}

// Start of the last segment written to p[floor, w), with its separator in
// front, when there is one. Written segments are divided by one separator each.
uint32_t drop_last_segment(const char* p, uint32_t floor, uint32_t w)
{
    uint32_t i = w;
    while (i > floor && !is_sep(p[i - 1]))
        --i;
    return i > floor ? i - 1 : floor;
}

// Moves down back over the last segment of [floor, down), with the
// separators behind it; false when no segment is left.
bool walk_back(const char* floor, const char*& down)
{
    const char* p = down;
    while (p > floor && is_sep(p[-1]))
        --p;
    if (p == floor)
        return false;
    while (p > floor && !is_sep(p[-1]))
        --p;
    down = p;
    return true;
}

bool has_drive(const token& t) { return t.lens() >= 2 && t[1] == ':' && !is_sep(t[0]); }
bool is_rooted(const token& t) { return is_sep(t.first_char()); }

} // namespace

bool path_algebra::is_absolute_path(const token& path)
{
    return read_root(path).absolute;
}

bool path_algebra::is_subpath(const token& root, token& path)
{
    if (root.is_empty())
        return true;
    token r = root;
    token p = path;
    while (!r.is_empty()) {
        if (p.is_empty())
            return false;
        if (!(cut_segment(r) == cut_segment(p)))
            return false;
    }
    path = p;
    return true;
}

// -- Appending ------------------------------------------------------------

// Leading ".." segments of path move the end of dst back one segment each;
// whatever follows is appended as it stands. A trailing separator of dst
// names the separator to write. The root of dst ("/", a UNC start, "C:/") is
// never cut: climbs stop above it, so "/a" with "../b" gives "/b", never "b",
// and a bare UNC start keeps both backslashes. A relative dst has an empty
// root, and its start counts as the parent of its first segment.
int path_algebra::append_path(charstr& dst, const token& path, bool check_climb)
{
    VELK_ASSERT_MSG(!points_into(dst, path), "append_path: the path lies inside dst");
    if (is_absolute_path(path)) {
        // The climb test of dst against itself always passes: nothing to check.
        dst = path;
        return 1;
    }

    const char* d = dst.ptr();
    uint32_t floor = read_root(dst).len;
    uint32_t end = dst.lens();
    char sep = separator;
    if (end && is_sep(d[end - 1]))
        sep = d[--end];

    bool climbed = false;
    token rest = path;
    while (starts_with_dotdot(rest)) {
        const char* after = rest.ptr() + 2;
        if (after != rest.ptre() && !is_sep(*after))
            return 0; // "..x" is a name, not a climb, and a name can't start here
        if (end <= floor)
            return 0; // nothing left to climb out of
        int64_t at = last_separator(d, floor, end);
        end = at < 0 ? floor : static_cast<uint32_t>(at);
        if (at >= 0)
            sep = d[at];
        if (check_climb)
            climbed = true;
        if (after == rest.ptre()) {
            rest = token(after, after); // ".." ended the path
            break;
        }
        rest = token(after + 1, rest.ptre());
    }
    if (check_climb && !climbed)
        climbed = climbs_above_start(rest);

    uint32_t cut = end > floor ? end : floor;
    bool need_sep = cut > 0 && !is_sep(d[cut - 1]);
    splice_tail(dst, cut, need_sep ? sep : 0, rest);
    return climbed ? 1 : -1;
}

// -- Compaction -----------------------------------------------------------

// Validates first and edits after, so that a failure changes nothing. The
// edit keeps the root, then rewrites each kept segment behind one separator:
// the first of its run, or replacement. A ".." undoes the segment written
// last; one with nothing to undo stays in a relative path.
bool path_algebra::compact_path(charstr& path, char replacement)
{
    VELK_ASSERT_MSG(replacement == 0 || is_sep(replacement), "compact_path: replacement is no separator");
    token t = path;
    path_root root = read_root(t);
    if (root.drive_relative)
        return false;
    if (root.absolute && climbs_above_start(token(t.ptr() + root.len, t.ptre())))
        return false;

    char* p = path.ptr();
    uint32_t n = t.lens();
    if (root.drive_separator && replacement)
        p[2] = replacement;

    uint32_t w = root.len;
    uint32_t r = root.len;
    uint32_t depth = 0;
    while (r < n) {
        uint32_t run = r;
        while (r < n && is_sep(p[r]))
            ++r;
        char sep = replacement ? replacement : p[run];
        if (r == n) { // a trailing run: one separator stays behind a kept segment
            if (w > root.len)
                p[w++] = sep;
            break;
        }
        uint32_t first = r;
        while (r < n && !is_sep(p[r]))
            ++r;
        token seg(p + first, p + r); // read before the move below overwrites it
        if (is_dot(seg))
            continue;
        bool climb = is_dotdot(seg);
        if (climb && depth > 0) {
            w = drop_last_segment(p, root.len, w);
            --depth;
            continue;
        }
        if (w > root.len)
            p[w++] = sep;
        memmove(p + w, p + first, r - first);
        w += r - first;
        if (!climb)
            ++depth;
    }
    path.resize(static_cast<int32_t>(w));
    return true;
}

// -- Relative paths -------------------------------------------------------

// After the common start, each remaining segment of src either goes one level
// deeper (one ".." to come back), undoes such a level, or, with none left,
// climbs into the common start: the segment climbed out of must be entered
// again on the way to dst. So out is the ".."s, then the re-entered part of
// the common start, then the rest of dst.
bool path_algebra::get_relative_path(const token& src_path, const token& dst_path, charstr& out, bool src_is_file)
{
    if (has_drive(src_path) != has_drive(dst_path) || is_rooted(src_path) != is_rooted(dst_path))
        return false;

    token src = src_path;
    if (src.lens() > 1 && is_sep(src[src.lens() - 1]))
        src = token(src.ptr(), src.lens() - 1);
    token dst = dst_path;
    while (!src.is_empty() && !dst.is_empty()) {
        token s = src;
        token d = dst;
        if (!same_icase(cut_segment(s), cut_segment(d)))
            break;
        src = s;
        dst = d;
    }

    token common(src_path.ptr(), src.ptr());
    uint32_t root_len = read_root(src_path).len;
    const char* floor = common.ptr() + (root_len < common.lens() ? root_len : common.lens());
    const char* down = common.ptre();
    uint32_t ups = 0;
    while (!src.is_empty()) {
        token seg = cut_segment(src);
        if (seg.is_empty() || is_dot(seg))
            continue;
        if (is_dotdot(seg)) {
            if (ups)
                --ups;
            else if (!walk_back(floor, down))
                return false; // above the start of src
            continue;
        }
        if (!(src.is_empty() && src_is_file))
            ++ups;
    }

    out.reset();
    for (uint32_t i = 0; i < ups; ++i)
        out << ".." << separator;
    out << token(down, common.ptre());
    return append_path(out, dst, false) != 0;
}

} // namespace velk
