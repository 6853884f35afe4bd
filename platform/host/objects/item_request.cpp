// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "item_request.h"

namespace asd_host {
namespace {

WrittenChips on_written = nullptr;                           // set before there are threads
thread_local std::vector<OBJ_HANDLE> *written_now = nullptr; // by the request on this thread

} // namespace

void tell_of_written_chips(WrittenChips teller) {
    on_written = teller;
}

ItemRequest::ItemRequest(OBJ_HANDLE item) : turn_(item) {
    written_now = &written_;
}

ItemRequest::~ItemRequest() {
    written_now = nullptr;
}

void ItemRequest::end() {
    written_now = nullptr;
    turn_.give_back(); // the master may be asked for something by a request that waits for it
    if (!written_.empty() && on_written != nullptr) {
        on_written(written_);
    }
}

void note_chip_written(OBJ_HANDLE chip) {
    if (written_now != nullptr) {
        written_now->push_back(chip);
    }
}

} // namespace asd_host
