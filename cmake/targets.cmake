# Where the layer's headers are installed: <osg/...> lies in a folder of its own, so that a compiler
# finds it only when it is asked for.
set(MORLU_LAYER_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/morlu-scenegraph)

# The sources of a room: every .cpp file in the folder and below, noticed without configuring again.
function(morlu_sources result folder)
  file(GLOB_RECURSE found CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
  if(NOT found)
    message(FATAL_ERROR "No sources in ${CMAKE_CURRENT_SOURCE_DIR}/${folder}")
  endif()
  set(${result} ${found} PARENT_SCOPE)
endfunction()

# A shared library of ours: morlu_library(<target> <exported name> <public include dir>
# <installed include dir> <sources>...). Only names in our namespaces leave it: what the
# C++ library's own default visibility would let out stays in (cmake/exports.map).
function(morlu_library target name include_dir installed_dir)
  add_library(${target} SHARED ${ARGN})
  add_library(morlu::${name} ALIAS ${target})
  target_include_directories(
    ${target} PUBLIC $<BUILD_INTERFACE:${include_dir}>
                     $<INSTALL_INTERFACE:${installed_dir}>)
  target_compile_features(${target} PUBLIC cxx_std_20)
  target_link_options(${target} PRIVATE
                      LINKER:--version-script=${PROJECT_SOURCE_DIR}/cmake/exports.map)
  set_target_properties(
    ${target}
    PROPERTIES EXPORT_NAME ${name}
               VERSION ${PROJECT_VERSION}
               SOVERSION ${PROJECT_VERSION_MAJOR}
               LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/exports.map
               INSTALL_RPATH "$ORIGIN")
  set_property(GLOBAL APPEND PROPERTY MORLU_LIBRARIES ${target})
endfunction()
