// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The sweep's commands and methods.

#include "bmc_asd_common.h"
#include "sweep_world.h"

#include <algorithm>

int asd_module_main(int argc, char **argv); // the module's entry, renamed for this program

namespace {

// ---- Requests ------------------------------------------------------------------------------------------------------

using Requests = std::vector<std::pair<std::string, std::optional<Bytes>>>; // the first is the usual one

// The bytes that a filter demands, zeros between them.
Bytes head_of(const std::string &filter) {
    Bytes head(5);
    for (std::size_t place = filter.find("data["); place != std::string::npos;
         place = filter.find("data[", place + 1)) {
        head.at(std::stoul(filter.substr(place + 5, 1))) =
            static_cast<guint8>(std::stoul(filter.substr(place + 8, 2), nullptr, 16));
    }
    return head;
}

Bytes frame(const Bytes &head, guint16 total, guint16 current, const Bytes &data = {}) {
    const auto low = [](guint16 number) { return static_cast<guint8>(number & 0xFFU); };
    const auto high = [](guint16 number) { return static_cast<guint8>(number >> 8U); };
    return joined(joined(head, {low(total), high(total), low(current), high(current)}), data);
}

void add_frames(Requests *requests, const Bytes &head, const std::vector<std::pair<guint16, guint16>> &numbers,
                const Bytes &data) {
    for (const auto &[total, current] : numbers) {
        requests->emplace_back("frame " + std::to_string(current) + " of " + std::to_string(total),
                               frame(head, total, current, data));
    }
}

// Pushes to each receiver, and to an item without one.
Requests pushes(const Bytes &head) {
    Requests requests;
    for (const std::string name :
         {"ASD10", "ASD13", "ASD14", "ASD_PCIEORSAS", "ASD_IOCARD_PCIE4", "ASD_PRODUCT_CFGINFO"}) {
        const Bytes numbered = joined(head, {sweep_number(name)});
        const Bytes value = sweep_value(sweep_item(name));
        requests.emplace_back(name, joined(numbered, value));
        requests.emplace_back(name + ", no value", numbered);
        requests.emplace_back(name + ", a byte short", joined(numbered, part_of(value, 1, value.size() - 1)));
        requests.emplace_back(name + ", a byte long", joined(numbered, pattern(value.size() + 1)));
    }
    requests.emplace_back("card without a setting",
                          joined(head, joined({sweep_number("ASD_IOCARD_PCIE4")}, {0xFE, 1, 2, 3, 4, 5, 6, 7})));
    requests.emplace_back("no valid model", joined(head, {sweep_number("ASD_PCIEORSAS"), 0x99, 2, 3, 4}));
    requests.emplace_back("unknown number", joined(head, {250}));
    return requests;
}

Requests requests_of(const IPMI_CMD_S &row) {
    const Bytes head = head_of(row.filter);
    Requests requests;
    switch (row.cmd) {
    case 0x12:
        add_frames(&requests, head, {{5, 1}, {5, 2}, {5, 5}, {5, 0}, {5, 6}, {5, 257}, {0, 1}}, {});
        break;
    case 0x13:
        add_frames(&requests, head, {{5, 5}, {5, 1}, {5, 4}, {5, 0}, {5, 6}, {5, 257}}, pattern(220));
        requests.emplace_back("a short frame 5", frame(head, 5, 5, pattern(7)));
        break;
    case 0x91:
        add_frames(&requests, head, {{9, 9}, {9, 1}, {1, 1}, {9, 0}, {3, 4}, {10, 1}, {257, 257}}, {});
        break;
    case 0x94:
        add_frames(&requests, head, {{1, 1}, {2, 1}, {10, 9}, {9, 0}, {3, 4}, {11, 11}, {10, 10}}, pattern(72));
        requests.emplace_back("73 bytes in frame 10 of 10", frame(head, 10, 10, pattern(73)));
        requests.emplace_back("220 bytes", frame(head, 9, 9, pattern(220)));
        requests.emplace_back("221 bytes", frame(head, 9, 9, pattern(221)));
        requests.emplace_back("no bytes", frame(head, 9, 9));
        break;
    case 0xF9:
        requests = pushes(head);
        break;
    default:
        requests.emplace_back("whole", joined(head, pattern(std::min<std::size_t>(row.max_length, 133) - 5, 33)));
        requests.emplace_back("longest", joined(head, pattern(row.max_length - 5U, 44)));
        requests.emplace_back("shortest", joined(head, pattern(row.min_length - 5U, 55)));
        break;
    }
    if (row.cmd == 0xB4 || row.cmd == 0xB5) { // the chip that a request names
        for (const guint8 device : Bytes{1, 2}) {
            Bytes request = *requests[0].second;
            request[3] = device;
            requests.emplace_back("device " + std::to_string(device), request);
        }
    }
    requests.emplace_back("head", head);
    requests.emplace_back("four bytes", part_of(head, 0, 4));
    requests.emplace_back("seven bytes", joined(head, {0, 0}));
    requests.emplace_back("no data", std::nullopt);
    return requests;
}

// ---- Commands ------------------------------------------------------------------------------------------------------

std::string selector_of(const std::string &filter) {
    const std::size_t place = filter.find("data[4]=");
    return place == std::string::npos ? "" : "-" + filter.substr(place + 8, 2);
}

std::vector<IPMI_CMD_S> registered_rows() {
    fake::reset();
    EXPECT_EQ(asd_module_main(0, nullptr), 0);
    return fake::world().registered.rows;
}

// What an item's command needs, and what earlier requests left for it.
void build_for_command(const char *item) {
    if (item != nullptr) {
        (void)build_sweep_item(item);
    } else {
        for (const char *name :
             {"ASD10", "ASD13", "ASD14", "ASD_PCIEORSAS", "ASD_IOCARD_PCIE4", "ASD_PRODUCT_CFGINFO"}) {
            (void)ASD_SyncSourceObjectForeach(build_sweep_item(name), nullptr);
        }
        fake::world().board.flash = {{0x11, {0xAA}}, {0x13, {0xAA}}, {0x14, {0x55}}};
        ASD_SyncPcieOrSas(Bytes{0xAA}.data(), 1); // the code it remembers
        ASD_SetCtrlIocardPcie2Cpldram();          // a good read: none has failed since
    }
    g_ekey_buffer.store(0, pattern(kEkeySize, 50));
    AsdSetGCcdbSetData(kPendingBlock.data());
    AsdSetGCcdbSetEn(0);
    AsdSetNodeviewFlag(0);
    if (g_strcmp0(item, "ASD25") == 0) {
        (void)fake::call(ASD_IpmiClearBayconfig, "ASD25", Bytes(5)); // the buffer
        value_set(item, pattern(2052))();
        fake::put_record("ASDDev25a", pattern(2052));
    }
}

SweepEntry command_entry(const IPMI_CMD_S &row) {
    const char *item = static_cast<const char *>(row.user_data);
    const IPMI_CMD_FUNC handler = row.ipmi_handler;
    std::string name = "command-" + shown({row.cmd}) + selector_of(row.filter);
    name += item != nullptr ? std::string("-") + item : "";
    SweepEntry entry{.name = name, .cases = {}};
    const auto add = [&](const std::string &title, const Arrange &more, const std::optional<Bytes> &request,
                         bool disturbed) {
        entry.cases.push_back({.name = title,
                               .build = both([=] { build_for_command(item); }, more),
                               .run = [=] { return answer_of(fake::call(handler, item, request)); },
                               .disturbed = disturbed});
    };
    const Requests requests = requests_of(row);
    for (std::size_t i = 0; i < requests.size(); ++i) {
        const bool receiver = item == nullptr && requests[i].first.find(',') == std::string::npos;
        add(requests[i].first, kAsBuilt, requests[i].second, i == 0 || receiver);
    }
    const std::vector<Condition> all = conditions(sweep_item(item != nullptr ? item : "ASD10"));
    for (auto condition = all.begin() + 1; condition != all.end(); ++condition) {
        const bool reads_chips = requests[0].second->size() == 5 && std::string(condition->name) == "not loaded";
        add(condition->name, condition->arrange, requests[0].second, reads_chips);
    }
    const auto null_message = [=] { return answer_of(handler(nullptr, item)); };
    entry.cases.push_back({.name = "no message", .build = kAsBuilt, .run = null_message});
    return entry;
}

// ---- Methods -------------------------------------------------------------------------------------------------------

using Inputs = std::function<std::vector<GVariant *>()>;

Inputs bytes_in(const Bytes &bytes) {
    return [=] { return std::vector{g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1)}; };
}

