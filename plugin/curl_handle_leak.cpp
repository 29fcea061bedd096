// The one leak the lookup makes on purpose, told to the leak checker.
//
// fetch_url leaves the easy handle of every successful request allocated,
// with whatever libcurl hung on it during the transfer (connection, buffers,
// TLS state). Programs that run the lookup in sanitized builds (its tests
// and hostprobe-locate) link this file, so that leak detection stays on for
// everything else. libcurl comes without symbols, so the suppression names
// its module: it covers blocks allocated while libcurl is on the stack. The
// reply's own blocks are made there too (by the write callback), but they
// belong to the caller's string. Ordinary builds compile nothing here and
// export nothing.
#if defined(__SANITIZE_ADDRESS__)

// Read by the sanitizer runtime at start-up; it must be visible to it.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions()
{
    return "leak:libcurl.so\n";
}

#endif
