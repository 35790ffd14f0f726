# What `cmake --install` puts where, and the .deb packages made of it (`cpack -G DEB` in the build folder):
#   runtime  the shared library        dev  headers, CMake package, pkg-config file, static library        tools  vexim
#   store  the shared library of the store        store-dev  its headers, CMake target, pkg-config file, static library
#   c  the shared library of the C interface        c-dev  its header, CMake package, pkg-config file and JSON Schema        python  the package
#   c-store  the one with the store        c-store-dev  its CMake package and pkg-config file
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(VEXIM_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VexIMLib)

install(TARGETS VexIMLib EXPORT VexIMLibTargets
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE COMPONENT dev
  FILE_SET HEADERS COMPONENT dev
  FILE_SET loops COMPONENT dev)
install(EXPORT VexIMLibTargets NAMESPACE VexIMLib:: DESTINATION ${VEXIM_PACKAGE_DIR} COMPONENT dev)
if(TARGET VexIMTesting)
  install(TARGETS VexIMTesting EXPORT VexIMLibTestingTargets ARCHIVE COMPONENT dev FILE_SET HEADERS COMPONENT dev)
  install(EXPORT VexIMLibTestingTargets NAMESPACE VexIMLib:: DESTINATION ${VEXIM_PACKAGE_DIR} COMPONENT dev)
endif()

if(TARGET VexIMStore)
  set_target_properties(VexIMStore PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS VexIMStore EXPORT VexIMLibStoreTargets
    LIBRARY COMPONENT store NAMELINK_COMPONENT store-dev
    ARCHIVE COMPONENT store-dev
    FILE_SET HEADERS COMPONENT store-dev)
  install(EXPORT VexIMLibStoreTargets NAMESPACE VexIMLib:: DESTINATION ${VEXIM_PACKAGE_DIR} COMPONENT store-dev)
endif()

if(TARGET VexIMLibC)
  set_target_properties(VexIMLibC PROPERTIES INSTALL_RPATH "$ORIGIN")
  set(VEXIM_C_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VexIMLibC)
  install(TARGETS VexIMLibC EXPORT VexIMLibCTargets LIBRARY COMPONENT c NAMELINK_COMPONENT c-dev FILE_SET HEADERS COMPONENT c-dev)
  install(EXPORT VexIMLibCTargets NAMESPACE VexIMLib:: FILE VexIMLibCConfig.cmake
    DESTINATION ${VEXIM_C_PACKAGE_DIR} COMPONENT c-dev)
  write_basic_package_version_file(VexIMLibCConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/VexIMLibCConfigVersion.cmake DESTINATION ${VEXIM_C_PACKAGE_DIR} COMPONENT c-dev)
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/vexim-api.json
    COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/scripts/c_interface.py --schema ${PROJECT_BINARY_DIR}/vexim-api.json
    DEPENDS ${PROJECT_SOURCE_DIR}/scripts/c_interface.py ${PROJECT_SOURCE_DIR}/scripts/c_interface_shapes.py ${PROJECT_SOURCE_DIR}/VexIMLib/C/internal/Operations.cpp
      ${PROJECT_SOURCE_DIR}/VexIMLib/C/internal/Store/StoreOperations.cpp)
  add_custom_target(vexim_api ALL DEPENDS ${PROJECT_BINARY_DIR}/vexim-api.json)
  install(FILES ${PROJECT_BINARY_DIR}/vexim-api.json DESTINATION ${CMAKE_INSTALL_DATADIR}/vexim COMPONENT c-dev)
endif()

if(TARGET VexIMLibCStore)
  set_target_properties(VexIMLibCStore PROPERTIES INSTALL_RPATH "$ORIGIN")
  set(VEXIM_C_STORE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VexIMLibCStore)
  install(TARGETS VexIMLibCStore EXPORT VexIMLibCStoreTargets LIBRARY COMPONENT c-store NAMELINK_COMPONENT c-store-dev
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(EXPORT VexIMLibCStoreTargets NAMESPACE VexIMLib:: FILE VexIMLibCStoreConfig.cmake
    DESTINATION ${VEXIM_C_STORE_PACKAGE_DIR} COMPONENT c-store-dev)
  write_basic_package_version_file(VexIMLibCStoreConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/VexIMLibCStoreConfigVersion.cmake DESTINATION ${VEXIM_C_STORE_PACKAGE_DIR} COMPONENT c-store-dev)
endif()

configure_package_config_file(cmake/VexIMLibConfig.cmake.in VexIMLibConfig.cmake INSTALL_DESTINATION ${VEXIM_PACKAGE_DIR})
write_basic_package_version_file(VexIMLibConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VexIMLibConfig.cmake ${PROJECT_BINARY_DIR}/VexIMLibConfigVersion.cmake
  DESTINATION ${VEXIM_PACKAGE_DIR} COMPONENT dev)

# The pkg-config file finds its prefix from its own place, so an installed tree can be moved.
cmake_path(SET pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}/${pc_dir} OUTPUT_VARIABLE VEXIM_PC_PREFIX)
# Our static library's users link what it is made of, which they normally have as shared libraries: so it is plainly required
# then, and `--static` is left to those who link everything statically.
set(VEXIM_PC_LIBS " -lboost_json -pthread")
if(BUILD_SHARED_LIBS)
  set(VEXIM_PC_PRIVATE ".private")
  set(VEXIM_PC_LIBS_PRIVATE ${VEXIM_PC_LIBS})
  unset(VEXIM_PC_LIBS)
