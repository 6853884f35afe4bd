# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

# Warnings are errors in our own code; every target of ours links this. With ASD_NULL_DEREFERENCE_UNCHECKED a target goes
# without one that GCC 12 gives on libraries' inline functions.
add_library(asd_warnings INTERFACE)
target_compile_options(asd_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Wformat=2 -Wundef -Wcast-align -Wcast-qual
  $<$<NOT:$<BOOL:$<TARGET_PROPERTY:ASD_NULL_DEREFERENCE_UNCHECKED>>>:-Wnull-dereference> -Wdouble-promotion -Wimplicit-fallthrough -Wextra-semi -Wnon-virtual-dtor -Wold-style-cast
  -Woverloaded-virtual -Wmissing-declarations -Werror
  $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond;-Wduplicated-branches;-Wlogical-op>
  $<$<CXX_COMPILER_ID:Clang>:-Wdocumentation;-Wno-missing-declarations;-Wmissing-prototypes>)
# Not on 32 bit, where size_t and guint32 are one type and a cast that 64 bit needs does nothing.
if(CMAKE_SIZEOF_VOID_P EQUAL 8)
  target_compile_options(asd_warnings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wuseless-cast>)
endif()
# No path of the build machine in the binaries or in what they log.
target_compile_options(asd_warnings INTERFACE "-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=")
