// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Files that are replaced whole or not at all.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <vector>

namespace asd_host {

// The process has no descriptor left, or the machine no memory: that says nothing of the file, and may be over soon.
[[nodiscard]] bool is_short_of_resources(int error);

// Moves all of the bytes at that place of the file, in as many calls as it takes (sysfs moves at most 4096 bytes a
// call). 0 or an errno value; EIO when the file ends before or takes no more.
[[nodiscard]] int pread_all(int fd, std::span<std::uint8_t> out, std::uint64_t offset);
[[nodiscard]] int pwrite_all(int fd, std::span<const std::uint8_t> bytes, std::uint64_t offset);

// Writes bytes to file.tmp beside it, syncs, renames over file, syncs the folder. 0 or an errno value; on failure no
// temporary file is left and the old file stands, unless the very last step failed: then the new one does, and may be
// gone after a power cut. One caller a file at a time.
[[nodiscard]] int replace_file(const std::filesystem::path &file, std::span<const std::uint8_t> bytes, unsigned mode);

// A crash within replace_file left its temporary file.
[[nodiscard]] bool has_leftover_temporary(const std::filesystem::path &file);
// Removes the temporary file that a crash within replace_file left. The caller keeps others from replacing the file.
void remove_leftover_temporary(const std::filesystem::path &file);

// The whole file, unless it is no plain one or longer than limit: neither blocks nor fills the memory. *error is 0 or
// an errno value: ENOENT when it does not exist, EISDIR or EINVAL when it is no plain file, EFBIG when it is too long.
inline constexpr std::size_t kReadLimit = 2U << 20U; // more than any small file of ours
[[nodiscard]] std::optional<std::vector<std::uint8_t>> read_file(const std::filesystem::path &file, int *error,
                                                                 std::size_t limit = kReadLimit);
// Such an error in words.
[[nodiscard]] const char *read_failure(int error);

// What was made, renamed or removed in the folder of this file survives a power cut from here on. 0 or an errno value.
[[nodiscard]] int sync_folder_of(const std::filesystem::path &file);

// Removes the file and syncs its folder; a missing file is no error. 0 or an errno value.
[[nodiscard]] int remove_file(const std::filesystem::path &file);

} // namespace asd_host
