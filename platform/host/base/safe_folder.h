// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Folders and files of ours in places where others may write too, such as /tmp.

#include "fd.h"

#include <filesystem>
#include <string>

#include <sys/types.h>

namespace asd_host {

// Makes the folder with that mode unless it is there, with its parents. Empty: it is a folder of this process' user
// that nobody else may write to (with mode 0700: that nobody else may enter either), so that no other user can plant
// anything in it. Else why it is not, in a sentence.
[[nodiscard]] std::string make_own_folder(const std::filesystem::path &folder, mode_t mode, bool nobody_enters);

// Opens a file of ours for reading and writing, and creates it with that mode when it does not exist. Follows no link
// and waits for no FIFO's other end. None: errno says why; EINVAL when it is no regular file.
[[nodiscard]] Fd open_own_file(const std::filesystem::path &file, mode_t mode);

} // namespace asd_host
