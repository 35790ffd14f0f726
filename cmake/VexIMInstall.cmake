# What `cmake --install` puts where, and the .deb packages made of it (`cpack -G DEB` in the build
# folder). The components:
#   runtime      the shared library
#   dev          headers, CMake package, pkg-config file, static library
#   tools        vexim
#   store        the shared library of the store
#   store-dev    its headers, CMake target, pkg-config file, static library
#   c            the shared library of the C interface
#   c-dev        its header, CMake package, pkg-config file and JSON Schema
#   c-store      the shared library of the C interface with the store
#   c-store-dev  its CMake package and pkg-config file
#   python       the Python package
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
  install(TARGETS VexIMTesting EXPORT VexIMLibTestingTargets ARCHIVE COMPONENT dev FILE_SET HEADERS
    COMPONENT dev)
  install(EXPORT VexIMLibTestingTargets NAMESPACE VexIMLib:: DESTINATION ${VEXIM_PACKAGE_DIR}
    COMPONENT dev)
endif()

if(TARGET VexIMStore)
  set_target_properties(VexIMStore PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS VexIMStore EXPORT VexIMLibStoreTargets
    LIBRARY COMPONENT store NAMELINK_COMPONENT store-dev
    ARCHIVE COMPONENT store-dev
    FILE_SET HEADERS COMPONENT store-dev)
  install(EXPORT VexIMLibStoreTargets NAMESPACE VexIMLib:: DESTINATION ${VEXIM_PACKAGE_DIR}
    COMPONENT store-dev)
endif()

if(TARGET VexIMLibC)
  set_target_properties(VexIMLibC PROPERTIES INSTALL_RPATH "$ORIGIN")
  set(VEXIM_C_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VexIMLibC)
  install(TARGETS VexIMLibC EXPORT VexIMLibCTargets LIBRARY COMPONENT c NAMELINK_COMPONENT c-dev
    FILE_SET HEADERS COMPONENT c-dev)
  install(EXPORT VexIMLibCTargets NAMESPACE VexIMLib:: FILE VexIMLibCConfig.cmake
    DESTINATION ${VEXIM_C_PACKAGE_DIR} COMPONENT c-dev)
  write_basic_package_version_file(VexIMLibCConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/VexIMLibCConfigVersion.cmake DESTINATION
    ${VEXIM_C_PACKAGE_DIR} COMPONENT c-dev)
  find_package(Python3 REQUIRED COMPONENTS Interpreter)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/vexim-api.json
    COMMAND Python3::Interpreter ${PROJECT_SOURCE_DIR}/scripts/c_interface.py --schema
    ${PROJECT_BINARY_DIR}/vexim-api.json
    DEPENDS ${PROJECT_SOURCE_DIR}/scripts/c_interface.py
    ${PROJECT_SOURCE_DIR}/scripts/c_interface_shapes.py
    ${PROJECT_SOURCE_DIR}/VexIMLib/C/internal/Operations.cpp
      ${PROJECT_SOURCE_DIR}/VexIMLib/C/internal/Store/StoreOperations.cpp)
  add_custom_target(vexim_api ALL DEPENDS ${PROJECT_BINARY_DIR}/vexim-api.json)
  install(FILES ${PROJECT_BINARY_DIR}/vexim-api.json DESTINATION ${CMAKE_INSTALL_DATADIR}/vexim
    COMPONENT c-dev)
endif()

if(TARGET VexIMLibCStore)
  set_target_properties(VexIMLibCStore PROPERTIES INSTALL_RPATH "$ORIGIN")
  set(VEXIM_C_STORE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/VexIMLibCStore)
  install(TARGETS VexIMLibCStore EXPORT VexIMLibCStoreTargets LIBRARY COMPONENT c-store
    NAMELINK_COMPONENT c-store-dev
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  install(EXPORT VexIMLibCStoreTargets NAMESPACE VexIMLib:: FILE VexIMLibCStoreConfig.cmake
    DESTINATION ${VEXIM_C_STORE_PACKAGE_DIR} COMPONENT c-store-dev)
  write_basic_package_version_file(VexIMLibCStoreConfigVersion.cmake COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/VexIMLibCStoreConfigVersion.cmake DESTINATION
    ${VEXIM_C_STORE_PACKAGE_DIR} COMPONENT c-store-dev)
endif()

configure_package_config_file(cmake/VexIMLibConfig.cmake.in VexIMLibConfig.cmake INSTALL_DESTINATION
  ${VEXIM_PACKAGE_DIR})
write_basic_package_version_file(VexIMLibConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/VexIMLibConfig.cmake
  ${PROJECT_BINARY_DIR}/VexIMLibConfigVersion.cmake
  DESTINATION ${VEXIM_PACKAGE_DIR} COMPONENT dev)

# The pkg-config file finds its prefix from its own place, so an installed tree can be moved.
cmake_path(SET pc_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_PREFIX}/${pc_dir}
  OUTPUT_VARIABLE VEXIM_PC_PREFIX)