std::string outputs_of(const fake::MethodReply &reply) {
    std::string text;
    for (const auto &output : reply.outputs) {
        const auto *data = static_cast<const guint8 *>(g_variant_get_data(output.get()));
        text += std::string(", ") + g_variant_get_type_string(output.get()) + " " +
                shown({data, data + g_variant_get_size(output.get())});
    }
    return text;
}

SweepEntry method_entry(const std::string &name, DFL_METHOD_FUNC method, const std::string &subject) {
    SweepEntry entry{.name = "method-" + name + "-" + subject, .cases = {}};
    const bool of_chip = name == "SetAsdDevErrCode";
    const std::string target = of_chip ? sweep_item(subject).chip0 : subject;
    const auto add = [&](const std::string &title, const Arrange &more, const Inputs &inputs, bool disturbed) {
        entry.cases.push_back({.name = title,
                               .build = both([=] { build_for_command(subject.c_str()); }, more),
                               .run =
                                   [=] {
                                       const fake::MethodReply reply =
                                           fake::call_method(method, fake::handle_of(target), inputs());
                                       SweepAnswer answer = answer_of(reply.status);
                                       answer.text += outputs_of(reply);
                                       return answer;
                                   },
                               .disturbed = disturbed});
    };
    const guint32 length = sweep_item(subject).length;
    const Inputs usual =
        of_chip ? Inputs([] { return std::vector{g_variant_new_int32(-6)}; }) : bytes_in(pattern(length, 60));
    for (const Condition &condition : conditions(sweep_item(subject))) {
        add(condition.name, condition.arrange, usual, std::string(condition.name) == "as built");
    }
    add(
        "no argument list", kAsBuilt, [] { return std::vector<GVariant *>{}; }, true);
    add(
        "no argument", kAsBuilt, [] { return std::vector<GVariant *>{nullptr}; }, false);
    add(
        "a text", kAsBuilt, [] { return std::vector{g_variant_new_string("text")}; }, false);
    for (const guint32 bytes : {0U, 1U, 2U, 3U, length + 5U}) {
        add(std::to_string(bytes) + " bytes", kAsBuilt, bytes_in(pattern(bytes, 80)), false);
    }
    add("read long", both(number_set(subject, "Length", 9000), value_set(subject, pattern(9000))), usual, false);
    return entry;
}

} // namespace

SweepEntries command_entries() {
    SweepEntries entries;
    for (const IPMI_CMD_S &row : registered_rows()) {
        entries.push_back(command_entry(row));
    }
    return entries;
}

SweepEntries method_entries() {
    (void)registered_rows();
    SweepEntries entries;
    for (const char *class_name : {"AtomStorageData", "AtomStorageDataDev"}) {
        for (const auto &[name, method] : *fake::world().registered.classes.methods(class_name)) {
            Texts items = {"ASD_OVERSEAS", "ASD52"};
            if (name == "WriteAtomStorageData") {
                items = with(items, {"ASD_Bucklecard0Eeprom", "ASD_Bucklecard1Eeprom", "ASD_Bucklecard0EepromSub"});
            }
            for (const std::string &item : items) {
                entries.push_back(method_entry(name, method, item));
            }
        }
    }
    return entries;
}
