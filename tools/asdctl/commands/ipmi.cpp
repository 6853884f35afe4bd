// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// ipmi, ekey, baycfg: single requests and transfers over the IPMI socket.

#include "commands.h"
#include "failure.h"
#include "ipmi_client.h"
#include "texts.h"
#include "transfer.h"

#include <algorithm>

namespace asdctl {

namespace {

// ---- ipmi ----

struct RequestOptions {
    std::string netfn;
    std::string cmd;
    std::vector<std::string> data;
};

std::uint8_t one_byte(const std::string &word, const char *what) {
    const Bytes bytes = parse_hex(word);
    if (bytes.size() != 1) {
        throw WrongUsage(std::string(what) + " '" + word + "' is not one byte in hexadecimal");
    }
    return bytes.front();
}

int run_ipmi(const Context &context, const RequestOptions &options) {
    const std::uint8_t netfn = one_byte(options.netfn, "the network function");
    if (netfn > 0x3E || netfn % 2 != 0) {
        throw WrongUsage("a request's network function is an even number up to 0x3E, not " + hex_number(netfn, 2));
    }
    const std::uint8_t cmd = one_byte(options.cmd, "the command");
    Bytes data;
    for (const std::string &word : options.data) {
        const Bytes bytes = parse_hex(word);
        data.insert(data.end(), bytes.begin(), bytes.end());
    }
    if (data.size() > kIpmiRequestLimit) {
        throw WrongUsage("a request has at most " + std::to_string(kIpmiRequestLimit) + " bytes of data, not " +
                         std::to_string(data.size()));
    }
    const IpmiAnswer got = IpmiClient(context).request(netfn, cmd, data);
    const bool good = got.code == 0;
    const std::string code = hex_number(got.code, 2) + " " + completion_name(got.code);
    return answer(context,
                  {{"completion_code", got.code},
                   {"name", completion_name(got.code)},
                   {"length", got.data.size()},
                   {"data", to_hex(got.data)}},
                  painted(context.out, good ? Tone::kGood : Tone::kBad, code) + "\n" + hex_dump(context.out, got.data),
                  good ? kDone : kFailed);
}

// ---- What both transfers share ----

// " (every byte is 0xFF)", when they are all alike
std::string sameness(BytesView bytes) {
    const bool alike = bytes.size() > 1 && std::ranges::all_of(bytes, [&](auto byte) { return byte == bytes.front(); });
    return alike ? " (every byte is " + hex_number(bytes.front(), 2) + ")" : "";
}

void expect_same(BytesView written, BytesView found, const std::string &where) {
    const auto [first, other] = std::ranges::mismatch(written, found);
    if (first == written.end() && other == found.end()) {
        return;
    }
    throw Failure(where + " differs from the file from byte " + std::to_string(first - written.begin()) + " on",
                  "Another transfer may have crossed this one. Write it again.");
}

// A record in a file, or on standard output with nothing else.
int deliver(const Context &context, const std::string &file, BytesView bytes, const std::string &what, Json json) {
    const bool shown = file == "-";
    if (!shown || !context.json) {
        write_file(file, bytes);
    }
    json["length"] = bytes.size();
    json[shown ? "value" : "file"] = shown ? to_hex(bytes) : file;
    return answer(context, json,
                  shown ? ""
                        : what + ": " + counted(bytes.size(), "byte") + " saved in " + file + sameness(bytes) + "\n");
}

// ---- ekey ----

struct EkeyOptions {
    std::string place;
    std::string file;
    bool chip = false;
};

const KeyPlace &place_of(const std::string &name) {
    return *std::ranges::find(kKeyPlaces, std::string_view(name), &KeyPlace::name); // the command line was checked
}

int run_ekey_get(const Context &context, const EkeyOptions &options) {
    const KeyPlace &place = place_of(options.place);
    const bool from_chip = options.chip || !place.mirror;
    Bytes key;
    {
        IpmiClient client(context);
        ProgressBar bar(context.err, "Reading", kKeyFrames);
        key = ekey_read(client, place, from_chip, [&bar] { bar.step(); });
    }
    return deliver(context, options.file, key, options.place + ", from " + (from_chip ? "the part" : "memory"),
                   {{"place", place.name}, {"item", place.item}, {"source", from_chip ? "chip" : "memory"}});
}

int run_ekey_put(const Context &context, const EkeyOptions &options) {
    const KeyPlace &place = place_of(options.place);
    const Bytes key = read_file(options.file, kKeySize);
    if (key.size() != kKeySize) {
        throw Failure((options.file == "-" ? "standard input" : options.file) + ": has " + counted(key.size(), "byte") +
                      "; a key has " + std::to_string(kKeySize));
    }
    {
        IpmiClient client(context);
        ProgressBar bar(context.err, "Writing", 2 * kKeyFrames);
        const Progress progress = [&bar] { bar.step(); };
        ekey_write(client, place, key, progress);
        expect_same(key, ekey_read(client, place, true, progress), "what the part of " + options.place + " holds now");
    }
    return answer(context, {{"place", place.name}, {"item", place.item}, {"length", key.size()}, {"verified", true}},
                  options.place + ": " + counted(key.size(), "byte") + " written and read back from the part\n");
}

void add_ekey_command(CLI::App &app, Command &chosen) {
    CLI::App *const ekey =
        add_family(app, "ekey", "The electronic keys: 1024 bytes each", "ekey get frameboard key.bin");
    const auto get =
        add_command(*ekey, chosen, "get", "Save a key; from memory where it is kept there, else from the part",
                    "ekey get frameboard key.bin", run_ekey_get);
    const auto put = add_command(*ekey, chosen, "put", "Write a key and read it back from the chip",
                                 "ekey put frameboard key.bin", run_ekey_put);
    get.first->add_flag("--chip", get.second->chip, "Read the part, not the copy in memory");
    for (const auto &[command, options] : {get, put}) {
        command->add_option("PLACE", options->place, "frameboard, leftear, power0 or power1")
            ->required()
            ->check(unsaid(CLI::IsMember({"frameboard", "leftear", "power0", "power1"})));
        command->add_option("FILE", options->file, "The key's file; - for standard input or output")->required();
    }
}

// ---- baycfg ----

struct BayOptions {
    std::string file = "-";
    bool whole = false;
};

int run_bay_get(const Context &context, const BayOptions &options) {
    Bytes file;
    std::optional<std::uint32_t> length;
    {
        IpmiClient client(context);
        ProgressBar bar(context.err, "Reading", kBayReadFrames);
        length = bay_length(client);
        if (!length && !options.whole) {
            throw Failure("there is no bay configuration: it was never written, or is erased");
        }
        if (length.value_or(0) > kBayFileLimit && !options.whole) {
            throw Failure("the bay configuration's length is " + std::to_string(*length) + ", more than the " +
                              std::to_string(kBayFileLimit) + " bytes there are",
                          "--whole saves all of them.");
        }
        file = bay_read(client, [&bar] { bar.step(); });
    }
    file.resize(options.whole ? kBayFileLimit : *length);
    return deliver(context, options.file, file, "Bay configuration", Json::object());
}

int run_bay_put(const Context &context, const BayOptions &options) {
    const Bytes file = read_file(options.file, kBayFileLimit);
    const std::size_t frames = bay_write_frames(file.size());
    {
        IpmiClient client(context);
        ProgressBar bar(context.err, "Writing", frames + kBayReadFrames);
        const Progress progress = [&bar] { bar.step(); };
        bay_write(client, file, progress);
        if (bay_length(client) != file.size()) {
            throw Failure("the bay configuration's length is not the file's after the write",
                          "Another transfer may have crossed this one. Write it again.");
        }
        Bytes found = bay_read(client, progress);
        found.resize(file.size());
        expect_same(file, found, "what the service holds now");
    }
    return answer(context, {{"length", file.size()}, {"frames", frames}, {"verified", true}},
                  "Bay configuration: " + counted(file.size(), "byte") + " written in " + counted(frames, "frame") +
                      " and read back\n");
}

int run_bay_erase(const Context &context) {
    IpmiClient client(context);
    bay_erase(client);
    return answer(context, {{"erased", true}}, "Bay configuration: erased\n");
}

int run_bay_length(const Context &context) {
    IpmiClient client(context);
    const std::optional<std::uint32_t> length = bay_length(client);
    return answer(context, {{"length", length ? Json(*length) : Json()}, {"erased", !length}},
                  length ? std::to_string(*length) + "\n" : "erased\n");
}

void add_bay_command(CLI::App &app, Command &chosen) {
    CLI::App *const bay =
        add_family(app, "baycfg", "The bay configuration file, up to 2048 bytes; the master's", "baycfg get bay.bin");
    const auto [get, saved] = add_command(*bay, chosen, "get", "Save the file", "baycfg get bay.bin", run_bay_get);
    get->add_option("FILE", saved->file, "Where to; standard output unless given");
    get->add_flag("--whole", saved->whole, "All 2048 bytes, whatever the stored length says");
    const auto [put, given] =
        add_command(*bay, chosen, "put", "Write a file with its length in front, and read it back",
                    "baycfg put bay.bin", run_bay_put);
    put->add_option("FILE", given->file, "The file; - for standard input")->required();
    const auto add = [&](const char *name, const char *what, const char *example, int (*run)(const Context &)) {
        add_command(*bay, name, what, example)->callback([&chosen, run] { chosen = run; });
    };
    add("erase", "Erase the file", "baycfg erase", run_bay_erase);
    add("length", "The stored length", "baycfg length", run_bay_length);
}

} // namespace

void add_ipmi_commands(CLI::App &app, Command &chosen) {
    const auto [ipmi, options] = add_command(app, chosen, "ipmi", "Send one IPMI request; all numbers in hexadecimal",
                                             "ipmi 32 16 00 00 80 00 14", run_ipmi);
    ipmi->add_option("NETFN", options->netfn, "Network function, such as 32")->required();
    ipmi->add_option("CMD", options->cmd, "Command, such as 16")->required();
    ipmi->add_option("BYTES", options->data, "The request's data, such as 00 00 80 00 14");
    add_ekey_command(app, chosen);
    add_bay_command(app, chosen);
}

} // namespace asdctl