# Our static library's users link what it is made of, which they normally have as shared libraries:
# so it is plainly required then, and `--static` is left to those who link everything statically.
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
  set(CPACK_PACKAGE_CONTACT "VexIMLib maintainers <maintainers@example.invalid>")
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # it would come before the summary of each
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
  set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}
    ${PROJECT_BINARY_DIR}/VexIMLib/Store ${PROJECT_BINARY_DIR}/VexIMLib/C)
  # The development files and the tool go with the very library that they were built from.
  set(major ${PROJECT_VERSION_MAJOR})
  set(exactly "(= ${PROJECT_VERSION})")
  set(same_library "libveximlib${major} ${exactly}")

  # What every Debian package has: a name, a section, two descriptions, a licence and a change log.
  #   vexim_debian_package(COMPONENT NAME SECTION DEPENDS SUMMARY DESCRIPTION)
  string(TIMESTAMP today "%a, %d %b %Y %H:%M:%S +0000" UTC)  # heeds SOURCE_DATE_EPOCH
  function(vexim_debian_package component name section depends summary description)
    string(TOUPPER ${component} COMPONENT)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${name} PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SECTION ${section} PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_DEPENDS "${depends}" PARENT_SCOPE)
    set(CPACK_DEBIAN_${COMPONENT}_DESCRIPTION "${summary}\n${description}" PARENT_SCOPE)
    set(documents ${PROJECT_BINARY_DIR}/debian/${name})
    file(WRITE ${documents}/changelog "${name} (${PROJECT_VERSION}) stable; urgency=medium

  * What is new in this version is told in CHANGELOG.md of VexIMLib.

 -- ${CPACK_PACKAGE_CONTACT}  ${today}
")
    execute_process(COMMAND gzip -9nf ${documents}/changelog COMMAND_ERROR_IS_FATAL ANY)
    install(FILES ${documents}/changelog.gz DESTINATION share/doc/${name} COMPONENT ${component}
      EXCLUDE_FROM_ALL)
    install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION share/doc/${name} RENAME copyright
      COMPONENT ${component} EXCLUDE_FROM_ALL)
    if(section STREQUAL libs)
      set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_CONTROL_EXTRA
        ${PROJECT_SOURCE_DIR}/cmake/debian/triggers PARENT_SCOPE)
    endif()
  endfunction()

  vexim_debian_package(runtime libveximlib${major} libs shared-mime-info
    "instant messaging client library"
    "VexIMLib logs users in, sends and receives messages, and reads and writes
users, friends, groups, rooms and attachments, over REST and one live
Socket.IO connection.")
  set(development libcurl4-openssl-dev libssl-dev libpng-dev libboost1.81-dev
    libboost-json1.81-dev)
  list(JOIN development ", " development)
  vexim_debian_package(dev libveximlib-dev libdevel
    "${same_library}, ${development}"
    "instant messaging client library (development files)"
    "Headers, CMake package and pkg-config file of VexIMLib, and the test kit for
applications.")
  set(tools_depends "${same_library}")
  if(TARGET VexIMStore)
    string(APPEND tools_depends ", libveximlib-store${major} ${exactly}")
  endif()
  vexim_debian_package(tools vexim net "${tools_depends}" "instant messaging in the terminal"
    "A chat program for the terminal, and commands for scripts: send and receive
messages, search and export what was kept, read and write a service's
resources.")
  if(TARGET VexIMStore)
    vexim_debian_package(store libveximlib-store${major} libs "${same_library}"
      "messages kept on the device, for VexIMLib"
      "VexIMLib::Store keeps conversations and messages in an SQLite file, with an
outbox that survives the program's end.")
    vexim_debian_package(store-dev libveximlib-store-dev libdevel
      "libveximlib-store${major} ${exactly}, libveximlib-dev ${exactly}, libsqlite3-dev"
      "messages kept on the device, for VexIMLib (development files)"
      "Headers, CMake target and pkg-config file of VexIMLib::Store.")
  endif()
  if(TARGET VexIMLibC)
    set(c_depends shared-mime-info)
    if(BUILD_SHARED_LIBS)  # it then finds its inside there
      set(c_depends "${same_library}")
    endif()
    vexim_debian_package(c libvexim-c${major} libs "${c_depends}" "C interface of VexIMLib"
      "Five functions that take and give JSON, so that any language can use the
instant messaging library VexIMLib.")
    vexim_debian_package(c-dev libvexim-c-dev libdevel "libvexim-c${major} ${exactly}"
      "C interface of VexIMLib (development files)"
      "The header, CMake package and pkg-config file of libvexim-c, and a JSON Schema
of its operations and events.")
    # The same for every kind of processor; it compiles to bytecode as Debian's own packages do.
    vexim_debian_package(python python3-vexim python "python3 (>= 3.11), \
libvexim-c${major} (>= ${PROJECT_VERSION}) | libvexim-c-store${major} (>=
${PROJECT_VERSION})" "instant messaging with asyncio"
      "A Python package over the C interface of VexIMLib: asyncio first, typed, with
a form for scripts.")
    set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "libvexim-c-store${major} (>= ${PROJECT_VERSION})")
    set(control ${PROJECT_SOURCE_DIR}/bindings/python/debian)
    set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA "${control}/postinst;${control}/prerm")
  endif()
  if(TARGET VexIMLibCStore)
    set(c_store_depends shared-mime-info)
    if(BUILD_SHARED_LIBS)
      set(c_store_depends "${same_library}, libveximlib-store${major} ${exactly}")
    endif()
    vexim_debian_package(c-store libvexim-c-store${major} libs "${c_store_depends}"
      "C interface of VexIMLib with the store"
      "The library of libvexim-c${major}, with operations of VexIMLib::Store besides.")
    vexim_debian_package(c-store-dev libvexim-c-store-dev libdevel
      "libvexim-c-store${major} ${exactly}, libvexim-c-dev ${exactly}"
      "C interface of VexIMLib with the store (development files)"
      "CMake package and pkg-config file of libvexim-c-store.")
  endif()
  include(CPack)
endif()
