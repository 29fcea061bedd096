# The suites of the Windows build (included by tests/CMakeLists.txt, with
# velk_test defined there): the foundation, the registry with real DLLs, the
# plug-in and the Lua binding. scripts/test_windows.sh runs each under wine.

velk_test(token_test comm/token_test.cpp)
velk_test(dynarray_test comm/dynarray_test.cpp)
velk_test(hash_table_test comm/hash_table_test.cpp)
velk_test(charstr_test comm/charstr_test.cpp)
velk_test(txtconv_test comm/txtconv_test.cpp)
velk_test(utf_test comm/utf_test.cpp)
velk_test(iref_test comm/iref_test.cpp)
velk_test(ref_test comm/ref_test.cpp)
velk_test(pool_test comm/pool_test.cpp)
velk_test(zstring_test comm/zstring_test.cpp)
velk_test(exception_test comm/exception_test.cpp)
velk_test(opcd_test comm/opcd_test.cpp)
velk_test(timer_test comm/timer_test.cpp)
velk_test(pthreadx_test comm/pthreadx_test.cpp)
velk_test(regex_test comm/regex/regex_test.cpp comm/regex/regex_table_test.cpp)
velk_test(metastream_test comm/metastream/fmtstream_test.cpp comm/metastream/metastream_desc_test.cpp
  comm/metastream/metastream_test.cpp comm/metastream/metastream_cache_test.cpp
  comm/metastream/metastream_roundtrip_test.cpp)
