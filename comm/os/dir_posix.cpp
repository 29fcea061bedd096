// The file system seam on POSIX. A directory search is opendir and readdir
// with the name filter matched here, as the system's search would match it;
// paths reach the system with every "\" turned into "/", since the library
// takes both as separators.
#include "comm/os/dir.h"

#include "comm/alloc/commalloc.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

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
// the Windows directory search does, so that a filter finds the same names on
// either platform. A "*"
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

// -- Changes to the file system ----------------------------------------------

static_assert(EEXIST == err_exists, "the library's number of an existing file");

int make_dir(const token& path, uint32_t mode)
{
    return ::mkdir(native_path(path).c_str(), static_cast<mode_t>(mode)) == 0 ? 0 : errno;
}

bool remove_dir(const token& path)
{
    return ::rmdir(native_path(path).c_str()) == 0;
}

// unlink and not remove: remove would also take an empty directory, which
// a file removal of this library never does.
bool remove_file(const token& path)
{
    return ::unlink(native_path(path).c_str()) == 0;
}

namespace {

bool write_all(int fd, const char* p, size_t n)
{
    while (n) {
        ssize_t w = ::write(fd, p, n);
        if (w < 0 && errno == EINTR)
            continue;
        if (w <= 0)
            return false;
        p += w;
        n -= size_t(w);
    }
    return true;
}

// Copies the regular file src to the new file dst with src's permission and
// times; on any failure dst is removed again.
bool copy_regular(const char* src, const char* dst, const struct ::stat& st)
{
    int in = ::open(src, O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return false;
    int out = ::open(dst, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, st.st_mode & 07777);
    if (out < 0) {
        ::close(in);
        return false;
    }
    // A buffer of the size the library's block copies use, on the stack.
    char buf[32768];
    bool ok = true;
    for (;;) {
        ssize_t n = ::read(in, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            ok = false;
            break;
        }
        if (n == 0)
            break;
        if (!write_all(out, buf, size_t(n))) {
            ok = false;
            break;
        }
    }
    if (ok) {
        ::fchmod(out, st.st_mode & 07777); // the umask narrowed the creation mode
        timespec times[2] = {st.st_atim, st.st_mtim};
        ::futimens(out, times);
    }
    ::close(in);
    if (::close(out) != 0)
        ok = false;
    if (!ok)
        ::unlink(dst);
    return ok;
}

bool copy_link(const char* src, const char* dst, const struct ::stat& st)
{
    charstr target;
    uint32_t size = uint32_t(st.st_size) + 1;
    char* buf = target.alloc_buf(size);
    ssize_t n = ::readlink(src, buf, size);
    if (n < 0 || uint32_t(n) >= size) // changed under us
        return false;
    buf[n] = 0;
    return ::symlink(buf, dst) == 0;
}

// The move of a file between two file systems: copy, then remove the source.
bool move_across(const char* src, const char* dst)
{
    struct ::stat st;
    if (::lstat(src, &st) != 0)
        return false;
    bool copied = S_ISREG(st.st_mode) ? copy_regular(src, dst, st)
                : S_ISLNK(st.st_mode) ? copy_link(src, dst, st)
                                      : false; // directories and special files stay
    if (!copied)
        return false;
    if (::unlink(src) != 0) { // keep one of the two, never both
        ::unlink(dst);
        return false;
    }
    return true;
}

} // namespace

bool move_path(const token& src, const token& dst)
{
    charstr from = native_path(src);
    charstr to = native_path(dst);
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return true;
    int err = errno;
    if (err == EINVAL || err == ENOSYS) {
        // A file system without the no-replace flag: test, then rename.
        struct ::stat st;
        if (::lstat(to.c_str(), &st) == 0)
            return false;
        if (::rename(from.c_str(), to.c_str()) == 0)
            return true;
        err = errno;
    }
    if (err != EXDEV)
        return false;
    struct ::stat st;
    if (::lstat(to.c_str(), &st) == 0) // never replaced, also across file systems
        return false;
    return move_across(from.c_str(), to.c_str());
}

bool same_file(const token& a, const token& b)
{
    struct ::stat sa, sb;
    return ::stat(native_path(a).c_str(), &sa) == 0 && ::stat(native_path(b).c_str(), &sb) == 0 &&
           sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
}

bool is_link(const token& path)
{
    struct ::stat st;
    return ::lstat(native_path(path).c_str(), &st) == 0 && S_ISLNK(st.st_mode);
}

bool can_write(const token& path)
{
    return ::access(native_path(path).c_str(), W_OK) == 0;
}

bool set_write_permission(const token& path, bool writable)
{
    charstr p = native_path(path);
    struct ::stat st;
    if (::stat(p.c_str(), &st) != 0)
        return false;
    mode_t mode = st.st_mode & 07777;
    mode = writable ? (mode | S_IWUSR) : (mode & ~mode_t(0222));
    return ::chmod(p.c_str(), mode) == 0;
}

bool real_path(const token& path, charstr& out)
{
    char* r = ::realpath(native_path(path).c_str(), nullptr);
    if (!r)
        return false;
    try {
        out = token(r);
    } catch (...) {
        ::free(r);
        throw;
    }
    ::free(r);
    return true;
}

int64_t time_now()
{
    return static_cast<int64_t>(::time(nullptr));
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
