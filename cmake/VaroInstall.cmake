# What `cmake --install` installs, in the components runtime, development, tools and documents.
# docs/packaging.md lists the files.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(config_dir "${CMAKE_INSTALL_LIBDIR}/cmake/varobinary")

# Libraries and headers. The classes are always archives.
install(TARGETS varo_platform varo_binary
  EXPORT varobinary-classes-targets
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development
  FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/varobinary" COMPONENT development)
set(kinds static)
if(BUILD_SHARED_LIBS)
  list(APPEND kinds shared)
endif()
foreach(kind IN LISTS kinds)
  install(TARGETS varo_client_${kind}
    EXPORT varobinary-${kind}-targets
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT runtime NAMELINK_COMPONENT development
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT runtime
    FILE_SET HEADERS DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" COMPONENT development)
endforeach()

# For find_package.
foreach(set IN ITEMS classes ${kinds})
  install(EXPORT varobinary-${set}-targets
    NAMESPACE varo:: DESTINATION "${config_dir}" COMPONENT development)
endforeach()
# What the archives are linked with is what they were built with: the same list, read once more.
file(STRINGS "${PROJECT_SOURCE_DIR}/cmake/VaroDependencies.cmake" VARO_FIND_DEPENDENCIES
  REGEX "^find_package\\(")
list(FILTER VARO_FIND_DEPENDENCIES EXCLUDE REGEX "spdlog")  # compiled into them
list(TRANSFORM VARO_FIND_DEPENDENCIES REPLACE "^find_package\\(" "find_dependency(")
list(TRANSFORM VARO_FIND_DEPENDENCIES REPLACE " REQUIRED" "")
list(JOIN VARO_FIND_DEPENDENCIES "\n  " VARO_FIND_DEPENDENCIES)
configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/cmake/varobinary-config.cmake.in" varobinary-config.cmake
  INSTALL_DESTINATION "${config_dir}"
  NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
# Before 1.0.0 a minor version may change what applications see.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(compatibility SameMinorVersion)
else()
  set(compatibility SameMajorVersion)
endif()
write_basic_package_version_file(varobinary-config-version.cmake COMPATIBILITY ${compatibility})
install(FILES
    "${CMAKE_CURRENT_BINARY_DIR}/varobinary-config.cmake"
    "${CMAKE_CURRENT_BINARY_DIR}/varobinary-config-version.cmake"
  DESTINATION "${config_dir}" COMPONENT development)

# For pkg-config. The prefix is where the file lies, so that an installed tree can be moved.
cmake_path(IS_ABSOLUTE CMAKE_INSTALL_LIBDIR libdir_is_absolute)
if(libdir_is_absolute)
  set(VARO_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
  file(RELATIVE_PATH up "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
  string(REGEX REPLACE "/$" "" VARO_PC_PREFIX "\${pcfiledir}/${up}")
endif()
foreach(directory IN ITEMS LIBDIR INCLUDEDIR)
  set(VARO_PC_${directory} "${CMAKE_INSTALL_${directory}}")
  cmake_path(ABSOLUTE_PATH VARO_PC_${directory} BASE_DIRECTORY "\${prefix}")
endforeach()
# Whatever an archive needs is needed by who links it; a shared library has it already.
set(VARO_PC_LIBS "-L\${libdir} -lvarobinary")
set(VARO_PC_LIBS_PRIVATE "-lvarobinary-classes -lvarobinary-platform -lboost_json -ldl -pthread")
if(BUILD_SHARED_LIBS)
  set(VARO_PC_REQUIRES "Requires.private")
else()
  set(VARO_PC_REQUIRES "Requires")
  string(APPEND VARO_PC_LIBS " ${VARO_PC_LIBS_PRIVATE}")
  set(VARO_PC_LIBS_PRIVATE "")
endif()
configure_file("${PROJECT_SOURCE_DIR}/cmake/varobinary.pc.in" varobinary.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/varobinary.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)

# Documents, with the links between them.
install(FILES
    "${PROJECT_SOURCE_DIR}/LICENSE"
    "${PROJECT_SOURCE_DIR}/README.md"
    "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
    "${PROJECT_SOURCE_DIR}/CONTRIBUTING.md"
    "${PROJECT_SOURCE_DIR}/SECURITY.md"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT documents)
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs" "${PROJECT_SOURCE_DIR}/examples"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT documents
  FILES_MATCHING PATTERN "*.md" PATTERN "*.svg" PATTERN "*.cpp" PATTERN "*.c" PATTERN "*.py")
