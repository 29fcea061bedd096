# Third-party dependencies. All come from Debian packages that scripts/setup.sh
# installs, except V8, which setup.sh unpacks into .deps/v8.
#
# The Windows build takes LuaJIT, libcurl, jsoncpp and GoogleTest from
# .deps/windows, which scripts/setup_windows.sh builds from Debian's sources;
# it has no V8, no Google Benchmark and none of the baselines.
if(WIN32)
  set(WINDOWS_DEPS ${PROJECT_SOURCE_DIR}/.deps/windows/usr)
  if(NOT EXISTS ${WINDOWS_DEPS}/lib/libluajit-5.1.a)
    message(FATAL_ERROR "Windows libraries not found under ${WINDOWS_DEPS}: run scripts/setup_windows.sh first")
  endif()
  # The same target names as the Linux build's, so that the layers above
  # link them alike.
  add_library(PkgConfig::LUAJIT STATIC IMPORTED GLOBAL)
  set_target_properties(PkgConfig::LUAJIT PROPERTIES
    IMPORTED_LOCATION ${WINDOWS_DEPS}/lib/libluajit-5.1.a
    INTERFACE_INCLUDE_DIRECTORIES ${WINDOWS_DEPS}/include/luajit-2.1)
  find_package(jsoncpp CONFIG REQUIRED)
  add_library(PkgConfig::JSONCPP INTERFACE IMPORTED GLOBAL)
  set_target_properties(PkgConfig::JSONCPP PROPERTIES INTERFACE_LINK_LIBRARIES jsoncpp_static)
  find_package(CURL CONFIG REQUIRED)
  find_package(Threads REQUIRED)
  find_package(GTest CONFIG REQUIRED)
  return()
endif()

find_package(PkgConfig REQUIRED)
pkg_check_modules(LUAJIT REQUIRED IMPORTED_TARGET luajit)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
# RE2: a baseline of the regular expression benchmark only; nothing ships with it.
pkg_check_modules(RE2 REQUIRED IMPORTED_TARGET re2)
find_package(CURL REQUIRED)
find_package(Threads REQUIRED)
find_package(GTest REQUIRED)
find_package(benchmark REQUIRED)
# The logger's benchmark baseline; nothing else links it.
find_package(spdlog REQUIRED)

set(V8_ROOT ${PROJECT_SOURCE_DIR}/.deps/v8/usr CACHE PATH "unpacked libnode108/libnode-dev")
set(V8_LIBDIR ${V8_ROOT}/lib/x86_64-linux-gnu)
if(NOT EXISTS ${V8_ROOT}/include/node/v8.h OR NOT EXISTS ${V8_LIBDIR}/libnode.so.108)
  message(FATAL_ERROR "V8 not found under ${V8_ROOT}: run scripts/setup.sh first")
endif()
add_library(hostprobe::v8 SHARED IMPORTED GLOBAL)
set_target_properties(hostprobe::v8 PROPERTIES
  IMPORTED_LOCATION ${V8_LIBDIR}/libnode.so.108
  IMPORTED_SONAME libnode.so.108
  INTERFACE_INCLUDE_DIRECTORIES ${V8_ROOT}/include/node)
# V8 is built without run-time type information, which the sanitizer's
# virtual-pointer check needs for V8's classes.
if(VELK_SANITIZE)
  set_property(TARGET hostprobe::v8 PROPERTY INTERFACE_COMPILE_OPTIONS -fno-sanitize=vptr)
endif()
# The unpacked library is not on the loader's path: every binary built here
# that links V8 carries the folder in its run path (CMake adds the folder of
# an imported library by itself); installed binaries carry none.
