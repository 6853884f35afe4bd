// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// An enclosure file: what is accepted fits together, what is not is said in lines that can be shown.

#include "enclosure.h"

#include "fuzz.h"
#include "printable.h"
#include "record_format.h"

#include <algorithm>
#include <bit>
#include <fstream>

namespace {

using namespace asd_host;

template <typename Config>
const Config &named(const std::vector<Config> &entries, const std::string &name) {
    const auto found = std::ranges::find(entries, name, &Config::name);
    fuzz::require(found != entries.end(), "there is no " + name);
    return *found;
}

void require_sound(const Enclosure &enclosure) {
    for (const ItemConfig &item : enclosure.items) {
        fuzz::require(!item.chips.empty() && item.chips.size() <= 2 && item.length > 0, "an item is not usable");
        for (const std::string &name : item.chips) {
            const ChipConfig &chip = named(enclosure.chips, name);
            const PartConfig &part = named(enclosure.parts, chip.part);
            fuzz::require(std::uint64_t{chip.offset} + item.length + kChecksumSize <= part.size,
                          "a record has no room");
            fuzz::require(std::has_single_bit(part.page_size) && part.file.has_filename(), "a part is not usable");
        }
    }
}

// Nothing confidential is shown, and no byte behind a value.
void require_fit(const Enclosure &enclosure, const std::vector<InventoryField> &fields) {
    for (const InventoryField &field : fields) {
        if (!field.item.empty()) {
            const ItemConfig &item = named(enclosure.items, field.item);
            fuzz::require(!item.confidential && std::uint64_t{field.offset} + field.length <= item.length,
                          "a field of the inventory shows what it may not");
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static const asd_test::ScratchFolder folder;
    const std::string file = folder.path() / "e.json";
    std::ofstream(file, std::ios::binary)
        .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    const LoadedEnclosure loaded = load_enclosure(file);
    fuzz::require(loaded.enclosure.has_value() == loaded.mistakes.empty(),
                  "neither an enclosure nor a mistake, or both");
    for (const std::string &mistake : loaded.mistakes) {
        fuzz::require(mistake.starts_with(file + ":") && mistake == printable(mistake), "a line that cannot be shown");
    }
    if (loaded.enclosure) {
        require_sound(*loaded.enclosure);
        const InventoryConfig inventory = loaded.enclosure->inventory.value_or(InventoryConfig());
        for (const auto &area : inventory.areas) {
            require_fit(*loaded.enclosure, area.value_or(InventoryArea()).fields);
            require_fit(*loaded.enclosure, area.value_or(InventoryArea()).custom);
        }
        require_fit(*loaded.enclosure, {inventory.guid});
    }
    return 0;
}
