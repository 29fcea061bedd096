// path_algebra: pure operations on path texts; no call reaches the system.
//
// A path is a byte string. Both "/" and "\" separate segments on input, and a
// run of separators counts as one. `separator` is what the library writes.
// Absolute forms: a drive ("X:" as the first two characters, X no
// separator), a UNC start (two backslashes), and on a system whose separator
// is "/" a leading "/". Every other path is relative, including one that
// starts with a single "\". The root of a path is its absolute form, or that
// single "\"; climbs and compaction never remove it.
//
// The operations never look at the file system, never fold case except where
// a contract says so, and leave their output unchanged when they fail.
//
//   charstr p = "scripts/";
//   if (path_algebra::append_path(p, "lib/../main.js", true) && path_algebra::compact_path(p, '/'))
//       ...                                  // p is "scripts/main.js"
#pragma once

#include "comm/charstr.h"
#include "comm/token.h"

namespace velk {

class path_algebra
{
public:
#if defined(_WIN32)
    static constexpr char separator = '\\';
#else
    static constexpr char separator = '/';
#endif
    static constexpr char separator_str[2] = {separator, 0};

    // The full separator set, for the cuts of token.
    static constexpr token separators = token("\\/");

    // Both separators are accepted on every system, whatever it writes itself.
    static constexpr bool is_separator(char c) { return c == '/' || c == '\\'; }

    // Whether the last character of path is a separator; false when empty.
    static bool ends_in_separator(const token& path)
    {
        return !path.is_empty() && is_separator(path[path.lens() - 1]);
    }

    // path without one trailing separator, but never without its only
    // character: "/" is the root, and an empty path names nothing. The
    // result points into path.
    static token without_trailing_separator(const token& path)
    {
        return path.lens() > 1 && ends_in_separator(path) ? token(path.ptr(), path.lens() - 1) : path;
    }

    // A drive ("C:", "C:x"), a UNC start, or a leading "/" where that is the
    // root. "\a", "\:a" and anything shorter than two characters other than
    // "/" are not.
    static bool is_absolute_path(const token& path);

    // Whether path lies at or below root, segment by segment, byte for byte.
    // An empty root holds everything. On true, path is left at what follows
    // the root (its next segment, with no leading separator); on false path
    // is unchanged.
    static bool is_subpath(const token& root, token& path);

    // Appends path to dst. An absolute path replaces dst (result 1). A relative
    // one climbs out of dst by its leading ".." segments, then is appended as
    // it stands, behind a separator (the one dst ends in, else `separator`).
    // With check_climb, the result is 1 when path climbs above dst anywhere,
    // else -1; without it, -1 unless path was absolute. 0 is failure, with dst
    // unchanged: a leading ".." above the start or the root of dst, or one
    // glued to more characters ("..x").
    // path must not point into dst. Throws std::bad_alloc, dst unchanged.
    static int append_path(charstr& dst, const token& path, bool check_climb);

    // Removes "." segments and ".." segments with the segment they undo, and
    // shrinks separator runs to one, replaced by replacement unless it is 0
    // (it must be a separator then). A relative path keeps the ".." segments
    // it can't undo. False, path unchanged, for a ".." above the root of an
    // absolute path and for a drive-relative path ("C:x"). The result is
    // never longer than the path. Never allocates.
    static bool compact_path(charstr& path, char replacement);

    // The relative path that leads from src to dst, into out; case is ignored
    // when comparing their common start. src_is_file: src's last segment is a
    // file, not a level. False, out unspecified, when just one of the two has
    // a drive or a root, when src climbs above its own start, or when dst
    // climbs above out. Throws std::bad_alloc.
    static bool get_relative_path(const token& src, const token& dst, charstr& out, bool src_is_file);
};

} // namespace velk
