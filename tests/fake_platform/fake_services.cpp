// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "arith.h"
#include "board.h"
#include "debug_log.h"
#include "fake_state.h"
#include "gpio.h"
#include "securec.h"
#include "vos.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <pthread.h>

using namespace fake; // NOLINT(google-build-using-namespace): the operations below have C linkage and global names

// ---- Tasks and time ------------------------------------------------------------------------------------------------

namespace {

struct TaskRun {
    VOS_TASK_ENTRY entry;
    void *argument;
    const std::function<bool(guint32)> *done;
    guint32 delays = 0;
    bool returned = false;
};

constexpr guint32 kMaxDelays = 2'000'000; // a task that nothing ends is a mistake of the test

thread_local TaskRun *current_run = nullptr;

} // namespace

extern "C" {
static void *run_thread(void *run) {
    current_run = static_cast<TaskRun *>(run);
    current_run->entry(current_run->argument);
    current_run->returned = true;
    return nullptr;
}
}

bool fake::run_task(VOS_TASK_ENTRY entry, void *argument, const std::function<bool(guint32)> &done) {
    TaskRun run{.entry = entry, .argument = argument, .done = &done};
    pthread_t thread{};
    if (pthread_create(&thread, nullptr, run_thread, &run) != 0 || pthread_join(thread, nullptr) != 0) {
        const std::lock_guard lock(world_mutex());
        violate("no thread for a task");
    }
    return run.returned;
}

void vos_task_delay(guint32 milliseconds) {
    std::function<void(guint32)> hook;
    {
        const std::lock_guard lock(world_mutex());
        world().events.push_back({.tick = world().ticks,
                                  .operation = "vos_task_delay",
                                  .line = "vos_task_delay " + std::to_string(milliseconds)});
        world().ticks += milliseconds;
        hook = world().on_delay;
    }
    if (hook) {
        hook(milliseconds);
    }
    if (current_run == nullptr) {
        return;
    }
    ++current_run->delays;
    if (current_run->delays < kMaxDelays && !(*current_run->done)(current_run->delays)) {
        return;
    }
    hook = nullptr; // nothing of this frame may be left to release
    pthread_exit(nullptr);
}

gulong vos_tick_get(void) {
    const std::lock_guard lock(world_mutex());
    return world().ticks & G_MAXULONG; // wraps with the width of gulong
}

gint32 vos_task_create(gulong *task, const gchar *name, VOS_TASK_ENTRY entry, void *argument, guint32 priority) {
    Call call("vos_task_create", text_of(name), priority);
    if (call.fails()) {
        return call.status();
    }
    world().tasks.push_back({.name = text_of(name), .entry = entry, .argument = argument, .priority = priority});
    *task = world().tasks.size();
    return 0;
}

// ---- Semaphores ----------------------------------------------------------------------------------------------------

static std::string semaphore_name(gulong semaphore) {
    const std::lock_guard lock(world_mutex());
    const auto found = world().semaphores.find(semaphore);
    return found == world().semaphores.end() ? "?" : found->second.name;
}

gint32 vos_thread_mutex_sem4_create(const gchar *name, gulong *semaphore) {
    Call call("vos_thread_mutex_sem4_create", text_of(name));
    if (call.fails()) {
        return call.status();
    }
    static gulong next = 7000; // never reused, so that a stale handle shows
    *semaphore = ++next;
    world().semaphores[*semaphore] = {.name = text_of(name)};
    return 0;
}

// Only "eeprom" may be taken while another one is held, and only one other.
static void check_nesting(const Semaphore &wanted) {
    for (const auto &[handle, other] : world().semaphores) {
        if (other.held && !other.by_others && other.holder == std::this_thread::get_id() &&
            (wanted.name != "eeprom" || other.name == "eeprom")) {
            violate("semaphore " + wanted.name + " taken while holding " + other.name);
        }
    }
}

