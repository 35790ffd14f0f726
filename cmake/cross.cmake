# The rest of arm64.cmake and armhf.cmake, which name the machine: its Debian packages as
# scripts/machines unpacks them, and qemu's user mode to run what was built.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/${VEXIM_MACHINE}-sysroot)
set(CMAKE_CXX_COMPILER ${CMAKE_LIBRARY_ARCHITECTURE}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR}-static -L ${CMAKE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# pkg-config would find the machine's own packages.
set(root ${CMAKE_SYSROOT}/usr)
set(ENV{PKG_CONFIG_LIBDIR}
  ${root}/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:${root}/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
