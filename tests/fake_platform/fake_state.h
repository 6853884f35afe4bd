// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the fake's own files share: lookups, and the entry that every operation passes.

#include "fake_platform.h"

#include <sstream>

namespace fake {

void violate(const std::string &text);
[[nodiscard]] std::string name_of(OBJ_HANDLE handle);
[[nodiscard]] std::string text_of(const gchar *text); // "(null)" for null

// One call of the contract: writes the journal, meets the fault that waits for it.
class Call {
public:
    template <typename... Arguments>
    explicit Call(const char *operation, const std::string &subject = {}, const Arguments &...arguments) {
        std::ostringstream line;
        line << operation;
        if (!subject.empty()) {
            line << ' ' << subject;
        }
        ((line << ' ' << +arguments), ...);
        enter(operation, subject, line.str());
    }

    [[nodiscard]] bool fails() const { return fault_.has_value() && !fault_->flips_bit && !fault_->mistyped; }
    [[nodiscard]] bool flips_bit() const { return fault_.has_value() && fault_->flips_bit; }
    [[nodiscard]] bool mistypes() const { return fault_.has_value() && fault_->mistyped; }
    // Of the fault; else what the fake itself has to say.
    [[nodiscard]] gint32 status(gint32 otherwise = 0) const { return fails() ? fault_->status : otherwise; }

private:
    void enter(const std::string &operation, const std::string &subject, std::string line);

    std::optional<Fault> fault_;
};

} // namespace fake
