# Cross build for 64-bit Windows with Debian's MinGW-w64 compilers, POSIX
# thread model (std::thread and thread_local need it). Programs built here
# run under wine64.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(MINGW_TRIPLE x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${MINGW_TRIPLE}-gcc-posix)
set(CMAKE_CXX_COMPILER ${MINGW_TRIPLE}-g++-posix)
set(CMAKE_RC_COMPILER ${MINGW_TRIPLE}-windres)
set(CMAKE_AR ${MINGW_TRIPLE}-ar CACHE FILEPATH "")
set(CMAKE_RANLIB ${MINGW_TRIPLE}-ranlib CACHE FILEPATH "")

# Libraries and headers come from the MinGW sysroot and from the folders the
# project lists in CMAKE_PREFIX_PATH (.deps/windows); the build machine's own
# never do. Programs (the generators, pkg-config) are the build machine's.
get_filename_component(HOSTPROBE_WINDOWS_DEPS ${CMAKE_CURRENT_LIST_DIR}/../.deps/windows/usr ABSOLUTE)
set(CMAKE_FIND_ROOT_PATH /usr/${MINGW_TRIPLE} ${HOSTPROBE_WINDOWS_DEPS})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# try_run and the tests run the .exe files through wine.
set(CMAKE_CROSSCOMPILING_EMULATOR wine64)

# The runtime of the compiler goes into every binary, so that the .exe and
# .dll files run without the MinGW DLLs beside them.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static-libgcc -static-libstdc++ -static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static-libgcc -static-libstdc++ -static")
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-static-libgcc -static-libstdc++ -static")
