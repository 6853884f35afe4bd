// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Records written to parts while no service runs, as the service writes them.

#include "context.h"
#include "inspection.h"

#include <filesystem>
#include <memory>
#include <vector>

namespace asdctl {

// Holds the locks of the slots whose parts these are, so that none of their controllers starts meanwhile.
class PartStore {
public:
    // Throws Failure when one of them runs, or the state folder is not this user's to change. Root becomes the owner of
    // the state folder for the rest of the process: a file that it left behind there would keep the service out. Writes
    // that a crash has cut are finished, so the parts are to be loaded after this.
    PartStore(const Context &context, const std::filesystem::path &state_dir, const std::vector<LoadedPart> &parts);
    ~PartStore();
    PartStore(const PartStore &) = delete;
    PartStore &operator=(const PartStore &) = delete;

    // Puts the bytes there, whole after a crash at any moment, and reads them back. Throws Failure. The part is of the
    // same file as one of the constructor's, and has no trouble.
    void write(const LoadedPart &part, std::uint32_t offset, BytesView bytes);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// Whether the part has a write that a crash has cut, which PartStore is to finish.
[[nodiscard]] bool has_cut_write(const LoadedPart &part);

} // namespace asdctl