gint32 vos_thread_sem4_p(gulong semaphore, guint32 timeout_ms) {
    Call call("vos_thread_sem4_p", semaphore_name(semaphore), timeout_ms);
    if (call.fails()) {
        return call.status();
    }
    const auto found = world().semaphores.find(semaphore);
    if (found == world().semaphores.end()) {
        return kRefused;
    }
    check_nesting(found->second);
    if (found->second.held && (found->second.by_others || found->second.holder == std::this_thread::get_id())) {
        if (timeout_ms == 0) {
            violate("waits for ever for semaphore " + found->second.name);
        }
        world().ticks += timeout_ms;
        return kTimedOut;
    }
    // Another thread of the test has it: it is about to give it back, whatever the scripted clock says.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    const auto is_free = [&found] { return !found->second.held; };
    if (!semaphore_freed().wait_until(call.lock(), deadline, is_free)) {
        violate("semaphore " + found->second.name + " was never given back");
        return kTimedOut;
    }
    found->second.held = true;
    found->second.holder = std::this_thread::get_id();
    return 0;
}

gint32 vos_thread_sem4_v(gulong semaphore) {
    Call call("vos_thread_sem4_v", semaphore_name(semaphore));
    const auto found = world().semaphores.find(semaphore);
    if (found == world().semaphores.end() || !found->second.held || found->second.by_others ||
        found->second.holder != std::this_thread::get_id()) {
        violate("semaphore given back by a thread that does not hold it");
        return kRefused;
    }
    found->second.held = false; // a failing give-back frees it all the same: nothing could wait for it otherwise
    semaphore_freed().notify_all();
    return call.fails() ? call.status() : 0;
}

gint32 vos_thread_sem4_delete(gulong semaphore) {
    Call call("vos_thread_sem4_delete", semaphore_name(semaphore));
    if (call.fails()) {
        return call.status();
    }
    return world().semaphores.erase(semaphore) == 1 ? 0 : kRefused;
}

static void hold(const std::string &name, bool held) {
    const std::lock_guard lock(world_mutex());
    for (auto &[handle, semaphore] : world().semaphores) {
        if (semaphore.name == name) {
            semaphore.held = held;
            semaphore.by_others = held;
        }
    }
}

void fake::hold_semaphore(const std::string &name) {
    hold(name, true);
}
void fake::free_semaphore(const std::string &name) {
    hold(name, false);
}

static Texts semaphore_names(bool held_only) {
    const std::lock_guard lock(world_mutex());
    Texts names;
    for (const auto &[handle, semaphore] : world().semaphores) {
        if (!held_only || (semaphore.held && !semaphore.by_others)) {
            names.push_back(semaphore.name);
        }
    }
    return names;
}

Texts fake::semaphores_held() {
    return semaphore_names(true);
}
Texts fake::semaphores() {
    return semaphore_names(false);
}

// ---- Board ---------------------------------------------------------------------------------------------------------

template <typename Fact>
static Fact fact(const char *operation, Fact Board::*member) {
    Call call(operation);
    return call.fails() ? static_cast<Fact>(call.status()) : world().board.*member;
}

template <typename State>
static gint32 state(const char *operation, State Board::*member, State *out) {
    Call call(operation);
    if (call.fails()) {
        return call.status();
    }
    *out = world().board.*member;
    return 0;
}

static gint32 keep_bytes(const char *operation, Bytes Board::*member, const UINT8 *data, UINT32 len) {
    Call call(operation, {}, len);
    if (call.fails()) {
        return call.status();
    }
    if (data == nullptr) {
        return kRefused;
    }
    world().board.*member = Bytes(data, data + len);
    return 0;
}

template <typename Key, typename Element>
static gint32 look_up(Call &call, std::map<Key, Element> Board::*member, const Key &key, Element *out) {
    if (call.fails()) {
        return call.status();
    }
    const auto found = (world().board.*member).find(key);
    *out = found == (world().board.*member).end() ? Element{} : found->second;
    return 0;
}

// Keeps a value unless the call fails.
template <typename Change>
static gint32 keep(Call &call, const Change &change) {
    if (call.fails()) {
        return call.status();
    }
    change(world().board);
    return 0;
}

