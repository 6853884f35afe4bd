// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the items of an enclosure hold, whether a service has them or only their parts do.

#include "bytes.h"
#include "context.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace asdctl {

struct Holding {
    std::string item;
    std::uint32_t length = 0;
    bool confidential = false;
    bool flag = false;  // the check flag of a pair
    bool ready = false; // it has a value
    bool sound = false; // and every copy has it
    std::string why;    // it has none
};

class Holdings {
public:
    Holdings() = default;
    virtual ~Holdings() = default;
    Holdings(const Holdings &) = delete;
    Holdings &operator=(const Holdings &) = delete;

    [[nodiscard]] const Holding &named(const std::string &name) const; // or of this label; throws Failure

    [[nodiscard]] virtual Bytes read(const Holding &holding) = 0; // of one that is ready
    // Throws Failure unless every copy has the value then.
    virtual void write(const Holding &holding, BytesView value) = 0;

    std::string version; // of what told
    std::string enclosure;
    std::vector<Holding> items;
};

[[nodiscard]] std::unique_ptr<Holdings> service_holdings(const Context &context);

// Of the parts below a state folder, or where else the enclosure file says. To be written, no service may run on them.
[[nodiscard]] std::unique_ptr<Holdings> part_holdings(const Context &context, const std::string &config,
                                                      const std::string &state_dir, bool to_write);

} // namespace asdctl
