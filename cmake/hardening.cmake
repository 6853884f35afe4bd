# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

# What a program that reads others' bytes is shipped with: checked copies, guarded stacks, tables that are read-only
# after the start. Sanitizers bring their own checks, and checked copies need an optimised build.
if(NOT ASD_SANITIZE AND NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -fstack-protector-strong)
  add_link_options(-Wl,-z,relro -Wl,-z,now)
endif()

# Functions and tables that nobody uses are left out of what is shipped, those of a linked library's headers as well.
if(NOT CMAKE_BUILD_TYPE STREQUAL "Debug")
  add_compile_options(-ffunction-sections -fdata-sections)
  add_link_options(-Wl,--gc-sections)
  # Relocations in bits instead of 24 bytes each. Not every linker can, and the loader has to be of glibc 2.36; which one
  # a cross build will meet is not known here.
  if(NOT CMAKE_CROSSCOMPILING)
    include(CheckLinkerFlag)
    check_linker_flag(CXX "-Wl,-z,pack-relative-relocs,--fatal-warnings" ASD_PACKED_RELOCATIONS)
    if(ASD_PACKED_RELOCATIONS)
      add_link_options(-Wl,-z,pack-relative-relocs)
    endif()
  endif()
endif()
