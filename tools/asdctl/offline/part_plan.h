// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// An enclosure file as far as it says where the records are, for what looks at parts without a service.

#include "record_format.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace asdctl {

// One copy of an item: length data bytes at offset, behind them two of checksum.
struct RecordPlace {
    std::string item;
    std::string chip;
    std::uint32_t offset = 0;
    std::uint32_t length = 0;
    bool mirrored = false; // the item has a second chip
    bool second = false;   // this is that one

    [[nodiscard]] std::size_t end() const { return std::size_t{offset} + length + kChecksumSize; }
};

struct PartPlan {
    std::string name;
    std::filesystem::path file; // as the enclosure names it: absolute, or below a state folder
    bool shared = false;
    bool device = false; // a file that leads to a real part, not an image
    std::uint32_t size = 0;
    std::uint32_t page_size = 1;
    std::vector<RecordPlace> records; // by offset
};

struct ItemPlan {
    std::string name;
    std::uint32_t length = 0;  // data bytes
    bool confidential = false; // its value is shown only where it is asked for
};

struct EnclosurePlan {
    std::string name;
    std::vector<PartPlan> parts;
    std::vector<ItemPlan> items; // in the file's order
};

// Throws Failure when the file cannot be read or is no enclosure. The service checks more, see asd --check-config.
[[nodiscard]] EnclosurePlan read_enclosure(const std::string &path);

} // namespace asdctl
