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
velk_test(commassert_test comm/commassert_test.cpp)
velk_test(dynamic_library_test comm/dynamic_library_test.cpp)
velk_test(thread_test comm/thread_test.cpp)
velk_test(binstream_test comm/binstream/binstream_test.cpp)
# The death tests need POSIX signals; the rest of the memory space runs here.
velk_test(mspace_test comm/alloc/mspace_test.cpp comm/alloc/mspace_thread_test.cpp comm/alloc/mspace_torture_test.cpp)
velk_test(commalloc_test comm/alloc/commalloc_test.cpp)


velk_test(singleton_test comm/singleton_test.cpp)

# -- Global singletons across real DLLs ----------------------------------------
foreach(tag A B)
  string(TOLOWER ${tag} suffix)
  add_library(singleton_probe_${suffix} MODULE comm/singleton_probe_module.cpp)
  target_link_libraries(singleton_probe_${suffix} PRIVATE velk velk_test_support)
  target_compile_definitions(singleton_probe_${suffix} PRIVATE "PROBE_TAG='${tag}'")
  target_link_options(singleton_probe_${suffix} PRIVATE "LINKER:--no-undefined")
  velk_module_exports(singleton_probe_${suffix} sglo_registrar singleton_probe_table)
endforeach()

function(singleton_module_test name)
  velk_test(${name} ${ARGN})
  add_dependencies(${name} singleton_probe_a singleton_probe_b)
  target_compile_definitions(${name} PRIVATE
    PROBE_MODULE_A="$<TARGET_FILE:singleton_probe_a>"
    PROBE_MODULE_B="$<TARGET_FILE:singleton_probe_b>")
endfunction()

# Exports sglo_registrar as a host does: the modules share its manager.
singleton_module_test(singleton_modules_test comm/singleton_modules_test.cpp)
velk_host_exports(singleton_modules_test sglo_registrar)
# Exports nothing: each module falls back on its own manager.
singleton_module_test(singleton_fallback_test comm/singleton_fallback_test.cpp)

# -- The plug-in's own services -------------------------------------------------
velk_test(hostprobe_plugin_test plugin/hostprobe_plugin_test.cpp LIBS hostprobe_core)
velk_test(mersenne_twister_test plugin/mersenne_twister_test.cpp LIBS hostprobe_core)
velk_test(adapter_text_test plugin/adapter_text_test.cpp LIBS hostprobe_core)

# -- The interface registry ------------------------------------------------------
velk_test(creator_key_test interface/creator_key_test.cpp LIBS velk_registry)
velk_test(interface_register_test interface/interface_register_test.cpp LIBS velk_registry)

function(velk_host_test name)
  velk_test(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE velk_registry)
  velk_host_exports(${name} iglo_registrar sglo_registrar)
endfunction()

function(velk_test_paths name)
  foreach(target IN LISTS ARGN)
    string(TOUPPER ${target} define)
    string(REPLACE "-" "_" define ${define})
    add_dependencies(${name} ${target})
    target_compile_definitions(${name} PRIVATE ${define}="$<TARGET_FILE:${target}>")
  endforeach()
endfunction()

velk_host_test(registrar_test interface/registrar_test.cpp)
velk_host_test(registry_concurrency_test interface/registry_concurrency_test.cpp)
velk_host_test(log_call_test comm/log/log_call_test.cpp)
velk_test(interface_hooks_test interface/interface_hooks_test.cpp LIBS velk_registry)

add_library(registry_probe MODULE interface/registry_probe_module.cpp)
target_link_libraries(registry_probe PRIVATE velk_registry velk_test_support)
target_link_options(registry_probe PRIVATE "LINKER:--no-undefined")
velk_module_exports(registry_probe iglo_registrar sglo_registrar registry_probe_table)

foreach(build 1 2)
  add_library(client_probe_v${build} MODULE interface/client_probe_module.cpp)
  target_link_libraries(client_probe_v${build} PRIVATE velk_registry velk_test_support)
  target_compile_definitions(client_probe_v${build} PRIVATE CLIENT_BUILD=${build})
  target_link_options(client_probe_v${build} PRIVATE "LINKER:--no-undefined")
  velk_module_exports(client_probe_v${build} iglo_registrar sglo_registrar client_probe_table)
endforeach()
velk_host_test(module_replacement_test interface/module_replacement_test.cpp)
velk_test_paths(module_replacement_test client_probe_v1 client_probe_v2)

# -- The plug-in as a DLL --------------------------------------------------------
velk_host_test(plugin_module_test module/plugin_module_test.cpp LIBS hostprobe_core)
velk_test_paths(plugin_module_test hostprobe_plugin registry_probe)
velk_host_test(wrapper_creator_test plugin/wrapper_creator_test.cpp LIBS hostprobe_core)

# -- The Lua binding, in a real LuaJIT state with the real plug-in ---------------
velk_host_test(lua_binding_test
  bindings/lua/lua_test_host.cpp
  support/binding_test_host.cpp
  bindings/lua/lua_ext_test.cpp
  bindings/lua/registry_handle_test.cpp
  bindings/lua/hostprobe_plugin_lua_dispatcher_test.cpp
  bindings/lua/hostprobe_plugin_lua_creator_test.cpp
  bindings/lua/dispatcher_lifetime_test.cpp
  LIBS hostprobe_lua)
velk_test(interface_from_lua_test bindings/lua/interface_from_lua_test.cpp LIBS hostprobe_lua)
velk_test_paths(lua_binding_test hostprobe_plugin)
velk_test(fmtstream_lua_capi_test comm/metastream/fmtstream_lua_capi_test.cpp LIBS velk_lua)

# -- Files and the logger ----------------------------------------------------------
velk_test(binstreambuf_test comm/binstream/binstreambuf_test.cpp)
velk_test(logger_test comm/log/logger_test.cpp)

# -- The reference host's pieces ----------------------------------------------------
velk_test(command_line_test host/command_line_test.cpp LIBS hostprobe_host)
velk_test(watchdog_test host/watchdog_test.cpp LIBS hostprobe_host)
velk_test(lua_limits_test host/lua_limits_test.cpp LIBS hostprobe_host)

# -- The reference host, run as a child program ---------------------------------------
velk_test(hostprobe_host_test host/hostprobe_host_test.cpp LIBS hostprobe_core)
velk_test_paths(hostprobe_host_test hostprobe hostprobe_plugin)