else()
  set(VEXIM_PC_CFLAGS " -DVEXIM_STATIC")
endif()
configure_file(cmake/VexIMLib.pc.in VexIMLib.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/VexIMLib.pc DESTINATION ${pc_dir} COMPONENT dev)

if(TARGET VexIMStore)
  # A static one's users link SQLite themselves.
  configure_file(cmake/VexIMLibStore.pc.in VexIMLibStore.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/VexIMLibStore.pc DESTINATION ${pc_dir} COMPONENT store-dev)
endif()

if(TARGET VexIMLibC)
  set(VEXIM_PC_C_NAME vexim-c)
  configure_file(cmake/vexim-c.pc.in vexim-c.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/vexim-c.pc DESTINATION ${pc_dir} COMPONENT c-dev)
endif()
if(TARGET VexIMLibCStore)
  set(VEXIM_PC_C_NAME vexim-c-store)
  set(VEXIM_PC_C_WITH " with the store")
  configure_file(cmake/vexim-c.pc.in vexim-c-store.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/vexim-c-store.pc DESTINATION ${pc_dir} COMPONENT c-store-dev)
endif()

if(TARGET vexim)
  set_target_properties(vexim PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS vexim RUNTIME COMPONENT tools)
endif()

if(PROJECT_IS_TOP_LEVEL)
  set(CPACK_GENERATOR DEB)
  set(CPACK_PACKAGE_CONTACT "The VexIMLib authors <authors@vexim.example>")
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
  set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
  set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
  set(CPACK_STRIP_FILES ON)
  set(CPACK_COMPONENTS_ALL runtime dev tools)
  if(TARGET VexIMStore)
    list(APPEND CPACK_COMPONENTS_ALL store store-dev)
  endif()
  if(TARGET VexIMLibC)
    list(APPEND CPACK_COMPONENTS_ALL c c-dev python)
  endif()
  if(TARGET VexIMLibCStore)
    list(APPEND CPACK_COMPONENTS_ALL c-store c-store-dev)
  endif()
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR} ${PROJECT_BINARY_DIR}/VexIMLib/Store ${PROJECT_BINARY_DIR}/VexIMLib/C)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libveximlib${PROJECT_VERSION_MAJOR})
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS shared-mime-info)
  set(CPACK_DEBIAN_DEV_PACKAGE_NAME libveximlib-dev)
  set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vexim)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
  # The development files and the tool go with the very library that they were built from.
  set(same_library "libveximlib${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
    "${same_library}, libcurl4-openssl-dev, libssl-dev, libpng-dev, libboost1.81-dev, libboost-json1.81-dev")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${same_library}")
  if(TARGET VexIMStore)
    string(APPEND CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS ", libveximlib-store${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
  endif()
  set(CPACK_DEBIAN_STORE_PACKAGE_NAME libveximlib-store${PROJECT_VERSION_MAJOR})
  set(CPACK_DEBIAN_STORE_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_STORE_PACKAGE_DEPENDS "${same_library}")
  set(CPACK_DEBIAN_STORE-DEV_PACKAGE_NAME libveximlib-store-dev)
  set(CPACK_DEBIAN_STORE-DEV_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_STORE-DEV_PACKAGE_DEPENDS
    "libveximlib-store${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}), libveximlib-dev (= ${PROJECT_VERSION}), libsqlite3-dev")
  set(CPACK_DEBIAN_C_PACKAGE_NAME libvexim-c${PROJECT_VERSION_MAJOR})
  set(CPACK_DEBIAN_C_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_C_PACKAGE_DEPENDS shared-mime-info)
  if(BUILD_SHARED_LIBS)  # it then finds its inside there
    set(CPACK_DEBIAN_C_PACKAGE_DEPENDS "${same_library}")
  endif()
  set(CPACK_DEBIAN_C-DEV_PACKAGE_NAME libvexim-c-dev)
  set(CPACK_DEBIAN_C-DEV_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_C-DEV_PACKAGE_DEPENDS "libvexim-c${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_C-STORE_PACKAGE_NAME libvexim-c-store${PROJECT_VERSION_MAJOR})
  set(CPACK_DEBIAN_C-STORE_PACKAGE_SECTION libs)
  set(CPACK_DEBIAN_C-STORE_PACKAGE_DEPENDS shared-mime-info)
  if(BUILD_SHARED_LIBS)
    set(CPACK_DEBIAN_C-STORE_PACKAGE_DEPENDS "${same_library}, libveximlib-store${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
  endif()
  set(CPACK_DEBIAN_C-STORE-DEV_PACKAGE_NAME libvexim-c-store-dev)
  set(CPACK_DEBIAN_C-STORE-DEV_PACKAGE_SECTION libdevel)
  set(CPACK_DEBIAN_C-STORE-DEV_PACKAGE_DEPENDS
    "libvexim-c-store${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION}), libvexim-c-dev (= ${PROJECT_VERSION})")
  # The same for every kind of processor; it compiles to bytecode as Debian's own packages do.
  set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-vexim)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= 3.11), \
libvexim-c${PROJECT_VERSION_MAJOR} (>= ${PROJECT_VERSION}) | libvexim-c-store${PROJECT_VERSION_MAJOR} (>= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "libvexim-c-store${PROJECT_VERSION_MAJOR} (>= ${PROJECT_VERSION})")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA
    "${PROJECT_SOURCE_DIR}/bindings/python/debian/postinst;${PROJECT_SOURCE_DIR}/bindings/python/debian/prerm")
  include(CPack)
endif()
