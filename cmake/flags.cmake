# Flags of every target of ours. Results must not depend on the compiler's freedom to contract or
# reorder floating-point code: contraction is off and no fast-math flag may be added.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_FIND_PACKAGE_TARGETS_GLOBAL ON)  # found in one room, seen by the tests of all
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

# Nobody replaces single functions of our libraries, so the compiler may inline exported ones too.
add_compile_options(-fno-semantic-interposition)
add_compile_options(-ffp-contract=off -Wall -Wextra -Wpedantic -Wshadow)
# g++ 12 turns (double)(float)x over pairs of values into x when it vectorises straight code; loops
# are vectorised all the same.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
  add_compile_options(-fno-tree-slp-vectorize)
endif()
if(MORLU_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

if(MORLU_SANITIZE)
  add_compile_options(-fsanitize=${MORLU_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer -D_GLIBCXX_ASSERTIONS)
  add_link_options(-fsanitize=${MORLU_SANITIZE})
else()
  add_link_options(LINKER:--no-undefined LINKER:--as-needed)
endif()

# The fuzzer steers by the coverage of all of our code, not only of its own file.
if(MORLU_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES Clang)
    message(FATAL_ERROR "MORLU_BUILD_FUZZ needs clang: cmake --preset fuzz")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

find_program(MORLU_CCACHE ccache)
if(MORLU_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${MORLU_CCACHE})
endif()

# stb comes as headers only, without a CMake package of its own.
find_path(MORLU_STB_DIR stb_image.h PATH_SUFFIXES stb REQUIRED)
