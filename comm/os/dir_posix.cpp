// The file system seam on POSIX. A directory search is opendir and readdir
// with the name filter matched here, as the system's search would match it;
// paths reach the system with every "\" turned into "/", since the library
// takes both as separators.
#include "comm/os/dir.h"

#include "comm/alloc/commalloc.h"

#include <dirent.h>
#include <pwd.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <new>
#include <utility>

namespace velk::os {

namespace {

// A zero-terminated copy of path with the system's separator only.
charstr native_path(const token& path)
{
    charstr s(path);
    char* p = s.ptr();
    for (uint32_t i = 0, n = s.lens(); i < n; ++i)
        if (p[i] == '\\')
            p[i] = '/';
    return s;
}

int fold(char c) { return ::tolower(static_cast<unsigned char>(c)); }

// "*" takes any run, "?" any one character; the rest compare without case, as
// the search of the system the library was first written for does. A "*"
// that fails to extend is retried one character further, which is enough for
// patterns of this kind.
bool wildcard_match(const char* p, const char* pe, const char* s, const char* se)
{
    const char* star = nullptr;
    const char* resume = nullptr;
    while (s < se) {
        if (p < pe && *p == '*') {
            star = p++;
            resume = s;
        } else if (p < pe && (*p == '?' || fold(*p) == fold(*s))) {
            ++p;
            ++s;
        } else if (star) {
            p = star + 1;
            s = ++resume;
        } else {
            return false;
        }
    }
    while (p < pe && *p == '*')
        ++p;
    return p == pe;
}

// "*.*" and "name.*" also take names without any dot.
bool filter_matches(const token& filter, const char* name)
{
    token n(name);
    if (wildcard_match(filter.ptr(), filter.ptre(), n.ptr(), n.ptre()))
        return true;
    uint32_t len = filter.lens();
    bool dot_star = len >= 2 && filter[len - 2] == '.' && filter[len - 1] == '*';
    return dot_star && wildcard_match(filter.ptr(), filter.ptre() - 2, n.ptr(), n.ptre());
}

struct search
{
    DIR* dir = nullptr;
    charstr filter;
};

search* search_of(intptr_t handle) { return reinterpret_cast<search*>(handle); }

// The name of the next matching entry; null at the end of the directory.
const char* read_match(search& s)
{
    while (dirent* e = readdir(s.dir))
        if (filter_matches(s.filter, e->d_name))
            return e->d_name;
    return nullptr;
}

void release(search* s)
{
    if (s->dir)
        closedir(s->dir);
    s->~search();
    global_release(s);
}

} // namespace

bool stat_path(const token& path, stat_record& out)
{
    return ::stat(native_path(path).c_str(), &out) == 0;
}

// By the whole type field, never by single bits: POSIX types share bits, and
// the directory bit alone is also set for block devices and sockets.
bool is_directory_record(const stat_record& st) { return S_ISDIR(st.st_mode); }
bool is_regular_record(const stat_record& st) { return S_ISREG(st.st_mode); }
bool is_device_record(const stat_record& st) { return S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode); }

// -- Directory searches ---------------------------------------------------

intptr_t find_first(const token& pattern, const char*& name)
{
    // The directory with its separator; what follows is the filter.
    token filter = pattern;
    token dir = filter.cut_back_at_group(token("\\/"), cut_separator_to_returned | cut_empty_if_none);
    charstr where = native_path(dir);
    charstr kept(filter);
    name = nullptr;
    // A pattern without a directory searches the current one.
    DIR* d = opendir(dir.is_empty() ? "." : where.c_str());
    if (!d)
        return no_search;
    void* mem = global_alloc(sizeof(search));
    if (!mem) {
        closedir(d);
        throw std::bad_alloc();
    }
    search* s = new (mem) search{d, std::move(kept)};
    name = read_match(*s);
    if (!name) {
        release(s);
        return no_search;
    }
    return reinterpret_cast<intptr_t>(s);
}

const char* find_next(intptr_t handle)
{
    return read_match(*search_of(handle));
}

void find_close(intptr_t handle)
{
    if (handle != no_search)
        release(search_of(handle));
}

// -- Process and user places ----------------------------------------------

bool current_dir(char* buf, uint32_t size)
{
    return getcwd(buf, size) != nullptr;
}

int change_dir(const token& path)
{
    return ::chdir(native_path(path).c_str()) == 0 ? 0 : -1;
}

uint32_t program_file_name(char* buf, uint32_t size)
{
    ssize_t n = readlink("/proc/self/exe", buf, size);
    return n < 0 ? 0 : static_cast<uint32_t>(n);
}

void temp_dir(charstr& out)
{
    const char* tmp = getenv("TMPDIR");
    out = tmp && *tmp ? token(tmp) : token("/tmp/");
}

bool user_profile_dir(charstr& out)
{
    const char* home = getenv("HOME");
    if (home && *home) {
        out = token(home);
        return true;
    }
    // glibc's advice for a system that gives no size: 16384 bytes suffice.
    long hint = sysconf(_SC_GETPW_R_SIZE_MAX);
    uint32_t size = hint > 0 ? static_cast<uint32_t>(hint) : 16384;
    charstr scratch;
    char* buf = scratch.alloc_buf(size);
    passwd entry;
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buf, size, &found) != 0 || !found || !found->pw_dir) {
        out.reset();
        return false;
    }
    out = token(found->pw_dir);
    return !out.is_empty();
}

} // namespace velk::os
