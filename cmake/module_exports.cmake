# velk_export_definitions(TARGET SYMBOL...): the Windows form of both rules
# below. A module definition file lists the exports of the DLL or .exe; with
# it the linker exports nothing else (no automatic export of every symbol),
# and a program that merely links the library's registrars exports none.
function(velk_export_definitions target)
  list(JOIN ARGN "\n  " names)
  set(def ${CMAKE_CURRENT_BINARY_DIR}/${target}.def)
  file(GENERATE OUTPUT ${def} CONTENT "EXPORTS\n  ${names}\n")
  target_link_options(${target} PRIVATE ${def})
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${def})
  foreach(symbol IN LISTS ARGN)
    target_link_options(${target} PRIVATE "LINKER:--undefined=${symbol}")
  endforeach()
endfunction()

# velk_module_exports(TARGET SYMBOL...): the module exports exactly these C
# entry points and nothing else.
#
# Hidden visibility covers our own code, but the standard library declares
# its namespace with default visibility, so its template instantiations in
# velk (std::to_string's digit table, for one) would still be exported, some
# as STB_GNU_UNIQUE symbols. Those merge one static across all modules and
# make the loader refuse to unload the module. A version script makes every
# other symbol local.
#
# Each symbol is also marked as undefined for the link, so that the member of
# the static library that defines it is taken even when no code of the
# module calls it (a module's own iglo_registrar, for one).
function(velk_module_exports target)
  if(WIN32)
    velk_export_definitions(${target} ${ARGN})
    return()
  endif()
  list(JOIN ARGN "; " globals)
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${target}.exports)
  file(GENERATE OUTPUT ${script} CONTENT "{\n  global: ${globals};\n  local: *;\n};\n")
  target_link_options(${target} PRIVATE "LINKER:--version-script=${script}")
  foreach(symbol IN LISTS ARGN)
    target_link_options(${target} PRIVATE "LINKER:--undefined=${symbol}")
  endforeach()
  set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${script})
endfunction()

# velk_host_exports(TARGET SYMBOL...): a host executable exports these C
# entry points to the modules it loads, and nothing else of its own. Each is
# also marked as undefined, so that the library member defining it is linked
# even when the host never calls it.
function(velk_host_exports target)
  if(WIN32)
    velk_export_definitions(${target} ${ARGN})
    return()
  endif()
  foreach(symbol IN LISTS ARGN)
    target_link_options(${target} PRIVATE
      "LINKER:--export-dynamic-symbol=${symbol}" "LINKER:--undefined=${symbol}")
  endforeach()
endfunction()

# velk_module_client(TARGET): the target calls interface classes whose type
# records lie only in the modules it loads, as a host does. UBSan's vptr
# check needs those records at link time, so sanitized builds leave it out
# for such targets; the other checks stay.
function(velk_module_client target)
  if(VELK_SANITIZE)
    target_compile_options(${target} PRIVATE -fno-sanitize=vptr)
  endif()
endfunction()
