// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "caller.h"

#include <utility>

namespace asd_host {
namespace {

ChangesTeller on_changes = nullptr; // set before there are threads
thread_local Caller *caller_here = nullptr;

} // namespace

void tell_of_changes(ChangesTeller teller) {
    on_changes = teller;
}

Caller::Caller(std::string_view door, std::function<std::string()> user) : door_(door), user_(std::move(user)) {
    caller_here = this;
}

Caller::~Caller() {
    caller_here = nullptr;
    if (!changes_.empty() && on_changes != nullptr) {
        on_changes(*this);
    }
}

Caller *Caller::here() {
    return caller_here;
}

void Caller::note_value(OBJ_HANDLE item, const Bytes &before, const Bytes &now) {
    ValueChange &change = changes_[item];
    if (!change.before) {
        change.before = before;
    }
    change.now = now;
}

void Caller::note_stored(OBJ_HANDLE item, Bytes record) {
    changes_[item].stored = std::move(record);
}

} // namespace asd_host
