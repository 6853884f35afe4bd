// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// The platform contract carried out in memory, and the strings that tests pull: a world of objects, parts and board
// states, faults given as values, a scripted clock, and a journal of every call and log line. For one thread at a time.
// What the module owes the platform is checked at every call; a breach is kept in world().violations.

#include "board.h"
#include "ipmi_stack.h"
#include "module_registry.h"
#include "object_frame.h"
#include "object_store.h"
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
inline constexpr gint32 kNotFound = -3001; // no such object or property
inline constexpr gint32 kTimedOut = -3006;
inline constexpr gint32 kRefused = -3007; // everything else

// ---- The world -----------------------------------------------------------------------------------------------------

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

// The operation does nothing and returns status (a pointer: null).
struct Fault {
    std::string operation = {}; // a contract operation; empty: any
    std::string subject = {};   // what the journal shows after the operation; empty: any
    gint32 status = -1;
    guint32 nth = 1;        // the matching call that is hit first
    guint32 count = 1;      // matching calls in a row that are hit; 0: all from then on
    bool flips_bit = false; // block read: instead, one bit of what is read is inverted
    bool mistyped = false;  // property read: instead, the value is of a type that no property has
    bool sticks = false;    // after the first call hit every call with its operation and subject is hit
    guint32 seen = 0;       // matching calls so far
};

struct SentRequest {
    guint8 target_type;
    guint8 slot;
    guint8 lun;
    guint8 netfn;
    guint8 cmd;
    Bytes data;
};
// How a peer answers (nothing: success without a response block); without one a request fails with kTimedOut.
using Peer = std::function<std::optional<Bytes>(const SentRequest &)>;

struct Registered {
    asd_host::ModuleRegistry classes = {};
    std::map<std::string, VOS_TASK_ENTRY> tasks = {}; // by name; none of them runs by itself
    REBOOT_HANDLER reboot = nullptr;
    std::vector<IPMI_CMD_S> rows = {};
    std::set<DFL_OBJECT_HANDLER> object_handlers = {};
};

struct Chip {
    std::shared_ptr<Bytes> part;
    std::vector<guint32> lines;
    bool own_protection;
};

struct Semaphore {
    std::string name;
    bool held = false;
    bool by_others = false; // held by hold_semaphore()
};

// A call or a log line.
struct Event {
    guint64 tick;
    std::string operation; // empty: a log line
    std::string line;      // a log line: "0 text" or "M1 file: text"
    gint32 level = -1;     // of a log line
};

struct World {
    guint64 ticks = 0;
    Board board = {};
    Texts violations = {};               // floating values, wrong nesting of semaphores, a request answered twice, ...
    std::vector<Fault> faults = {};      // in wait
    guint32 fired = 0;                   // calls hit
    std::function<void()> on_delay = {}; // called after each delay of a task, so that the world changes as time passes
    std::vector<SentRequest> sent = {};
    std::map<guint8, Peer> peers = {}; // by slot
    Registered registered = {};
    // What follows is the fake's own; tests have functions for it.
    std::unique_ptr<asd_host::ObjectStore> objects = std::make_unique<asd_host::ObjectStore>();
    std::set<std::string> missing = {}; // properties that were taken away, as "object.property"
    std::map<OBJ_HANDLE, Chip> chips = {};
    std::map<std::string, std::shared_ptr<Bytes>> parts = {};
    std::vector<Event> events = {};
    std::map<gulong, Semaphore> semaphores = {};
};
[[nodiscard]] World &world();

// A new, empty world: ticks 0, no objects, faults, journal or semaphores.
void reset();

void inject(const Fault &fault);
void lift_faults(); // and what others hold is given back

// ---- Objects and parts ---------------------------------------------------------------------------------------------

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

[[nodiscard]] OBJ_HANDLE handle_of(std::string_view name); // 0: none

// Of the property's type; configuration, too.
void set_property(const std::string &object, const std::string &property, const asd_host::PropertyValue &value);
void remove_property(const std::string &object, const std::string &property);
[[nodiscard]] gint64 number(const std::string &object, const std::string &property); // of type y, u or i
[[nodiscard]] Bytes value(const std::string &item);                                  // its Value

[[nodiscard]] Bytes chip_bytes(const std::string &chip, guint32 offset, guint32 length);
void set_chip_bytes(const std::string &chip, guint32 offset, const Bytes &bytes);
void put_record(const std::string &chip, const Bytes &data); // at the chip's Offset, good checksum

// data and its checksum as a part holds them.
[[nodiscard]] Bytes record(const Bytes &data);

// ---- Journal -------------------------------------------------------------------------------------------------------

// The calls made so far as "operation subject arguments...", in order; only the operations named, or all.
[[nodiscard]] Texts journal(std::initializer_list<std::string_view> operations = {});
[[nodiscard]] std::size_t calls(std::string_view operation);
void clear_journal(); // calls and logs

// Log lines up to a level, in order, as "0 text" (debug log) or "M1 file: text" (maintenance log).
[[nodiscard]] Texts logs(gint32 max_level = 1);

// Calls whose line starts with one of the prefixes, and the log up to a level, in order, as "tick line"; a delay that
// follows itself is told once, at its first tick, with " x" and how often.
[[nodiscard]] Texts timeline(const Texts &prefixes, gint32 max_level = 1);

// ---- Tasks and semaphores ------------------------------------------------------------------------------------------

// Runs a task on a thread of its own until it returns (true) or `done`, asked at each of its delays, says so (false):
// the thread then ends inside that delay.
bool run_task(VOS_TASK_ENTRY entry, const std::function<bool()> &done);

// Somebody else holds the semaphore of that name: taking it uses up the time limit and fails.
void hold_semaphore(const std::string &name);
[[nodiscard]] Texts semaphores(bool held_only); // held by the module

// ---- Requests and methods ------------------------------------------------------------------------------------------

struct Reply {
    gint32 status = 0;   // what the handler returned
    Bytes response = {}; // completion code first; empty: none was sent
};
// Straight to a handler; no data: the request carries none.
Reply call(IPMI_CMD_FUNC handler, gconstpointer user_data, const std::optional<Bytes> &data);

struct MethodReply {
    gint32 status = 0;
    std::vector<std::shared_ptr<GVariant>> outputs = {};
};
// inputs may be floating and are taken over.
MethodReply call_method(DFL_METHOD_FUNC method, OBJ_HANDLE object, const std::vector<GVariant *> &inputs);

} // namespace fake
