// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "board.h"
#include "debug_log.h"
#include "fake_state.h"
#include "gpio.h"
#include "securec.h"
#include "vos.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <pthread.h>

using namespace fake; // NOLINT(google-build-using-namespace): the operations below have C linkage and global names

// ---- Tasks and time ------------------------------------------------------------------------------------------------

namespace {

struct TaskRun {
    VOS_TASK_ENTRY entry;
    const std::function<bool()> *done;
    guint32 delays = 0;
    bool returned = false;
};

constexpr guint32 kMaxDelays = 2'000'000; // a task that nothing ends is a mistake of the test

thread_local TaskRun *current_run = nullptr;

} // namespace

extern "C" {
static void *run_thread(void *run) {
    current_run = static_cast<TaskRun *>(run);
    current_run->entry(nullptr);
    current_run->returned = true;
    return nullptr;
}
}

bool fake::run_task(VOS_TASK_ENTRY entry, const std::function<bool()> &done) {
    TaskRun run{.entry = entry, .done = &done};
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, run_thread, &run) != 0 || pthread_join(thread, nullptr) != 0) {
        violate("no thread for a task");
    }
    return run.returned;
}

void vos_task_delay(guint32 milliseconds) {
    { // nothing may be left to release where the thread ends
        const Call call("vos_task_delay", {}, milliseconds);
    }
    world().ticks += milliseconds;
    if (world().on_delay) {
        world().on_delay();
    }
    if (current_run != nullptr && (++current_run->delays == kMaxDelays || (*current_run->done)())) {
        pthread_exit(nullptr);
    }
}

gulong vos_tick_get(void) {
    return world().ticks & G_MAXULONG; // wraps with the width of gulong
}

gint32 vos_task_create(gulong *task, const gchar *name, VOS_TASK_ENTRY entry, void * /*argument*/, guint32 priority) {
    const Call call("vos_task_create", text_of(name), priority);
    if (!call.fails()) {
        world().registered.tasks[text_of(name)] = entry;
        *task = world().registered.tasks.size();
    }
    return call.status();
}

// ---- Semaphores ----------------------------------------------------------------------------------------------------

static Semaphore *semaphore_of(gulong handle) {
    const auto found = world().semaphores.find(handle);
    return found == world().semaphores.end() ? nullptr : &found->second;
}

static std::string semaphore_name(gulong handle) {
    const Semaphore *semaphore = semaphore_of(handle);
    return semaphore == nullptr ? "?" : semaphore->name;
}

gint32 vos_thread_mutex_sem4_create(const gchar *name, gulong *semaphore) {
    const Call call("vos_thread_mutex_sem4_create", text_of(name));
    static gulong next = 7000; // never reused, so that a stale handle shows
    if (!call.fails()) {
        *semaphore = ++next;
        world().semaphores[*semaphore] = {.name = text_of(name)};
    }
    return call.status();
}

gint32 vos_thread_sem4_p(gulong semaphore, guint32 timeout_ms) {
    const Call call("vos_thread_sem4_p", semaphore_name(semaphore), timeout_ms);
    Semaphore *wanted = semaphore_of(semaphore);
    if (call.fails() || wanted == nullptr) {
        return call.status(kRefused);
    }
    for (const std::string &other : semaphores(true)) {
        if (wanted->name != "eeprom" || other == "eeprom") { // that alone may be taken while another one is held
            violate("semaphore " + wanted->name + " taken while holding " + other);
        }
    }
    if (wanted->held) {
        if (timeout_ms == 0) {
            violate("waits for ever for semaphore " + wanted->name);
        }
        world().ticks += timeout_ms;
        return kTimedOut;
    }
    wanted->held = true;
    return 0;
}

gint32 vos_thread_sem4_v(gulong semaphore) {
    const Call call("vos_thread_sem4_v", semaphore_name(semaphore));
    Semaphore *held = semaphore_of(semaphore);
    if (held == nullptr || !held->held || held->by_others) {
        violate("semaphore given back by one that does not hold it");
        return kRefused;
    }
    held->held = false;
    return call.status();
}

gint32 vos_thread_sem4_delete(gulong semaphore) {
    const Call call("vos_thread_sem4_delete", semaphore_name(semaphore));
    return call.fails() || world().semaphores.erase(semaphore) == 0 ? call.status(kRefused) : 0;
}

void fake::hold_semaphore(const std::string &name) {
    for (auto &[handle, semaphore] : world().semaphores) {
        if (semaphore.name == name) {
            semaphore.held = true;
            semaphore.by_others = true;
        }
    }
}

