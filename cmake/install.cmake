# What `cmake --install` puts where, in two components:
#
#   runtime  bin/hostprobe, bin/hostprobe-locate, lib/hostprobe/hostprobe_plugin.so
#            and share/hostprobe/examples: what the Debian package carries;
#   sdk      the public headers under include/hostprobe, the static libraries,
#            the CMake package (find_package(hostprobe CONFIG)) with the targets
#            hostprobe::velk, ::velk_lua, ::registry, ::core, ::js and ::lua,
#            and a pkg-config file for each library.
#
# Installed programs carry no run path: the libraries they need are the
# system's (V8 through libnode108).
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(HOSTPROBE_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/hostprobe)
set(HOSTPROBE_PLUGIN_DIR ${CMAKE_INSTALL_LIBDIR}/hostprobe)
set(HOSTPROBE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/hostprobe)
set(HOSTPROBE_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# velk_install_library(TARGET NAME [HEADERS FOLDER [PRIVATE header...]]
#                      [REQUIRES pc...] [LIBS flags...] [CFLAGS flags...])
# Installs the static library TARGET as hostprobe::NAME, the headers of
# FOLDER but the PRIVATE ones (paths inside FOLDER: the platform seam and
# the internals that no public header includes), and hostprobe-NAME.pc,
# which REQUIRES the given pkg-config packages and adds LIBS and CFLAGS.
function(velk_install_library target name)
  cmake_parse_arguments(L "" "HEADERS" "PRIVATE;REQUIRES;LIBS;CFLAGS" ${ARGN})
  set_target_properties(${target} PROPERTIES EXPORT_NAME ${name})
  target_include_directories(${target} INTERFACE $<INSTALL_INTERFACE:${HOSTPROBE_INCLUDE_DIR}>)
  install(TARGETS ${target} EXPORT hostprobeTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT sdk)

  if(L_HEADERS)
    file(GLOB_RECURSE headers RELATIVE ${PROJECT_SOURCE_DIR}/${L_HEADERS}
      CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${L_HEADERS}/*.h)
    if(L_PRIVATE)
      list(REMOVE_ITEM headers ${L_PRIVATE})
    endif()
    foreach(header IN LISTS headers)
      get_filename_component(sub ${header} DIRECTORY)
      install(FILES ${PROJECT_SOURCE_DIR}/${L_HEADERS}/${header}
        DESTINATION ${HOSTPROBE_INCLUDE_DIR}/${L_HEADERS}/${sub} COMPONENT sdk)
    endforeach()
  endif()

  list(JOIN L_REQUIRES " " PC_REQUIRES)
  list(JOIN L_LIBS " " PC_LIBS)
  list(JOIN L_CFLAGS " " PC_CFLAGS)
  get_target_property(PC_LIBRARY ${target} OUTPUT_NAME)
  if(NOT PC_LIBRARY)
    set(PC_LIBRARY ${target})
  endif()
  set(PC_NAME ${name})
  configure_file(${PROJECT_SOURCE_DIR}/cmake/hostprobe.pc.in
    ${PROJECT_BINARY_DIR}/pkgconfig/hostprobe-${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/pkgconfig/hostprobe-${name}.pc
    DESTINATION ${HOSTPROBE_PKGCONFIG_DIR} COMPONENT sdk)
endfunction()

# The CMake package: the exported targets, the dependencies they name, the
# plug-in's installed path, and the link rules of hosts and modules.
function(velk_install_package)
  install(EXPORT hostprobeTargets NAMESPACE hostprobe::
    DESTINATION ${HOSTPROBE_CMAKE_DIR} COMPONENT sdk)
  set(HOSTPROBE_PLUGIN_FILE ${HOSTPROBE_PLUGIN_DIR}/hostprobe_plugin.so)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/hostprobeConfig.cmake.in
    ${PROJECT_BINARY_DIR}/hostprobeConfig.cmake
    INSTALL_DESTINATION ${HOSTPROBE_CMAKE_DIR}
    PATH_VARS HOSTPROBE_PLUGIN_FILE HOSTPROBE_INCLUDE_DIR)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/hostprobeConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
  install(FILES
    ${PROJECT_BINARY_DIR}/hostprobeConfig.cmake
    ${PROJECT_BINARY_DIR}/hostprobeConfigVersion.cmake
    ${PROJECT_SOURCE_DIR}/cmake/module_exports.cmake
    DESTINATION ${HOSTPROBE_CMAKE_DIR} COMPONENT sdk)
endfunction()
