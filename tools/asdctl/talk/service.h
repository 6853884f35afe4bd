// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The running service on D-Bus: what it shows of itself, and its methods.

#include "bytes.h"
#include "conditions.h"
#include "context.h"
#include "gio_holders.h"
#include "output.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace asdctl {

struct Chip {
    std::string name;
    std::string part;
    std::uint32_t offset = 0;
    std::uint32_t retry_number = 0;
    std::uint8_t health = 0;
    std::int32_t error_code = 0;
    std::uint8_t stg_wp = 0;
    std::uint8_t stg_is_wp = 0;
    std::uint64_t page_cycles = 0;
    Condition condition = Condition::kNotLoaded;

    [[nodiscard]] bool sound() const { return health == 0 && error_code == 0; }
};

struct Item {
    std::string name;
    std::uint8_t num = 0;
    std::uint32_t length = 0;
    bool online = false;
    bool ready = false;
    bool need_sync = false;
    bool confidential = false; // its value is not in a snapshot
    std::vector<Chip> chips;   // one, or two of a mirrored item
    Bytes value;               // the copy in memory
    Condition condition = Condition::kNotLoaded;
};

// An EEPROM as the service sees it.
struct Part {
    std::string name;
    std::string file;
    Condition condition = Condition::kAnswers;
    std::string reason; // of any but kAnswers
};

// Something that an operator has to know or to do.
struct Concern {
    std::string kind; // for programs
    std::string text; // without a full stop
    std::vector<std::string> names;
};

struct Board {
    std::string role;
    std::uint32_t backplane_eeproms = 0;
    std::vector<std::string> kinds; // the board facts that are true
    std::map<std::uint32_t, std::uint32_t> write_protect_lines;
    std::map<std::string, std::int32_t> faults;
    std::uint8_t equipment_mode = 0;
    std::uint8_t cpld_upgrading = 0;
    std::int32_t power_standby = 0;
};

struct Snapshot {
    std::string version;
    std::string enclosure;
    std::uint8_t slot = 0;
    std::uint32_t time_scale = 1;
    std::uint64_t uptime_s = 0;
    std::vector<std::string> tasks;
    std::vector<Item> items; // by number
    std::vector<Chip> chips; // by name
    std::vector<Part> parts;
    std::vector<Concern> concerns; // what is lost
    Board board;

    [[nodiscard]] const Item &
    item(const std::string &name) const; // its name or its label; throws Failure when there is none
    [[nodiscard]] const Chip &chip(const std::string &name) const; // throws Failure when there is none
};

// A value as the history has it: the first bytes of a long one, none of a confidential one.
struct ChangedValue {
    std::size_t length = 0;
    Bytes bytes;
};

struct ValueEvent {
    std::int64_t time_ms = 0; // since 1970
    std::string door;
    std::string user;
    std::string item;
    std::string where; // stored, in-memory, on-parts
    ChangedValue before;
    ChangedValue now;
};

// A property that has another value now.
struct Change {
    std::string object; // the item, the chip, "Board", or "Storage1" for the service itself
    std::string property;
    Json value; // bytes as hexadecimal; null: the service tells only who asks for it
};

// What a repair wrote, or would write.
struct Repaired {
    std::uint8_t taken = 0;
    std::uint8_t copies = 0; // bits 0 and 1: the copies, bit 2: the check flag
};

// Every operation throws Failure when the service refuses it or does not answer within 30 seconds.
class Service {
public:
    explicit Service(const Context &context);

    [[nodiscard]] Snapshot snapshot();

    // From the next operation on every change is put behind *changes, while the main context runs.
    void subscribe(std::vector<Change> *changes);
    [[nodiscard]] std::string role();
    [[nodiscard]] bool answers();                                           // false: it has ended, or given up its name
    [[nodiscard]] std::vector<ValueEvent> history(const std::string &item); // oldest first; of all when it is empty
    [[nodiscard]] std::string metrics();                                    // OpenMetrics text

    [[nodiscard]] std::int32_t write_item(const std::string &item, const char *method, BytesView data); // its status
    [[nodiscard]] Bytes read_item(const std::string &item, const char *method);
    void clear_item(const std::string &item);
    void reload_item(const std::string &item);
    // What is taken is 0 or 1, that copy, 2, the value in memory, or 3, the copy that is good.
    [[nodiscard]] Repaired repair_item(const std::string &item, std::uint8_t from, bool dry_run);
    void set_error_code(const std::string &chip, std::int32_t code);

    void set_board(const char *property, GVariant *value); // takes a floating value
    void set_cpld_bit(std::uint32_t reg, std::uint32_t bit, std::uint8_t value);
    void set_fault(const std::string &operation, std::int32_t status);

private:
    void connect_private(const Context &context);
    void connect_shared(const Context &context, Bus bus);
    [[nodiscard]] bool connect_shared_of(const Context &context, pid_t service);
    // doing is what failed then; arguments may be floating; without a destination it is the service's.
    [[nodiscard]] VariantPtr call(const std::string &doing, const std::string &path, const char *interface,
                                  const char *method, GVariant *arguments, const char *reply_type,
                                  const char *destination = nullptr);

    ConnectionPtr connection_;
    std::string destination_; // empty: the private socket
    std::string where_;       // for what the operator is told
    std::string advice_;      // when nothing answers
    std::string who_may_;     // when it is refused
};

} // namespace asdctl
