# Compiler settings that every target of the project shares: warnings, sanitizers, ccache.

find_program(VARO_CCACHE ccache)
if(VARO_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # Paths count relative to the project, so that every clone shares one cache.
  set(CMAKE_CXX_COMPILER_LAUNCHER
    env "CCACHE_BASEDIR=${PROJECT_SOURCE_DIR}" CCACHE_NOHASHDIR=1
    CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime "${VARO_CCACHE}")
  # Without the time in it a precompiled header is the same in every clone.
  add_compile_options("$<$<COMPILE_LANG_AND_ID:CXX,Clang>:SHELL:-Xclang -fno-pch-timestamp>")
endif()

add_library(varo_warnings INTERFACE)
target_compile_options(varo_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Wold-style-cast
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>
  # g++ 12 reports overlapping copies inside std::string that are not there (its bug 105651).
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  $<$<BOOL:${VARO_WARNINGS_AS_ERRORS}>:-Werror>)

if(VARO_SANITIZE)
  add_compile_options(-fsanitize=${VARO_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  # What checks each access and operation compiles in half the time without optimisation. With the thread
  # sanitizer that would double the time of the tests instead.
  if(VARO_SANITIZE STREQUAL "thread")
    add_compile_options(-O1)
  endif()
  add_link_options(-fsanitize=${VARO_SANITIZE})
endif()

# Coverage of every target, so that the fuzz engine sees the branches of the library too.
if(VARO_BUILD_FUZZERS)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Debug information without variable locations: enough for a stack trace, a third of the size.
if(CMAKE_BUILD_TYPE STREQUAL "Debug")
  string(REPLACE "-g" "-g1" CMAKE_CXX_FLAGS_DEBUG "${CMAKE_CXX_FLAGS_DEBUG}")
endif()