// clang-format off
gint32 BSP_IsSmmBoard(void) { return fact("BSP_IsSmmBoard", &Board::smm); }
gint32 BSP_IsManuVersion(void) { return fact("BSP_IsManuVersion", &Board::manufacturing); }
gint32 BSP_Is4U4CBoard(void) { return fact("BSP_Is4U4CBoard", &Board::four_u); }
gint32 BSP_isEquipFrameBoard(void) { return fact("BSP_isEquipFrameBoard", &Board::equip_frame); }
gint32 BSP_IsTarn4U4CBoard(void) { return fact("BSP_IsTarn4U4CBoard", &Board::tarn); }
gint32 BSP_Is2UExpBoard(void) { return fact("BSP_Is2UExpBoard", &Board::two_u_expansion); }
guint32 BSP_GetBpEepromCount(void) { return fact("BSP_GetBpEepromCount", &Board::backplane_eeproms); }
gint32 BSP_GetEquipMode(UINT8 *mode) { return state("BSP_GetEquipMode", &Board::equip_mode, mode); }
gint32 BSP_GetBoardSlot(UINT8 *slot) { return state("BSP_GetBoardSlot", &Board::slot, slot); }
gint32 BSP_IsCpldUpgrading(UINT8 *upgrading) { return state("BSP_IsCpldUpgrading", &Board::cpld_upgrading, upgrading); }
gint32 BSP_GetPowerStandByStatus(BOOL *standby) { return state("BSP_GetPowerStandByStatus", &Board::standby, standby); }
UINT32 BSP_Diff_Uint32(UINT32 earlier, UINT32 later) { return later - earlier; }
// clang-format on

gint32 BSP_GetBoardMasterOrSlaveState(BOARD_MOS_E *role) {
    return state("BSP_GetBoardMasterOrSlaveState", &Board::role, role);
}

gint32 BSP_SetWwn2CpldRam(const UINT8 *data, UINT32 len) {
    return keep_bytes("BSP_SetWwn2CpldRam", &Board::wwn, data, len);
}

gint32 BSP_SetFrameModelToCpldRam(const UINT8 *data, UINT32 len) {
    return keep_bytes("BSP_SetFrameModelToCpldRam", &Board::frame_model, data, len);
}

gint32 BSP_SetProductCfgInfoToCpldRam(const UINT8 *data, UINT32 len) {
    return keep_bytes("BSP_SetProductCfgInfoToCpldRam", &Board::product_info, data, len);
}

gint32 BSP_GetBoardOnlineStatus(UINT8 slot) {
    Call call("BSP_GetBoardOnlineStatus", std::to_string(slot));
    return call.fails() ? call.status() : gint32{world().board.online.contains(slot)};
}

gint32 BSP_bPcieorsasModelValid(UINT8 model) {
    Call call("BSP_bPcieorsasModelValid", {}, model);
    return call.fails() ? call.status() : gint32{world().board.valid_models.contains(model)};
}

gint32 BSP_RebootRequestProcess(void) {
    Call call("BSP_RebootRequestProcess");
    return call.fails() ? call.status() : 0;
}

gint32 BSP_ReadCpldBit(UINT32 reg, UINT32 bit, UINT8 *value) {
    Call call("BSP_ReadCpldBit", std::to_string(reg), bit);
    return look_up(call, &Board::cpld_bits, {reg, bit}, value);
}

gint32 BSP_GetCpldRam(UINT32 address, UINT8 *value) {
    Call call("BSP_GetCpldRam", std::to_string(address));
    return look_up(call, &Board::cpld_ram, address, value);
}

gint32 BSP_SetCpldRam(UINT32 address, UINT8 value) {
    Call call("BSP_SetCpldRam", std::to_string(address), value);
    return keep(call, [=](Board &board) { board.cpld_ram[address] = value; });
}

gint32 BSP_SetPcieSasModelToCpldRam(UINT8 model) {
    Call call("BSP_SetPcieSasModelToCpldRam", {}, model);
    return keep(call, [=](Board &board) { board.pcie_model = model; });
}

gint32 BMC_FlashReadCfgPara(UINT32 parameter, UINT32 len, UINT8 *buffer) {
    Call call("BMC_FlashReadCfgPara", std::to_string(parameter), len);
    Bytes stored;
    if (const gint32 ret = look_up(call, &Board::flash, parameter, &stored); ret != 0) {
        return ret;
    }
    if (stored.size() < len) {
        return kRefused; // never written, or shorter
    }
    std::copy_n(stored.begin(), len, buffer);
    return 0;
}

