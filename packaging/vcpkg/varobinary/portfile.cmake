# An overlay port: it builds the tree that it lies in. docs/packaging.md says how to use it.
cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH SOURCE_PATH)
cmake_path(GET SOURCE_PATH PARENT_PATH SOURCE_PATH)
cmake_path(GET SOURCE_PATH PARENT_PATH SOURCE_PATH)

vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS -DVARO_BUILD_TESTS=OFF -DVARO_BUILD_CLI=OFF -DVARO_INSTALL=ON)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(CONFIG_PATH lib/cmake/varobinary)
vcpkg_fixup_pkgconfig()

file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share")
file(INSTALL "${CMAKE_CURRENT_LIST_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE")
