// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The platform contract carried out in memory, and the strings that tests pull: a world of objects, parts and board
// states, faults given as values, a scripted clock, and a journal of every call and log line. Safe for many threads.
// What the module owes the platform is checked at every call; a breach is kept in violations().

#include "board.h"
#include "module_frame.h"
#include "object_frame.h"
#include "platform_types.h"
#include "vos.h"

#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace fake {

using Bytes = std::vector<guint8>;
using Texts = std::vector<std::string>;

// Statuses of the fake's own refusals.
inline constexpr gint32 kNoObject = -3001;
inline constexpr gint32 kNoProperty = -3002;
inline constexpr gint32 kWrongType = -3003;
inline constexpr gint32 kReadOnly = -3004;
inline constexpr gint32 kOutOfRange = -3005; // past the part's end, or a null or empty transfer
inline constexpr gint32 kTimedOut = -3006;
inline constexpr gint32 kRefused = -3007; // everything else

// A new, empty world: ticks 0, no objects, faults, journal or semaphores.
void reset();

// Breaches of the contract by the module: floating values, wrong nesting of semaphores, a request answered twice, ...
[[nodiscard]] Texts violations();

// ---- Objects and parts -------------------------------------------------------------------------------------------

struct ChipConfig {
    guint32 offset = 64;
    std::optional<guint32> retry = 3;      // none: the property is missing
    std::string part = {};                 // several chips may share a part; empty: one of its own
    guint32 size = 16384;                  // of the part; erased (0xFF) at first
    std::vector<guint32> lines = {55, 56}; // write-protect lines that must all be at level 1 for a write to be stored
    bool own_protection = false;           // StgWp 1 protects the part
    guint8 stg_is_wp = 0;
};

struct ItemConfig {
    guint32 length = 16;
    Texts chips = {}; // one or two names
    guint8 num = 0;
    guint8 online = 1;
    guint8 ready = 0;
    guint8 need_sync = 0;
    Bytes value = {};
};

OBJ_HANDLE add_chip(const std::string &name, const ChipConfig &config = {});
OBJ_HANDLE add_item(const std::string &name, const ItemConfig &config);

// value may be floating and is taken over; any type, so that a configuration can be wrong.
void set_property(const std::string &object, const std::string &property, GVariant *value);
void remove_property(const std::string &object, const std::string &property);
[[nodiscard]] gint64 number(const std::string &object, const std::string &property); // of type y, u or i
[[nodiscard]] Bytes value(const std::string &item);                                  // its Value

[[nodiscard]] Bytes chip_bytes(const std::string &chip, guint32 offset, guint32 length);
void set_chip_bytes(const std::string &chip, guint32 offset, const Bytes &bytes);
void put_record(const std::string &chip, const Bytes &data); // at the chip's Offset, good checksum

// data and its checksum as a part holds them; computed here, bit by bit.
[[nodiscard]] Bytes record(const Bytes &data);

// ---- Faults --------------------------------------------------------------------------------------------------------

enum class FaultKind {
    kStatus,     // the operation does nothing and returns status (a pointer: null)
    kFlippedBit, // block transfer: bit `at` of the bytes that are read or stored is inverted
    kTornPage,   // block write: `at` bytes stored; then status
    kLostAck,    // block write: everything stored; then status
};

struct Fault {
    std::string operation = {}; // a contract operation; empty: every one that can fail
    std::string subject = {};   // what the journal shows after the operation; empty: any
    FaultKind kind = FaultKind::kStatus;
    gint32 status = -1;
    guint32 nth = 1;   // the matching call that is hit first
    guint32 count = 1; // matching calls in a row that are hit; 0: all from then on
    std::size_t at = 0;
    guint32 delay_ms = 0; // the hit call takes this long
};
void inject(const Fault &fault);
void lift_faults();
[[nodiscard]] guint32 fired(); // calls hit since reset()

// ---- Journal -------------------------------------------------------------------------------------------------------

// The calls made so far as "operation subject arguments...", in order; only the operations named, or all.
[[nodiscard]] Texts journal(std::initializer_list<std::string_view> operations = {});
[[nodiscard]] std::size_t calls(std::string_view operation);
void clear_journal(); // calls and logs

// Log lines up to a level, in order, as "0 text" (debug log) or "M1 file: text" (maintenance log).
[[nodiscard]] Texts logs(gint32 max_level = 1);
[[nodiscard]] Texts log_texts(gint32 level); // of the debug log, texts alone
[[nodiscard]] bool logged(gint32 level, std::string_view text);