gint32 BMC_FlashWriteCfgPara(UINT32 parameter, UINT32 len, const UINT8 *buffer) {
    Call call("BMC_FlashWriteCfgPara", std::to_string(parameter), len, *buffer);
    return keep(call, [=](Board &board) { board.flash[parameter] = Bytes(buffer, buffer + len); });
}

gint32 gpio_init(guint32 line, guint32 mode) {
    Call call("gpio_init", std::to_string(line), mode);
    if (mode != 1 && !call.fails()) {
        return kRefused;
    }
    return keep(call, [=](Board &board) { board.lines.try_emplace(line, 0); });
}

gint32 gpio_write(guint32 line, guint32 level) {
    Call call("gpio_write", std::to_string(line), level);
    if (!world().board.lines.contains(line) && !call.fails()) {
        return kRefused; // not an output yet
    }
    return keep(call, [=](Board &board) { board.lines[line] = level; });
}

// ---- Checksum and bounds-checked memory ----------------------------------------------------------------------------

// Bit by bit, most significant first.
static guint32 crc_of(guint32 crc, guint32 width, guint32 polynomial, const guint8 *data, guint32 len) {
    const guint32 mask = (1U << width) - 1U;
    for (guint32 bit = 0; bit < len * 8; ++bit) {
        const guint32 incoming = guint32{data[bit / 8]} >> (7 - bit % 8) & 1U;
        const guint32 outgoing = crc >> (width - 1);
        crc = (crc << 1U & mask) ^ (incoming != outgoing ? polynomial : 0U);
    }
    return crc;
}

guint16 arith_make_crc_checksum(guint16 start, const guint8 *data, guint32 len) {
    return static_cast<guint16>(crc_of(start, 16, 0x1021, data, len) ^ 0xFFFFU);
}

UINT8 BSP_CalCrc8(UINT8 start, const UINT8 *data, UINT32 len) {
    return static_cast<guint8>(crc_of(start, 8, 0x07, data, len));
}

// What Annex K asks of a refused call: a status, and a destination that holds nothing half-done.
static int memory_refused(void *dest, size_t dest_max, int status) {
    if (dest != nullptr && dest_max != 0) {
        std::memset(dest, 0, dest_max);
    }
    return status;
}

int memcpy_s(void *dest, size_t dest_max, const void *src, size_t count) {
    Call call("memcpy_s");
    if (call.fails()) {
        return memory_refused(dest, dest_max, call.status());
    }
    if (dest == nullptr || src == nullptr || dest_max == 0 || count > dest_max) {
        return memory_refused(dest, dest_max, count > dest_max ? ERANGE : EINVAL);
    }
    const auto to = reinterpret_cast<guintptr>(dest);
    const auto from = reinterpret_cast<guintptr>(src);
    if (count != 0 && to < from + count && from < to + count) {
        violate("memcpy_s of overlapping bytes");
        return memory_refused(dest, dest_max, EINVAL);
    }
    std::memcpy(dest, src, count);
    return 0;
}

int memset_s(void *dest, size_t dest_max, int c, size_t count) {
    Call call("memset_s");
    if (call.fails()) {
        return memory_refused(dest, dest_max, call.status());
    }
    if (dest == nullptr || dest_max == 0 || count > dest_max) {
        return memory_refused(dest, dest_max, count > dest_max ? ERANGE : EINVAL);
    }
    std::memset(dest, c, count);
    return 0;
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
    const std::lock_guard lock(world_mutex());
    if (level < 0 || level > 2) {
        violate("log level " + std::to_string(level));
    }
    world().events.push_back({.tick = world().ticks,
                              .operation = {},
                              .line = (maintenance ? "M" : "") + std::to_string(level) + " " +
                                      (maintenance ? maintenance_text(text.data()) : text.data()),
                              .level = level});
}

void debug_log_func(gint32 level, const gchar *file, gint32 line, const gchar *format, ...) {
    if (file == nullptr || line <= 0) {
        const std::lock_guard lock(world_mutex());
        violate("log line without its place");
    }
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
