// File streams on Windows: the runtime's integer-handle calls (_sopen_s,
// _read, _write, _lseeki64, _close), binary mode, with the share mode and
// the access hints the runtime takes; times through the system's handle.
#include "comm/os/file.h"

#include <fcntl.h>
#include <io.h>
#include <share.h>
#include <sys/stat.h>
#include <windows.h>

#include <climits>

namespace velk::os {

namespace {

// _read and _write count in int: at most this much per call.
constexpr uint32_t max_io_chunk = 0x7ffff000u;

int system_flags(uint32_t flags)
{
    bool rd = flags & open_read;
    bool wr = flags & open_write;
    int f = _O_BINARY | _O_NOINHERIT;
    if (wr && !rd)
        f |= _O_WRONLY;
    else if (rd && !wr)
        f |= _O_RDONLY;
    else
        f |= _O_RDWR;
    if (flags & open_create)
        f |= _O_CREAT;
    if (flags & open_exclusive)
        f |= _O_EXCL;
    if (flags & open_truncate)
        f |= _O_TRUNC;
    if (flags & open_append)
        f |= _O_APPEND;
    if (flags & open_sequential)
        f |= _O_SEQUENTIAL;
    else if (flags & open_random)
        f |= _O_RANDOM;
    return f;
}

// A file made by a read-only open is read-only, as the runtime does.
int create_mode(uint32_t flags)
{
    bool read_only = (flags & (open_read | open_write)) == open_read;
    return read_only ? _S_IREAD : (_S_IREAD | _S_IWRITE);
}

// Seconds since 1970 as a file time: 100 ns units since 1601.
FILETIME file_time(int64_t seconds)
{
    constexpr int64_t epoch_s = 11644473600ll; // 1601-01-01 to 1970-01-01
    uint64_t v = static_cast<uint64_t>(seconds + epoch_s) * 10000000ull;
    return FILETIME{static_cast<DWORD>(v), static_cast<DWORD>(v >> 32)};
}

} // namespace

int32_t file_open(const char* name, uint32_t flags)
{
    if (!name)
        return no_file;
    int share = (flags & open_share_deny_write) ? _SH_DENYWR : _SH_DENYNO;
    int fd = -1;
    if (_sopen_s(&fd, name, system_flags(flags), share, create_mode(flags)) != 0 || fd < 0)
        return no_file;
    struct _stat64 st;
    if (_fstat64(fd, &st) == 0 && (st.st_mode & _S_IFMT) == _S_IFDIR) {
        _close(fd);
        return no_file;
    }
    return fd;
}

namespace {

// Moves len bytes in chunks that the C runtime's int counts can hold; a short
// chunk (end of file, full device) ends the loop. What moved before a failure
// counts as done.
template <class Byte, class Io>
int64_t chunked_io(int32_t handle, Byte* at, uint32_t len, Io io)
{
    uint64_t done = 0;
    while (done < len) {
        uint32_t ask = len - done < max_io_chunk ? uint32_t(len - done) : max_io_chunk;
        int n = io(handle, at + done, ask);
        if (n < 0)
            return done ? int64_t(done) : -1;
        done += uint64_t(n);
        if (uint32_t(n) < ask)
            break;
    }
    return int64_t(done);
}

} // namespace

int64_t file_read(int32_t handle, void* p, uint32_t len)
{
    return chunked_io(handle, static_cast<char*>(p), len, &_read);
}

int64_t file_write(int32_t handle, const void* p, uint32_t len)
{
    return chunked_io(handle, static_cast<const char*>(p), len, &_write);
}

int64_t file_seek(int32_t handle, int64_t pos)
{
    if (pos < 0)
        return -1;
    return _lseeki64(handle, pos, SEEK_SET);
}

int64_t file_tell(int32_t handle) { return _telli64(handle); }

int64_t file_length(int32_t handle) { return _filelengthi64(handle); }

bool file_set_length(int32_t handle, uint64_t size)
{
    if (size > uint64_t(INT64_MAX))
        return false;
    return _chsize_s(handle, static_cast<int64_t>(size)) == 0;
}

bool file_set_times(int32_t handle, int64_t access, int64_t modification)
{
    auto h = reinterpret_cast<HANDLE>(_get_osfhandle(handle));
    if (h == INVALID_HANDLE_VALUE)
        return false;
    FILETIME a = file_time(access), m = file_time(modification);
    return SetFileTime(h, nullptr, &a, &m) != FALSE;
}

bool file_close(int32_t handle)
{
    if (handle == no_file)
        return true;
    return _close(handle) == 0;
}

} // namespace velk::os
