# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

# Cross build for 32-bit ARM (hard float) against the sysroot that scripts/sysroot makes. Test programs run under qemu-arm.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # notes on what GCC 7 changed; everything here is of one GCC
set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../build/sysroot-armhf)
cmake_path(NORMAL_PATH CMAKE_SYSROOT)
if(NOT EXISTS ${CMAKE_SYSROOT}/.packages)
  message(FATAL_ERROR "${CMAKE_SYSROOT} is not there: run scripts/sysroot")
endif()
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_SYSROOT})

# Programs come from this machine, everything else from the sysroot.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
