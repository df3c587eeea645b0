# What the system has beyond POSIX.1-2008, for the files of Platform/System; docs/portability.md says what each is
# for, and what is weaker without it. Sets VARO_SYSTEM_DEFINITIONS and VARO_SYSTEM_SOURCES.

include(CheckCXXSourceCompiles)
include(CheckCXXSymbolExists)

check_cxx_symbol_exists(O_TMPFILE fcntl.h VARO_HAS_NAMELESS_FILES)
check_cxx_symbol_exists(copy_file_range unistd.h VARO_HAS_COPY_FILE_RANGE)
check_cxx_symbol_exists(fdatasync unistd.h VARO_HAS_FDATASYNC)
check_cxx_symbol_exists(sync_file_range fcntl.h VARO_HAS_SYNC_FILE_RANGE)
check_cxx_symbol_exists(flock sys/file.h VARO_HAS_FLOCK)
check_cxx_symbol_exists(arc4random_buf stdlib.h VARO_HAS_ARC4RANDOM)
check_cxx_symbol_exists(posix_spawn_file_actions_addclosefrom_np spawn.h VARO_HAS_SPAWN_CLOSE_FROM)
check_cxx_source_compiles("
  #include <linux/tcp.h>
  int main() { return tcp_info{}.tcpi_bytes_received + tcp_info{}.tcpi_bytes_acked == 0 ? 0 : 1; }"
  VARO_HAS_TCP_COUNTERS)
# The links of /proc cannot be looked for when the library is built for another machine.
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
  set(VARO_HAS_PROC_DESCRIPTORS ON)
endif()

# Chooses one of two files that define the same functions.
function(varo_system_source feature fast portable)
  if(${feature} AND NOT VARO_PORTABLE_ONLY)
    list(APPEND VARO_SYSTEM_SOURCES System/${fast})
  else()
    list(APPEND VARO_SYSTEM_SOURCES System/${portable})
  endif()
  set(VARO_SYSTEM_SOURCES ${VARO_SYSTEM_SOURCES} PARENT_SCOPE)
endfunction()

set(VARO_SYSTEM_SOURCES System/FileCalls.cpp System/OpenFileLimit.cpp System/SingleThread.cpp)
varo_system_source(VARO_HAS_FLOCK FileLockFlock.cpp FileLockPosix.cpp)
varo_system_source(VARO_HAS_ARC4RANDOM RandomBytesArc4.cpp RandomBytesPosix.cpp)
varo_system_source(VARO_HAS_SPAWN_CLOSE_FROM SpawnDescriptorsGlibc.cpp SpawnDescriptorsPosix.cpp)
varo_system_source(VARO_HAS_TCP_COUNTERS TcpCountersLinux.cpp TcpCountersPosix.cpp)

# Those that FileCalls.cpp asks for.
set(VARO_SYSTEM_DEFINITIONS)
foreach(feature IN ITEMS
    NAMELESS_FILES COPY_FILE_RANGE FDATASYNC SYNC_FILE_RANGE PROC_DESCRIPTORS)
  if(VARO_HAS_${feature} AND NOT VARO_PORTABLE_ONLY)
    list(APPEND VARO_SYSTEM_DEFINITIONS VARO_HAS_${feature})
  endif()
endforeach()
