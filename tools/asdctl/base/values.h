// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Values of well-known items as people write them.

#include "bytes.h"
#include "known_items.h"

#include <string>
#include <string_view>
#include <vector>

namespace asdctl {

// The item of this name or label, whatever its case; null: none that is well known.
[[nodiscard]] const KnownItem *known_named(std::string_view name);

// What an enclosure calls an item, and a name of kFormatNames for how its values are written; from then on they stand
// for what is well known. Empty or unknown ones change nothing.
void learn_item(const std::string &item, const std::string &label, const std::string &format);

// What is known of this item; null: nothing.
[[nodiscard]] const KnownItem *known_of(std::string_view item);

// All of them, the well-known ones first.
[[nodiscard]] std::vector<const KnownItem *> known_of_all();

// All labels.
[[nodiscard]] std::vector<std::string> known_labels();

// "02:00:5e:10:20:30", a text, a code; empty where nothing was ever written. A model record that does not check says
// so.
[[nodiscard]] std::string decoded(Format format, BytesView bytes);

// The bytes of what decoded would print. Throws WrongUsage when the text cannot be one of these.
[[nodiscard]] Bytes encoded(const KnownItem &item, const std::string &text);

} // namespace asdctl
