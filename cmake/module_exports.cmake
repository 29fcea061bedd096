# velk_module_exports(TARGET SYMBOL...): the module exports exactly these C
# entry points and nothing else.
#
# Hidden visibility covers our own code, but the standard library declares
# its namespace with default visibility, so its template instantiations in
# velk (std::to_string's digit table, for one) would still be exported, some
# as STB_GNU_UNIQUE symbols. Those merge one static across all modules and
# make the loader refuse to unload the module. A version script makes every
# other symbol local.
function(velk_module_exports target)
  list(JOIN ARGN "; " globals)
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.exports)
  file(GENERATE OUTPUT ${script} CONTENT "{\n  global: ${globals};\n  local: *;\n};\n")
  target_link_options(${target} PRIVATE "LINKER:--version-script=${script}")
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${script})
endfunction()
