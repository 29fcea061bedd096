// The file system seam on Windows: the runtime's _stat64 for status records,
// FindFirstFileExA and FindNextFileA for searches (the system matches the
// filter itself), and the system's calls for the rest. Paths reach the
// system with every "/" turned into "\".
#include "comm/os/dir.h"

#include "comm/alloc/commalloc.h"

#include <direct.h>
#include <windows.h>
#include <userenv.h>

#include <cerrno>
#include <ctime>
#include <new>

namespace velk::os {

namespace {

// A zero-terminated copy of path with the system's separator only.
charstr native_path(const token& path)
{
    charstr s(path);
    char* p = s.ptr();
    for (uint32_t i = 0, n = s.lens(); i < n; ++i)
        if (p[i] == '/')
            p[i] = '\\';
    return s;
}

// The runtime's stat refuses a directory named with a trailing separator,
// except a root ("\", "C:\"): those are cut off.
charstr stat_path_form(const token& path)
{
    charstr s = native_path(path);
    uint32_t n = s.lens();
    while (n > 1 && s.ptr()[n - 1] == '\\' && !(n == 3 && s.ptr()[1] == ':'))
        --n;
    if (n != s.lens())
        s.resize(n);
    return s;
}

struct search
{
    HANDLE find = INVALID_HANDLE_VALUE;
    WIN32_FIND_DATAA data;
};

search* search_of(intptr_t handle) { return reinterpret_cast<search*>(handle); }

void release(search* s)
{
    if (s->find != INVALID_HANDLE_VALUE)
        FindClose(s->find);
    s->~search();
    global_release(s);
}

DWORD attributes(const token& path) { return GetFileAttributesA(native_path(path).c_str()); }

} // namespace

bool stat_path(const token& path, stat_record& out)
{
    return ::_stat64(stat_path_form(path).c_str(), &out) == 0;
}

bool is_directory_record(const stat_record& st) { return (st.st_mode & _S_IFMT) == _S_IFDIR; }
bool is_regular_record(const stat_record& st) { return (st.st_mode & _S_IFMT) == _S_IFREG; }
bool is_device_record(const stat_record& st) { return (st.st_mode & _S_IFMT) == _S_IFCHR; }

// -- Directory searches ---------------------------------------------------

intptr_t find_first(const token& pattern, const char*& name)
{
    name = nullptr;
    charstr where = native_path(pattern);
    void* mem = global_alloc(sizeof(search));
    if (!mem)
        throw std::bad_alloc();
    search* s = new (mem) search;
    s->find = FindFirstFileExA(where.c_str(), FindExInfoBasic, &s->data, FindExSearchNameMatch, nullptr, 0);
    if (s->find == INVALID_HANDLE_VALUE) {
        release(s);
        return no_search;
    }
    name = s->data.cFileName;
    return reinterpret_cast<intptr_t>(s);
}

const char* find_next(intptr_t handle)
{
    search* s = search_of(handle);
    if (s->find == INVALID_HANDLE_VALUE)
        return nullptr;
    if (!FindNextFileA(s->find, &s->data)) { // the end: stays at the end
        FindClose(s->find);
        s->find = INVALID_HANDLE_VALUE;
        return nullptr;
    }
    return s->data.cFileName;
}

void find_close(intptr_t handle)
{
    if (handle != no_search)
        release(search_of(handle));
}

// -- Changes to the file system ----------------------------------------------

static_assert(EEXIST == err_exists, "the library's number of an existing file");

// The runtime's _mkdir reports errno; the mode has no meaning here.
int make_dir(const token& path, uint32_t)
{
    return ::_mkdir(native_path(path).c_str()) == 0 ? 0 : errno;
}

bool remove_dir(const token& path) { return RemoveDirectoryA(native_path(path).c_str()) != FALSE; }

bool remove_file(const token& path) { return DeleteFileA(native_path(path).c_str()) != FALSE; }

// Without MOVEFILE_REPLACE_EXISTING an existing dst is never replaced; the
// copy allowed across volumes removes the source only after a whole copy.
bool move_path(const token& src, const token& dst)
{
    return MoveFileExA(native_path(src).c_str(), native_path(dst).c_str(), MOVEFILE_COPY_ALLOWED) != FALSE;
}

namespace {

bool file_identity(const token& path, BY_HANDLE_FILE_INFORMATION& info)
{
    // No access asked for: the identity is readable even of a file in use;
    // backup semantics let a directory be opened too.
    HANDLE h = CreateFileA(native_path(path).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    bool ok = GetFileInformationByHandle(h, &info) != FALSE;
    CloseHandle(h);
    return ok;
}

} // namespace

bool same_file(const token& a, const token& b)
{
    BY_HANDLE_FILE_INFORMATION ia, ib;
    return file_identity(a, ia) && file_identity(b, ib) && ia.dwVolumeSerialNumber == ib.dwVolumeSerialNumber &&
           ia.nFileIndexHigh == ib.nFileIndexHigh && ia.nFileIndexLow == ib.nFileIndexLow;
}

bool is_link(const token& path)
{
    DWORD a = attributes(path);
    return a != INVALID_FILE_ATTRIBUTES && (a & FILE_ATTRIBUTE_REPARSE_POINT);
}

// A file is writable unless it is read-only; a directory's read-only bit
// does not keep anyone from writing into it.
bool can_write(const token& path)
{
    DWORD a = attributes(path);
    return a != INVALID_FILE_ATTRIBUTES && ((a & FILE_ATTRIBUTE_DIRECTORY) || !(a & FILE_ATTRIBUTE_READONLY));
}

bool set_write_permission(const token& path, bool writable)
{
    charstr p = native_path(path);
    DWORD a = GetFileAttributesA(p.c_str());
    if (a == INVALID_FILE_ATTRIBUTES)
        return false;
    a = writable ? (a & ~DWORD(FILE_ATTRIBUTE_READONLY)) : (a | FILE_ATTRIBUTE_READONLY);
    return SetFileAttributesA(p.c_str(), a ? a : FILE_ATTRIBUTE_NORMAL) != FALSE;
}

bool real_path(const token& path, charstr& out)
{
    HANDLE h = CreateFileA(native_path(path).c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    char buf[MAX_PATH * 4];
    DWORD n = GetFinalPathNameByHandleA(h, buf, sizeof buf, FILE_NAME_NORMALIZED | VOLUME_NAME_DOS);
    CloseHandle(h);
    if (n == 0 || n >= sizeof buf)
        return false;
    token t(buf, size_t(n));
    if (t.consume_prefix_icase("\\\\?\\UNC\\")) { // the long-path forms, back to the usual ones
        out = "\\\\";
        out << t;
        return true;
    }
    t.consume_prefix_icase("\\\\?\\");
    out = t;
    return true;
}

int64_t time_now() { return static_cast<int64_t>(::time(nullptr)); }

// -- Process and user places ----------------------------------------------

bool current_dir(char* buf, uint32_t size)
{
    DWORD n = GetCurrentDirectoryA(size, buf);
    return n != 0 && n < size;
}

int change_dir(const token& path) { return SetCurrentDirectoryA(native_path(path).c_str()) ? 0 : -1; }

uint32_t program_file_name(char* buf, uint32_t size) { return GetModuleFileNameA(nullptr, buf, size); }

void temp_dir(charstr& out)
{
    char buf[MAX_PATH + 1];
    DWORD n = GetTempPathA(sizeof buf, buf);
    out = n && n < sizeof buf ? token(buf, n) : token("C:\\Windows\\Temp\\");
}

bool user_profile_dir(charstr& out)
{
    HANDLE tok;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &tok)) {
        out.reset();
        return false;
    }
    char buf[MAX_PATH];
    DWORD size = sizeof buf;
    bool ok = GetUserProfileDirectoryA(tok, buf, &size) != FALSE;
    CloseHandle(tok);
    if (!ok) {
        out.reset();
        return false;
    }
    // A filled buffer, not a literal: measured up to its zero.
    out = token(static_cast<const char*>(buf));
    return !out.is_empty();
}

} // namespace velk::os
