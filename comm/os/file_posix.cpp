// File streams on POSIX: open, read, write, lseek and close. There are no
// share modes on this system, so "deny others writing" is taken without
// effect; the access hints go to posix_fadvise.
#include "comm/os/file.h"

#include "comm/charstr.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace velk::os {

namespace {

// read and write move at most this much per call on Linux (0x7ffff000).
constexpr uint32_t max_io_chunk = 0x7ffff000u;

int system_flags(uint32_t flags)
{
    bool rd = flags & open_read;
    bool wr = flags & open_write;
    int f = O_CLOEXEC;
    if (wr && !rd)
        f |= O_WRONLY;
    else if (rd && !wr)
        f |= O_RDONLY;
    else
        f |= O_RDWR; // both, or neither
    if (flags & open_create)
        f |= O_CREAT;
    if (flags & open_exclusive)
        f |= O_EXCL;
    if (flags & open_truncate)
        f |= O_TRUNC;
    if (flags & open_append)
        f |= O_APPEND;
    return f;
}

// Permission of a file the open creates: read-only when only reading was
// asked for, as the runtime does with a read permission alone; the umask
// narrows both.
mode_t create_mode(uint32_t flags)
{
    bool read_only = (flags & (open_read | open_write)) == open_read;
    return read_only ? 0444 : 0666;
}

} // namespace

int32_t file_open(const char* name, uint32_t flags)
{
    if (!name)
        return no_file;
    charstr native;
    if (strchr(name, '\\')) { // both separators are taken; the system knows only "/"
        native = token(name);
        for (char* p = native.ptr(); *p; ++p)
            if (*p == '\\')
                *p = '/';
        name = native.c_str();
    }
    int fd;
    do
        fd = ::open(name, system_flags(flags), create_mode(flags));
    while (fd < 0 && errno == EINTR);
    if (fd < 0)
        return no_file;
    struct ::stat st;
    if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) { // read-only opens of directories succeed here
        ::close(fd);
        return no_file;
    }
    if (flags & open_sequential)
        ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    else if (flags & open_random)
        ::posix_fadvise(fd, 0, 0, POSIX_FADV_RANDOM);
    return fd;
}

int64_t file_read(int32_t handle, void* p, uint32_t len)
{
    auto* at = static_cast<char*>(p);
    uint64_t done = 0;
    while (done < len) {
        uint32_t ask = len - done < max_io_chunk ? uint32_t(len - done) : max_io_chunk;
        ssize_t n = ::read(handle, at + done, ask);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return done ? int64_t(done) : -1;
        }
        done += uint64_t(n);
        if (uint32_t(n) < ask) // the end of the file: one short read says it
            break;
    }
    return int64_t(done);
}

int64_t file_write(int32_t handle, const void* p, uint32_t len)
{
    auto* at = static_cast<const char*>(p);
    uint64_t done = 0;
    while (done < len) {
        uint32_t ask = len - done < max_io_chunk ? uint32_t(len - done) : max_io_chunk;
        ssize_t n = ::write(handle, at + done, ask);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return done ? int64_t(done) : -1;
        }
        done += uint64_t(n);
        // A short write means a full device or the process's file size
        // limit; writing on would only fail, or raise SIGXFSZ.
        if (uint32_t(n) < ask)
            break;
    }
    return int64_t(done);
}

int64_t file_seek(int32_t handle, int64_t pos)
{
    if (pos < 0)
        return -1;
    return ::lseek(handle, off_t(pos), SEEK_SET);
}

int64_t file_tell(int32_t handle)
{
    return ::lseek(handle, 0, SEEK_CUR);
}

int64_t file_length(int32_t handle)
{
    struct ::stat st;
    if (::fstat(handle, &st) != 0)
        return -1;
    return st.st_size;
}

bool file_set_length(int32_t handle, uint64_t size)
{
    if (size > uint64_t(INT64_MAX))
        return false;
    int r;
    do
        r = ::ftruncate(handle, off_t(size));
    while (r != 0 && errno == EINTR);
    return r == 0;
}

bool file_set_times(int32_t handle, int64_t access, int64_t modification)
{
    timespec times[2] = {{time_t(access), 0}, {time_t(modification), 0}};
    return ::futimens(handle, times) == 0;
}

bool file_close(int32_t handle)
{
    if (handle == no_file)
        return true;
    // No retry on EINTR: on Linux the descriptor is gone either way.
    return ::close(handle) == 0;
}

} // namespace velk::os
