# velk_layer_includes(TARGET FOLDER...): code that uses TARGET includes the
# headers of these folders of the tree by their paths from the root
# ("comm/token.h", "interface/registrar.h"), and nothing else of the tree.
#
# Each folder is linked into a directory of the target's own under the build
# tree, and that directory is the target's include path: an include of a
# layer that a target neither is nor links finds no file, so an arrow that
# points up fails to compile. Libraries pass their path on to their users;
# programs keep theirs.
function(velk_layer_includes target)
  set(dir ${PROJECT_BINARY_DIR}/layers/${target})
  foreach(folder IN LISTS ARGN)
    get_filename_component(parent ${dir}/${folder} DIRECTORY)
    file(MAKE_DIRECTORY ${parent})
    if(NOT IS_SYMLINK ${dir}/${folder})
      file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${folder} ${dir}/${folder} SYMBOLIC)
    endif()
  endforeach()
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "INTERFACE_LIBRARY")
    set(scope INTERFACE)
  elseif(type MATCHES "LIBRARY$")
    set(scope PUBLIC)
  else()
    set(scope PRIVATE)
  endif()
  target_include_directories(${target} ${scope} $<BUILD_INTERFACE:${dir}>)
endfunction()