// Calls whose line starts with one of the prefixes, and the log up to a level, in order, as "tick line"; a delay that
// follows itself is told once, at its first tick, with " x" and how often.
[[nodiscard]] Texts timeline(const Texts &prefixes, gint32 max_level = 1);

// ---- Time, tasks, semaphores ---------------------------------------------------------------------------------------

[[nodiscard]] guint64 ticks();
void set_ticks(guint64 ticks);
// Called after each delay of a task, without the fake's lock, so that the world can change as time passes.
void on_delay(std::function<void(guint32 delay_ms)> hook);

struct Task {
    std::string name;
    VOS_TASK_ENTRY entry;
    void *argument;
    guint32 priority;
};
[[nodiscard]] std::vector<Task> tasks(); // created so far; none of them runs by itself

// Runs a task on a thread of its own until it returns (true) or `done`, asked with the number of delays so far at each
// of them, says so (false): the thread then ends inside that delay.
bool run_task(VOS_TASK_ENTRY entry, void *argument, const std::function<bool(guint32 delays)> &done);

// Somebody else holds the semaphore of that name: taking it uses up the time limit and fails.
void hold_semaphore(const std::string &name);
void free_semaphore(const std::string &name);
[[nodiscard]] Texts semaphores_held();
[[nodiscard]] Texts semaphores(); // that exist

// ---- Board ---------------------------------------------------------------------------------------------------------

struct Board {
    gint32 smm = 0;
    gint32 manufacturing = 0;
    gint32 four_u = 0;
    gint32 equip_frame = 0;
    gint32 tarn = 0;
    gint32 two_u_expansion = 0;
    guint32 backplane_eeproms = 2;
    BOARD_MOS_E role = BOARD_MASTER;
    guint8 equip_mode = 0;
    guint8 slot = 0;
    std::set<guint8> online = {};
    guint8 cpld_upgrading = 0;
    BOOL standby = 0;
    std::set<guint8> valid_models = {0x33, 0x55, 0xAA};
    std::map<std::pair<guint32, guint32>, guint8> cpld_bits = {}; // by register and bit
    std::map<guint32, guint8> cpld_ram = {};
    Bytes wwn = {}; // as last handed to the CPLD
    Bytes frame_model = {};
    Bytes product_info = {};
    std::optional<guint8> pcie_model = {};
    std::map<guint32, Bytes> flash = {};
    std::map<guint32, guint32> lines = {}; // levels of the lines that were initialised
};
[[nodiscard]] Board board();
void change_board(const std::function<void(Board &)> &change);

// ---- Requests, methods, registration -------------------------------------------------------------------------------

struct Reply {
    bool reached = true; // a handler served the request
    gint32 status = 0;   // what the handler returned
    Bytes response = {}; // completion code first; empty: none was sent
};
// Straight to a handler; no data: the request carries none.
Reply call(IPMI_CMD_FUNC handler, gconstpointer user_data, const std::optional<Bytes> &data);
// Through the registered rows.
Reply request(guint8 netfn, guint8 cmd, const Bytes &data, guint8 privilege = 4);

struct SentRequest {
    guint8 target_type;
    guint8 slot;
    guint8 lun;
    guint8 netfn;
    guint8 cmd;
    Bytes data;
};
[[nodiscard]] std::vector<SentRequest> sent_requests();
// How a peer answers (nothing: success without a response block); without one a request fails with kTimedOut.
using Peer = std::function<std::optional<Bytes>(const SentRequest &)>;
void set_peer(guint8 slot, const Peer &answer);

struct MethodReply {
    gint32 status = 0;
    std::vector<std::shared_ptr<GVariant>> outputs = {};
};
// inputs may be floating and are taken over. without_output: the handler gets no output list.
MethodReply call_method(DFL_METHOD_FUNC method, OBJ_HANDLE object, const std::vector<GVariant *> &inputs,
                        bool without_output = false);

struct Registered {
    std::map<std::string, DFL_METHOD_FUNC> methods = {}; // by "Class.Method"
    REBOOT_HANDLER reboot = nullptr;
    std::vector<IPMI_CMD_S> rows = {};
    std::set<DFL_OBJECT_HANDLER> object_handlers = {};
};
[[nodiscard]] Registered registered();

} // namespace fake
