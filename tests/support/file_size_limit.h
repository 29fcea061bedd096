// Lowers the process's file size limit for the life of the object, with
// SIGXFSZ ignored, so that writes beyond the limit come short or fail
// instead of killing the test. Keep the window small: no test output inside.
// Windows has no limit of a process on the size of the files it writes: a
// test that needs one starts with SKIP_WITHOUT_FILE_SIZE_LIMIT(), and the
// object there never lowers anything (ok() is false).
#pragma once

#include <gtest/gtest.h>

#if defined(_WIN32)

#define SKIP_WITHOUT_FILE_SIZE_LIMIT()                                                                   \
    GTEST_SKIP() << "Windows has no per-process limit on file sizes (RLIMIT_FSIZE) to make a write come " \
                    "short"

class file_size_limit
{
public:
    explicit file_size_limit(uint64_t) {}
    bool ok() const { return false; }
};

#else

#include <signal.h>
#include <sys/resource.h>

#define SKIP_WITHOUT_FILE_SIZE_LIMIT() ((void)0)

class file_size_limit
{
public:
    explicit file_size_limit(rlim_t bytes)
    {
        getrlimit(RLIMIT_FSIZE, &_old);
        _old_handler = signal(SIGXFSZ, SIG_IGN);
        rlimit r = _old;
        r.rlim_cur = bytes;
        _ok = setrlimit(RLIMIT_FSIZE, &r) == 0;
    }
    ~file_size_limit()
    {
        setrlimit(RLIMIT_FSIZE, &_old);
        signal(SIGXFSZ, _old_handler);
    }
    file_size_limit(const file_size_limit&) = delete;
    file_size_limit& operator=(const file_size_limit&) = delete;

    bool ok() const { return _ok; }

private:
    rlimit _old{};
    sighandler_t _old_handler;
    bool _ok = false;
};

#endif
