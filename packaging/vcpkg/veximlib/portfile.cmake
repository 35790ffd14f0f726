# An overlay port that builds from the tree that it lies in:
#   vcpkg install veximlib --overlay-ports=packaging/vcpkg
get_filename_component(SOURCE_PATH "${CMAKE_CURRENT_LIST_DIR}/../../.." ABSOLUTE)

vcpkg_check_features(OUT_FEATURE_OPTIONS options
  FEATURES
    store VEXIM_BUILD_STORE
    testing VEXIM_BUILD_TESTING_KIT
    c VEXIM_BUILD_C)

vcpkg_cmake_configure(
  SOURCE_PATH "${SOURCE_PATH}"
  OPTIONS
    ${options}
    -DVEXIM_BUILD_TESTS=OFF
    -DVEXIM_BUILD_TOOLS=OFF
    -DVEXIM_BUILD_EXAMPLES=OFF
    -DVEXIM_INSTALL=ON)
vcpkg_cmake_install()

vcpkg_cmake_config_fixup(PACKAGE_NAME VexIMLib CONFIG_PATH lib/cmake/VexIMLib)
foreach(package IN ITEMS VexIMLibC VexIMLibCStore)
  if(EXISTS "${CURRENT_PACKAGES_DIR}/lib/cmake/${package}")
    vcpkg_cmake_config_fixup(PACKAGE_NAME ${package} CONFIG_PATH lib/cmake/${package})
  endif()
endforeach()
vcpkg_fixup_pkgconfig()

# Headers are there once, and Python's package comes from pip or Debian.
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include" "${CURRENT_PACKAGES_DIR}/debug/share"
  "${CURRENT_PACKAGES_DIR}/lib/python3" "${CURRENT_PACKAGES_DIR}/debug/lib/python3")
file(INSTALL "${CURRENT_PORT_DIR}/usage" DESTINATION "${CURRENT_PACKAGES_DIR}/share/${PORT}")
vcpkg_install_copyright(FILE_LIST "${SOURCE_PATH}/LICENSE")