Texts fake::semaphores(bool held_only) {
    Texts names;
    for (const auto &[handle, semaphore] : world().semaphores) {
        if (!held_only || (semaphore.held && !semaphore.by_others)) {
            names.push_back(semaphore.name);
        }
    }
    return names;
}

// ---- Board ---------------------------------------------------------------------------------------------------------

template <typename Fact>
static Fact fact(const Call &call, Fact Board::*member) {
    return call.fails() ? static_cast<Fact>(call.status()) : world().board.*member;
}

template <typename State>
static gint32 state(const Call &call, State Board::*member, State *out) {
    if (!call.fails()) {
        *out = world().board.*member;
    }
    return call.status();
}

// An entry of one of the board's maps; 0 when it was never written.
template <typename Key, typename Element>
static gint32 look_up(const Call &call, std::map<Key, Element> Board::*member, const Key &key, Element *out) {
    if (!call.fails()) {
        const auto found = (world().board.*member).find(key);
        *out = found == (world().board.*member).end() ? Element{} : found->second;
    }
    return call.status();
}

// Stores in what the board holds, unless the call fails.
template <typename Stored>
static gint32 keep(const Call &call, Stored *stored, const Stored &value) {
    if (!call.fails()) {
        *stored = value;
    }
    return call.status();
}

static gint32 keep_bytes(const char *operation, Bytes *stored, const UINT8 *data, UINT32 len) {
    return keep(Call(operation, {}, len), stored, Bytes(data, data + len));
}

// clang-format off
gint32 BSP_IsSmmBoard(void) { return fact(Call(__func__), &Board::smm); }
gint32 BSP_IsManuVersion(void) { return fact(Call(__func__), &Board::manufacturing); }
gint32 BSP_Is4U4CBoard(void) { return fact(Call(__func__), &Board::four_u); }
gint32 BSP_isEquipFrameBoard(void) { return fact(Call(__func__), &Board::equip_frame); }
gint32 BSP_IsTarn4U4CBoard(void) { return fact(Call(__func__), &Board::tarn); }
gint32 BSP_Is2UExpBoard(void) { return fact(Call(__func__), &Board::two_u_expansion); }
guint32 BSP_GetBpEepromCount(void) { return fact(Call(__func__), &Board::backplane_eeproms); }
gint32 BSP_RebootRequestProcess(void) { return Call(__func__).status(); }
gint32 BSP_GetEquipMode(UINT8 *mode) { return state(Call(__func__), &Board::equip_mode, mode); }
gint32 BSP_GetBoardSlot(UINT8 *slot) { return state(Call(__func__), &Board::slot, slot); }
gint32 BSP_GetBoardMasterOrSlaveState(BOARD_MOS_E *role) { return state(Call(__func__), &Board::role, role); }
gint32 BSP_IsCpldUpgrading(UINT8 *upgrading) { return state(Call(__func__), &Board::cpld_upgrading, upgrading); }
gint32 BSP_GetPowerStandByStatus(BOOL *standby) { return state(Call(__func__), &Board::standby, standby); }
UINT32 BSP_Diff_Uint32(UINT32 earlier, UINT32 later) { return later - earlier; }
gint32 BSP_SetWwn2CpldRam(const UINT8 *data, UINT32 len) { return keep_bytes(__func__, &world().board.wwn, data, len); }
// clang-format on

gint32 BSP_GetBoardOnlineStatus(UINT8 slot) {
    return Call(__func__, std::to_string(slot)).status(gint32{world().board.online.contains(slot)});
}

gint32 BSP_bPcieorsasModelValid(UINT8 model) {
    return Call(__func__, {}, model).status(gint32{world().board.valid_models.contains(model)});
}

gint32 BSP_SetFrameModelToCpldRam(const UINT8 *data, UINT32 len) {
    return keep_bytes(__func__, &world().board.frame_model, data, len);
}

gint32 BSP_SetProductCfgInfoToCpldRam(const UINT8 *data, UINT32 len) {
    return keep_bytes(__func__, &world().board.product_info, data, len);
}

gint32 BSP_ReadCpldBit(UINT32 reg, UINT32 bit, UINT8 *value) {
    return look_up(Call(__func__, std::to_string(reg), bit), &Board::cpld_bits, {reg, bit}, value);
}

gint32 BSP_GetCpldRam(UINT32 address, UINT8 *value) {
    return look_up(Call(__func__, std::to_string(address)), &Board::cpld_ram, address, value);
}

