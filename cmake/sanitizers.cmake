# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0

# Whole-program, so that no object is left uninstrumented. A report ends the process.
if(ASD_SANITIZE)
  list(JOIN ASD_SANITIZE "," asd_sanitizers)
  add_compile_options(-fsanitize=${asd_sanitizers} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${asd_sanitizers})
endif()