gint32 BSP_SetPcieSasModelToCpldRam(UINT8 model) {
    return keep(Call(__func__, {}, model), &world().board.pcie_model, std::optional(model));
}

gint32 BSP_SetCpldRam(UINT32 address, UINT8 value) {
    return keep(Call(__func__, std::to_string(address), value), &world().board.cpld_ram[address], value);
}

gint32 BMC_FlashReadCfgPara(UINT32 parameter, UINT32 len, UINT8 *buffer) {
    Bytes stored;
    const gint32 ret = look_up(Call(__func__, std::to_string(parameter), len), &Board::flash, parameter, &stored);
    if (ret != 0 || stored.size() < len) {
        return ret != 0 ? ret : kRefused; // never written, or shorter
    }
    std::copy_n(stored.begin(), len, buffer);
    return 0;
}

gint32 BMC_FlashWriteCfgPara(UINT32 parameter, UINT32 len, const UINT8 *buffer) {
    const Call call(__func__, std::to_string(parameter), len, *buffer);
    if (!call.fails()) {
        world().board.flash[parameter] = Bytes(buffer, buffer + len);
    }
    return call.status();
}

gint32 gpio_init(guint32 line, guint32 mode) {
    const Call call(__func__, std::to_string(line), mode);
    if (call.fails() || mode != 1) {
        return call.status(kRefused);
    }
    world().board.lines.try_emplace(line, 0);
    return 0;
}

gint32 gpio_write(guint32 line, guint32 level) {
    const Call call(__func__, std::to_string(line), level);
    if (call.fails() || !world().board.lines.contains(line)) {
        return call.status(kRefused); // not an output yet
    }
    world().board.lines[line] = level;
    return 0;
}

// ---- Bounds-checked memory: the host platform's ---------------------------------------------------------------------

extern "C" {
int checked_memcpy_s(void *dest, size_t dest_max, const void *src, size_t count);
int checked_memset_s(void *dest, size_t dest_max, int c, size_t count);
}

// A copy that fails leaves a destination that holds nothing half-done.
static int memory_failed(const Call &call, void *dest, size_t dest_max) {
    (void)checked_memset_s(dest, dest_max, 0, dest_max); // whatever the fault is
    return call.status();
}

int memcpy_s(void *dest, size_t dest_max, const void *src, size_t count) {
    const Call call(__func__, {}, dest_max, count);
    return call.fails() ? memory_failed(call, dest, dest_max) : checked_memcpy_s(dest, dest_max, src, count);
}

int memset_s(void *dest, size_t dest_max, int c, size_t count) {
    const Call call(__func__, {}, dest_max, c, count);
    return call.fails() ? memory_failed(call, dest, dest_max) : checked_memset_s(dest, dest_max, c, count);
}

// What the module asks GLib for: this program's own stands before GLib's.
extern "C" gpointer g_try_malloc0(gsize size) {
    const Call call(__func__, {}, size);
    return call.fails() || size == 0 ? nullptr
                                     : std::calloc(1, size); // NOLINT(cppcoreguidelines-no-malloc): for g_free
}

// ---- Logs ----------------------------------------------------------------------------------------------------------

// "file(line)(tick): text" without what a test cannot know.
static std::string maintenance_text(const std::string &text) {
    int file_end = 0;
    int start = 0;
    long line = 0;
    unsigned long tick = 0;
    if (std::sscanf(text.c_str(), "%*[^(/ ]%n(%ld)(%lu): %n", &file_end, &line, &tick, &start) != 2 || start == 0) {
        return "MALFORMED " + text;
    }
    return text.substr(0, static_cast<std::size_t>(file_end)) + ": " + text.substr(static_cast<std::size_t>(start));
}

static G_GNUC_PRINTF(3, 0) void keep_log(gint32 level, bool maintenance, const gchar *format, va_list arguments) {
    std::array<char, 4096> text{};
    (void)std::vsnprintf(text.data(), text.size(), format, arguments); // longer lines are cut
    if (level < 0 || level > 2) {
        violate("log level " + std::to_string(level));
    }
    world().events.push_back({.tick = world().ticks,
                              .operation = {},
                              .line = (maintenance ? "M" : "") + std::to_string(level) + " " +
                                      (maintenance ? maintenance_text(text.data()) : text.data()),
                              .level = level});
}

void debug_log_func(gint32 level, const gchar * /*file*/, gint32 /*line*/, const gchar *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep_log(level, false, format, arguments);
    va_end(arguments);
}

void dbg_log(gint32 level, const gchar *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keep_log(level, true, format, arguments);
    va_end(arguments);
}
