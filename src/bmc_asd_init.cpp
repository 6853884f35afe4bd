// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_init.h"

#include "bmc_asd_common.h"
#include "bmc_asd_holders.h"
#include "bmc_asd_log.h"
#include "bmc_asd_property.h"
#include "bmc_asd_read.h"
#include "bmc_asd_state.h"
#include "bmc_asd_update_property.h"
#include "bmc_asd_write.h"
#include "board.h"
#include "ipmi_stack.h"
#include "object_frame.h"
#include "securec.h"
#include "vos.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <string_view>

static constexpr guint32 kLongSleepMs = 120000; // long waits are made of these
static constexpr guint32 kUpgradeSettleMs = 10000;

// Reads the board's role into *role, as a number. The platform may have changed it even when it reports a failure.
static gint32 role_read(guint32 *role) {
    auto state = std::bit_cast<BOARD_MOS_E>(*role);
    const gint32 ret = BSP_GetBoardMasterOrSlaveState(&state);
    *role = std::bit_cast<guint32>(state);
    return ret;
}

static void long_sleep(guint32 times) {
    for (guint32 i = 0; i < times; ++i) {
        vos_task_delay(kLongSleepMs);
    }
}

// ---- Start ----

gint32 ASD_SyncSourceObjectForeach(OBJ_HANDLE object_handle, gpointer /*user_data*/) {
    guint8 num = 0;
    if (const gint32 ret = property_read(object_handle, PROPERTY_ASD_NUM, &num); ret != 0) {
        ASD_LOG_DEBUG("dfl get property value failed (%d)", ret);
        return kStatusOk;
    }
    if (const gint32 ret = dfl_bind_object_alias(object_handle, num); ret != 0) {
        ASD_LOG_DEBUG("Asd dfl_bind_object_alias fail(%d)", ret);
    }
    return kStatusOk;
}

gint32 asd_init(void) {
    if (BSP_IsSmmBoard() != 0) {
        return kStatusOk;
    }
    if (const gint32 ret = asd_ekey_lock_init(); ret != 0) {
        ASD_LOG_ERROR("asd ekey lock init failed(%d)!", ret);
        return kStatusFailed;
    }
    (void)dfl_foreach_object(kClassItem, ASD_SyncSourceObjectForeach, nullptr,
                             0); // an item without number is just not pushed
    ASD_LOG_INFO("asd init ok.");
    return kStatusOk;
}

namespace {

struct Task {
    const gchar *name;
    VOS_TASK_ENTRY entry;
};

} // namespace

// clang-format off
static constexpr std::array<Task, 4> kTasks = {{
    {.name = "asd_master_check", .entry = asd_master_check_task},
    {.name = "asd_eeprom_check", .entry = asd_eeprom_check_task},
    {.name = "ccdb_set_eeprom",  .entry = ASD_ROUTINE_SYS_CCDB_Task},
    {.name = "asd_eeprom_sync",  .entry = ASD_EEprom_Sync_Task},
}};
// clang-format on

gint32 asd_start(void) {
    constexpr guint32 kPriority = 1;
    if (BSP_IsSmmBoard() != 0) {
        return kStatusOk;
    }
    for (const Task &task : kTasks) {
        gulong handle = 0; // no task is ever stopped
        if (const gint32 ret = vos_task_create(&handle, task.name, task.entry, nullptr, kPriority); ret != 0) {
            ASD_LOG_ERROR("Create %s task failed! result: %d.", task.name, ret);
            return ret;
        }
    }
    ASD_LOG_INFO("asd start ok.");
    return kStatusOk;
}

// ---- Role monitor ----

void GetInfofromRam(void) {
    ASD_InitIocardPcie4();
    if (BSP_Is4U4CBoard() != 0) {
        spare_backboard_pcieorsas_detect_process();
    }
    // Without a limit; if it nevertheless fails the copy is made all the same.
    const HeldLock lock = HeldLock::take(AsdGetGCcdbSetEnLock(), 0);
    if (AsdReadCcdbDataFromRam() != 0) {
        ASD_LOG_INFO("Init cccb value is not ready!");
    }
}

static void enter_slave(guint32 *completed) {
    ASD_LOG_INFO("asd enter slave mode!");
    AsdSetNodeviewFlag(0);
    *completed = BOARD_SLAVE;
}

// A failed reload leaves the transition open, so that the next pass tries the whole again.
static void enter_master(guint32 *completed) {
    if (dfl_foreach_object(kClassItem, process_each_asd_object, nullptr, 0) == 0) {
        ASD_LOG_INFO("asd enter master mode!");
        *completed = BOARD_MASTER;
    }
    GetInfofromRam();
}

// One pass of the monitor. *completed: the role whose transition work is done; never the error role again, so that a
// master that briefly reads as error does not reload.
static void role_monitor_pass(guint32 *completed) {
    UINT8 idle = 0xFF;
    if (BSP_ReadCpldBit(kCpldIdleRegister, kCpldIdleBit, &idle) != 0 || idle == 1) {
        return;
    }
    guint32 role = g_masterMode;
    const gint32 ret = role_read(&role);
    g_masterMode = role;
    if (ret != 0) {
        return;
    }
    UINT8 equip_mode = 0;
    if (BSP_GetEquipMode(&equip_mode) != 0 || equip_mode == 1) {
        return;
    }
    if (role == BOARD_SLAVE && *completed != BOARD_SLAVE) {
        enter_slave(completed);
    }
    if (role == BOARD_MASTER && *completed != BOARD_MASTER) {
        enter_master(completed);
    }
    if (role == BOARD_MASTER) {
        asd_master_eepromroutine();
    }
}

void asd_master_check_task(void * /*data*/) {
    static guint32 PreMode = BOARD_MOS_ERROR; // this task alone
    for (;;) {
        vos_task_delay(500);
        role_monitor_pass(&PreMode);
    }
}

// ---- Check and routine reload ----

// Kept (answer): the last one is listed but not checked.
static constexpr std::array<const gchar *, 4> kCheckNames = {"ASD10", "ASD11", "ASD13", "ASD_CCDB"};
static constexpr std::size_t kCheckedNames = 3;
static constexpr std::string_view kItemNotOn2U = "ASD13";

// Compares and repairs one item. False: it was skipped.
static bool check_one(const gchar *objname) {
    if (BSP_Is2UExpBoard() != 0 && objname == kItemNotOn2U) {
        return false;
    }
    // Kept (answer): a board in the error role checks too.
    if (g_masterMode == BOARD_SLAVE) {
        return false;
    }
    if (const gint32 ret = asd_eeprom_check(objname); ret != 0) {
        ASD_LOG_ERROR("%s asd eeprom check failed! ret(%d).", objname, ret);
    }
    return true;
}

void asd_eeprom_check_task(void * /*data*/) {
    constexpr guint32 kHour = 30; // long sleeps
    constexpr guint32 kPauseMs = 10000;
    UINT8 equip_mode = 0;
    UINT8 idle = 0xFF;
    for (;;) {
        long_sleep(kHour);
        (void)BSP_GetEquipMode(&equip_mode); // unreadable: as it was
        if (equip_mode == 1) {
            continue;
        }
        (void)BSP_ReadCpldBit(kCpldIdleRegister, kCpldIdleBit, &idle); // as above
        if (idle == 1) {
            continue;
        }
        for (std::size_t i = 0; i < kCheckedNames; ++i) {
            if (check_one(kCheckNames[i])) {
                vos_task_delay(kPauseMs);
            }
        }
    }
}

static std::array<ASD_MASTER_ROUTINEINFO, 1> g_asdRoutine = {{{.asdName = "ASD25", .period = 180000, .preTicks = 0}}};

void asd_master_eepromroutine(void) {
    const gulong now = vos_tick_get();
    for (ASD_MASTER_ROUTINEINFO &routine : g_asdRoutine) {
        if (BSP_Diff_Uint32(static_cast<UINT32>(routine.preTicks), static_cast<UINT32>(now)) < routine.period) {
            continue;
        }
        OBJ_HANDLE item = 0;
        if (dfl_get_object_handle(routine.asdName, &item) == 0) {
            (void)process_each_asd_object(item, nullptr); // logged there; the next period tries again
        }
        routine.preTicks = now;
    }
}

// ---- Customer block ----

static constexpr const gchar *kCcdbItem = "ASD_CCDB";

static std::array<guint8, kCcdbSize> g_ccdbSetData; // guarded by g_ccdbSetEnLock
static bool g_ccdbKnown = false;                    // as above; false: nobody has read or set the block
static std::atomic<guint8> g_ccdbSetEn{0};          // as above

gulong AsdGetGCcdbSetEnLock(void) {
    return g_ccdbSetEnLock;
}

void AsdSetGCcdbSetEnLock(gulong lock) {
    g_ccdbSetEnLock = lock;
}

guint8 *AsdGetGCcdbSetData(void) {
    return g_ccdbSetData.data();
}

bool ccdb_is_pending(const guint8 *block) {
    return g_ccdbKnown && std::memcmp(block, g_ccdbSetData.data(), kCcdbSize) == 0;
}

gint32 ccdb_make_pending(const guint8 *block) {
    const gint32 ret = memcpy_s(g_ccdbSetData.data(), kCcdbSize, block, kCcdbSize);
    g_ccdbKnown = ret == 0; // a failed copy leaves zeros
    return ret;
}

void AsdSetGCcdbSetData(const guint8 *data) {
    if (const gint32 ret = ccdb_make_pending(data); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ccdb failed, result = %d.", ret);
    }
}

guint8 AsdGetGCcdbSetEn(void) {
    return g_ccdbSetEn;
}

void AsdSetGCcdbSetEn(guint8 value) {
    g_ccdbSetEn = value;
}

gint32 update_ccdb_data_of_ram(gconstpointer Data) {
    OBJ_HANDLE item = 0;
    if (dfl_get_object_handle(kCcdbItem, &item) != 0) {
        ASD_LOG_INFO("get asd_ccdb handle for update ccdb data of ram unsucessful");
    }
    const gint32 ret = asd_update_property(item, static_cast<const guint8 *>(Data), kCcdbSize);
    if (ret != 0) {
        ASD_LOG_INFO("update ccdb value unsucessful.");
    }
    return ret;
}

void AsdWriteCcdbDataToEeprom(void) {
    // It could not be read on becoming master; the chips may be good, so that zeros must not take its place.
    if (!g_ccdbKnown && (AsdReadCcdbDataFromRam() != 0 || !g_ccdbKnown)) {
        ASD_LOG_MAINTENANCE(0, "Set ccdb unsucessful.");
        return;
    }
    OBJ_HANDLE item = 0;
    if (const gint32 ret = dfl_get_object_handle(kCcdbItem, &item); ret != 0) {
        ASD_LOG_ERROR("Get ASD_CCDB handle failed(%d).", ret);
    }
    if (asd_write_check(item, g_ccdbSetData.data(), kCcdbSize) == 0) {
        ASD_LOG_MAINTENANCE(1, "Set ccdb success.");
        return;
    }
    ASD_LOG_MAINTENANCE(0, "Set ccdb unsucessful.");
}

gint32 AsdReadCcdbDataFromRam(void) {
    OBJ_HANDLE item = 0;
    if (dfl_get_object_handle(kCcdbItem, &item) != 0) {
        ASD_LOG_ERROR("Get ASD_CCDB handle for set failed");
        return kStatusFailed;
    }
    guint8 ready = 0;
    if (property_read(item, PROPERTY_ASD_READY, &ready) != 0) {
        ASD_LOG_ERROR("Get CCDB data ready signal failed");
        return kStatusFailed;
    }
    if (ready == 0) {
        ASD_LOG_INFO("CCDB data is not ready");
        return kStatusFailed;
    }
    std::array<guint8, kCcdbSize> data{};
    gsize value_size = 0;
    // An item that is not online gives zeros and no size: they are nobody's block.
    if (asd_get_value(kCcdbItem, kCcdbSize, data.data(), &value_size) != 0 || value_size == 0) {
        ASD_LOG_ERROR("Get CCDB data failed");
        return kStatusFailed;
    }
    if (const gint32 ret = ccdb_make_pending(data.data()); ret != 0) {
        ASD_LOG_ERROR("Error: copy asd ccdb data failed, result = %d.", ret);
    }
    return kStatusOk;
}

// Writes the pending block once its lock is free; if taking the lock nevertheless fails, all the same.
static void ccdb_write_waiting() {
    const HeldLock lock = HeldLock::take(AsdGetGCcdbSetEnLock(), 0);
    AsdWriteCcdbDataToEeprom();
}

void ASD_EEprom_MasterWriteCcdb(void) {
    static BOOL preSysPwrStat = 1; // the sync task alone; at start standby is not taken for an edge
    {
        const HeldLock lock = HeldLock::take(AsdGetGCcdbSetEnLock(), 2000);
        if (lock.result() != 0) {
            return;
        }
        if (AsdGetGCcdbSetEn() == 1) {
            AsdWriteCcdbDataToEeprom();
            AsdSetGCcdbSetEn(0); // Kept (answer): also when the write failed; until standby, the day's write or a set
                                 // of another block
        }
    }
    BOOL standby = 1;
    if (BSP_GetPowerStandByStatus(&standby) != 0) {
        return;
    }
    if (standby == 1 && preSysPwrStat == 0) {
        ASD_LOG_INFO("Set CCDB data to e2prom when os enter standby!");
        ccdb_write_waiting();
    }
    preSysPwrStat = standby;
}

void ASD_ROUTINE_SYS_CCDB_Task(void * /*data*/) {
    constexpr guint32 kDay = 720; // long sleeps
    UINT8 cpldRamRegPre = 1;
    UINT8 cpldRamRegCurrent = 0;
    (void)BSP_IsCpldUpgrading(&cpldRamRegPre); // unreadable: as after an upgrade
    for (;;) {
        long_sleep(kDay);
        (void)BSP_IsCpldUpgrading(&cpldRamRegCurrent); // unreadable: as it was
        if (cpldRamRegCurrent == 1) {
            cpldRamRegPre = 1;
            continue;
        }
        if (cpldRamRegPre == 1) {
            cpldRamRegPre = cpldRamRegCurrent;
            vos_task_delay(kUpgradeSettleMs);
        }
        if (is_master()) {
            ccdb_write_waiting();
        }
    }
}

// ---- Node view ----

static std::array<guint8, kNodeViewSize> g_nodeviewSetData; // guarded by g_setNodeviewLock
// Counts how often the last one was declared out of date. Atomic: the role monitor does it without the lock.
static std::atomic<guint32> g_nodeviewEra{1};
// The era in which g_nodeviewSetData was written. Equal to the present one: it is what this controller wrote last, and
// since it last entered the slave role. A set that began in an earlier era never makes its view the known one.
static std::atomic<guint32> g_nodeviewSetEra{0};

gint32 AsdSetGNodeviewLockMutex(void) {
    return vos_thread_sem4_p(g_setNodeviewLock, 10000);
}

void AsdSetGNodeviewunLockMutex(void) {
    (void)vos_thread_sem4_v(g_setNodeviewLock); // nothing a caller could do
}

void AsdSetNodeviewFlag(guint8 value) {
    if (value == 1) {
        g_nodeviewSetEra = g_nodeviewEra.load();
        return;
    }
    ++g_nodeviewEra;
}

// Writes a view that differs from the last one, with the lock held. 0 or -1.
static gint32 nodeview_update(OBJ_HANDLE item, const guint8 *data, guint32 size) {
    const guint32 era = g_nodeviewEra;
    if (g_nodeviewSetEra == era && std::memcmp(g_nodeviewSetData.data(), data, size) == 0) {
        ASD_LOG_INFO("The nodeview data is the same, no need update.");
        return kStatusOk;
    }
    std::array<guint8, kNodeViewSize + 1> view{};
    if (const gint32 ret = memcpy_s(view.data(), view.size(), data, size); ret != 0) {
        ASD_LOG_ERROR("Error: copy nodeView failed(%d).", ret);
        return kStatusFailed;
    }
    if (const gint32 ret = asd_write_check(item, view.data(), size); ret != 0) {
        ASD_LOG_ERROR("Set nodeView to eeprom failed(%d).", ret);
        return kStatusFailed;
    }
    if (const gint32 ret = memcpy_s(g_nodeviewSetData.data(), g_nodeviewSetData.size(), data, size); ret != 0) {
        ASD_LOG_ERROR("Error: copy nodeView failed(%d).", ret);
        return kStatusFailed;
    }
    g_nodeviewSetEra = era;
    ASD_LOG_INFO("Set node view succeed.");
    return kStatusOk;
}

gint32 AsdSetNodevie2E2prom(OBJ_HANDLE objHandle, const guint8 *srcData, gint32 lenth) {
    if (srcData == nullptr || lenth < 0 || static_cast<guint32>(lenth) > kNodeViewSize) {
        return kStatusFailed;
    }
    if (const gint32 ret = AsdSetGNodeviewLockMutex(); ret != 0) {
        ASD_LOG_ERROR("Set nodeview get lock failed(ret=%d)", ret);
        return kStatusFailed;
    }
    const gint32 ret = nodeview_update(objHandle, srcData, static_cast<guint32>(lenth));
    AsdSetGNodeviewunLockMutex();
    return ret;
}

// ---- Push to the peers ----

namespace {

// The answer of a peer; one block.
class PeerResponse {
public:
    PeerResponse() = default;
    ~PeerResponse() { g_free(response_); }
    PeerResponse(const PeerResponse &) = delete;
    PeerResponse &operator=(const PeerResponse &) = delete;
    [[nodiscard]] IPMI_RESP_MSG_S **out() { return &response_; }
    // The completion code; -1 when there is no answer or no byte in it.
    [[nodiscard]] gint32 code() const {
        const bool has_data = response_ != nullptr && response_->data != nullptr && response_->data_len > 0;
        return has_data ? response_->data[0] : kStatusFailed;
    }

private:
    IPMI_RESP_MSG_S *response_ = nullptr;
};

} // namespace

static constexpr UINT8 kSlots = 4;
static constexpr guint8 kSyncNetfn = 0x32;
static constexpr guint8 kSyncCmd = 0xF9;

// Sends one message to one slot and waits for the answer.
static gint32 sync_send(UINT8 slot, const ASD_EEPROM_STATE_SYNC_S &message, guint8 size) {
    const IPMI_REQ_MSG_HEAD_S head = {.target_type = IPMI_MMC,
                                      .target_instance = slot,
                                      .lun = 0,
                                      .netfn = kSyncNetfn,
                                      .cmd = kSyncCmd,
                                      .src_len = size};
    PeerResponse response;
    const gint32 ret = ipmi_send_request(&head, &message, 1, response.out(), 1);
    return ret != 0 ? ret : response.code();
}

void ASD_EEprom_Sync(const UINT8 *Data, UINT8 NumId, UINT32 Len) {
    static RateLimit limit(600000, 2);
    if (Len > kSyncDataMax) {
        ASD_LOG_ERROR("Error: copy asd sync data failed, result = %d.", kStatusFailed);
        return;
    }
    UINT8 local_slot = 0xFF;
    (void)BSP_GetBoardSlot(&local_slot); // unknown: every slot is a peer
    for (UINT8 slot = 0; slot < kSlots; ++slot) {
        if (slot == local_slot || BSP_GetBoardOnlineStatus(slot) == 0) {
            continue;
        }
        ASD_LOG_DEBUG("ASD sync data to board(%d)", slot);
        ASD_EEPROM_STATE_SYNC_S message = {.FruId = 0xFF,
                                           .FruType0 = 0x02,
                                           .FruType1 = 0x00,
                                           .DeviceId = 0x00,
                                           .CmdSdrType = SYNC_SDRTYPE_SET_OPP_EEPROM,
                                           .AsdNum = NumId,
                                           .SyncData = {}};
        if (const gint32 ret = memcpy_s(message.SyncData, sizeof message.SyncData, Data, Len); ret != 0) {
            ASD_LOG_ERROR("Error: copy asd sync data failed, result = %d.", ret);
        }
        const gint32 ret = sync_send(slot, message, static_cast<guint8>(Len + kSyncHeadSize));
        if (ret != 0 && limit.admits()) {
            ASD_LOG_INFO("Sync asd(id=%d) data to slot%d failed(ret=%d)", NumId, slot, ret);
        }
    }
}

gint32 ASD_SyncEEpromToSlaveForeach(OBJ_HANDLE object_handle, gpointer /*callback_data*/) {
    guint8 need_sync = 0;
    guint8 ready = 0;
    guint8 num = 0;
    guint32 length = 0;
    if (property_read(object_handle, PROPERTY_ASD_NEEDSYNC, &need_sync) != 0 || need_sync == 0 ||
        property_read(object_handle, PROPERTY_ASD_READY, &ready) != 0 || ready == 0 ||
        property_read(object_handle, PROPERTY_ASD_NUM, &num) != 0 ||
        property_read(object_handle, PROPERTY_ASD_LENGTH, &length) != 0 || length > kSyncDataMax) {
        return kStatusOk;
    }
    std::array<guint8, kSyncDataMax> data{};
    if (const gint32 ret = memset_s(data.data(), data.size(), 0, data.size()); ret != 0) {
        ASD_LOG_ERROR("Error: init asd data failed, result = %d.", ret);
    }
    gsize value_size = 0;
    if (asd_get_value(dfl_get_object_name(object_handle), length, data.data(), &value_size) == 0) {
        ASD_EEprom_Sync(data.data(), num, length);
    }
    return kStatusOk;
}

// One pass of the sync task. It reads the role itself: the monitor's may be half a second old.
static void sync_pass(UINT8 *equip_mode) {
    (void)BSP_GetEquipMode(equip_mode); // unreadable: as it was
    if (*equip_mode == 1) {
        return;
    }
    guint32 role = BOARD_MOS_ERROR;
    if (const gint32 ret = role_read(&role); ret != 0) {
        ASD_LOG_ERROR("Get Master Slave failed(%d)", ret);
        return;
    }
    if (role == BOARD_MASTER) {
        (void)dfl_foreach_object(kClassItem, ASD_SyncEEpromToSlaveForeach, nullptr, 0); // 0 always
        ASD_EEprom_MasterWriteCcdb();
    }
}

void ASD_EEprom_Sync_Task(void * /*Data*/) {
    if (BSP_IsSmmBoard() != 0) {
        return;
    }
    UINT8 cpldRamRegPre = 1;
    UINT8 cpldRamRegCurrent = 0;
    UINT8 equip_mode = 0;
    (void)BSP_IsCpldUpgrading(&cpldRamRegPre); // unreadable: as after an upgrade
    for (;;) {
        vos_task_delay(1000);
        (void)BSP_IsCpldUpgrading(&cpldRamRegCurrent); // unreadable: as it was
        if (cpldRamRegCurrent == 1) {
            cpldRamRegPre = 1;
            continue;
        }
        if (cpldRamRegPre == 1) {
            cpldRamRegPre = cpldRamRegCurrent;
            vos_task_delay(kUpgradeSettleMs);
        }
        sync_pass(&equip_mode);
    }
}

// ---- Receivers of pushed items ----

// clang-format off
static constexpr std::array<ASD_SYNC_EEPROM_INFO_S, 5> kReceivers = {{
    {.name = "ASD10",               .syncFun = ASD_SyncASD10},
    {.name = "ASD13",               .syncFun = ASD_SyncASD13},
    {.name = "ASD_PCIEORSAS",       .syncFun = ASD_SyncPcieOrSas},
    {.name = "ASD_IOCARD_PCIE4",    .syncFun = ASD_SyncIocardPcie4},
    {.name = "ASD_PRODUCT_CFGINFO", .syncFun = ASD_SyncProCfgInfo},
}};
// clang-format on

void asd_update_local_data(OBJ_HANDLE objHandle, const UINT8 *data, UINT32 len) {
    const gchar *name = dfl_get_object_name(objHandle);
    for (const ASD_SYNC_EEPROM_INFO_S &receiver : kReceivers) {
        if (g_strcmp0(receiver.name, name) == 0) {
            receiver.syncFun(data, len);
        }
    }
}

// The first N received bytes; zeros for those a shorter item does not have.
template <std::size_t N>
static std::array<guint8, N> first_bytes(const guint8 *data, guint32 len) {
    std::array<guint8, N> bytes{};
    std::copy_n(data, std::min<std::size_t>(N, len), bytes.begin());
    return bytes;
}

void ASD_SyncASD10(const guint8 *data, guint32 len) {
    static RateLimit limit(300000, 3);
    const auto mac = first_bytes<6>(data, len);
    const gint32 ret = BSP_SetWwn2CpldRam(data, len);
    if (ret != 0 && limit.admits()) {
        ASD_LOG_INFO("Proc master sync framemac(0x%02x0x%02x0x%02x0x%02x0x%02x0x%02x) failed(ret=%d)", mac[0], mac[1],
                     mac[2], mac[3], mac[4], mac[5], ret);
    }
    ASD_LOG_DEBUG("Proc master sync framemac=0x%02x0x%02x0x%02x0x%02x0x%02x0x%02x ret=%d", mac[0], mac[1], mac[2],
                  mac[3], mac[4], mac[5], ret);
}

void ASD_SyncASD13(const guint8 *data, guint32 len) {
    const auto model = first_bytes<16>(data, len);
    (void)BSP_SetFrameModelToCpldRam(data, len); // the next push tries again
    // Kept (log text): the line ends with -1 whatever happened.
    ASD_LOG_DEBUG(
        "Proc master sync product model=0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,"
        "0x%02x,0x%02x,0x%02x,0x%02x,0x%02x,0x%02x, ret=%d",
        model[0], model[1], model[2], model[3], model[4], model[5], model[6], model[7], model[8], model[9], model[10],
        model[11], model[12], model[13], model[14], model[15], -1);
}

void ASD_SyncPcieOrSas(const guint8 *data, guint32 len) {
    constexpr UINT32 kFlashParameter = 0x11;
    static std::atomic<guint8> localModel{0}; // last written to flash; requests may come on several threads
    const guint8 modelTmp = first_bytes<1>(data, len)[0];
    if (modelTmp != localModel && BSP_bPcieorsasModelValid(modelTmp) == 1) {
        const gint32 ret = BMC_FlashWriteCfgPara(kFlashParameter, 1, &modelTmp);
        if (ret == 0) {
            ASD_LOG_INFO("Refresh local pciesas model 0x%x ret=%d", modelTmp, ret);
            localModel = modelTmp;
        } else {
            ASD_LOG_ERROR("Write pciesas model to local flash faild,local default=0x%x", modelTmp);
        }
    }
    (void)BSP_SetPcieSasModelToCpldRam(modelTmp); // the next push tries again
    ASD_LOG_DEBUG("master sync pciesas model=0x%02x", modelTmp);
}

void ASD_SyncProCfgInfo(const guint8 *data, guint32 len) {
    const gint32 ret = BSP_SetProductCfgInfoToCpldRam(data, len);
    ASD_LOG_DEBUG("Slave recv sync product cfg info proc ret=%d", ret);
}

// ---- I/O card PCIe 4.0 record ----

static constexpr const gchar *kIocardItem = "ASD_IOCARD_PCIE4";
static constexpr guint32 kIocardSize = 8;
static constexpr guint32 kIocardAttempts = 3;
static constexpr guint32 kIocardPauseMs = 100;
static constexpr guint8 kIocardOn = 0xAA;
static constexpr guint8 kIocardOff = 0x55;
static constexpr guint8 kIocardUnset = 0xFE; // the record holds no setting
static constexpr UINT32 kFlashController = 0x13;
static constexpr UINT32 kFlashEeprom = 0x14; // local copy of the record's first byte
static constexpr UINT32 kCpldController = 0xCFC1;
static constexpr UINT32 kCpldEeprom = 0xCFC2;

void ASD_SyncIocardPcie4(const guint8 *data, guint32 len) {
    static RateLimit limit(3600000, 10);
    if (len != kIocardSize) {
        if (limit.admits()) {
            ASD_LOG_ERROR("The len(%d) of sync pcie speed limit data is invalid.", len);
        }
        return;
    }
    ASD_SetCtrlIocardPcie2Cpldram();
    auto record = first_bytes<kIocardSize>(data, len);
    ASD_SetEepIocardPcie2Cpldram(record.data(), kIocardSize, 0);
}

guint8 ASD_JudgeValidIocardPcie4(guint8 data) {
    return data == kIocardOn ? kIocardOn : kIocardOff;
}

static gint32 iocard_item(OBJ_HANDLE *item) {
    const gint32 ret = dfl_get_object_handle(kIocardItem, item);
    if (ret != 0) {
        ASD_LOG_ERROR("Call dfl_get_object_handle failed! result: %d.", ret);
    }
    return ret;
}

gint32 ASD_GetIocardPcie4FromEEP(guint8 *data, guint32 len) {
    if (data == nullptr || len != kIocardSize) {
        ASD_LOG_ERROR("Input pointer or the len(%d) is invalid.", len);
        return kStatusFailed;
    }
    OBJ_HANDLE item = 0;
    if (iocard_item(&item) != 0) {
        return kStatusFailed;
    }
    std::array<guint8, kIocardSize> record{};
    gint32 ret = kStatusFailed;
    for (guint32 attempt = 0; attempt < kIocardAttempts && ret != 0; ++attempt) {
        ret = asd_read_one_chip(item, record.data(), kIocardSize);
        if (ret != 0) {
            vos_task_delay(kIocardPauseMs);
        }
    }
    if (ret != 0) {
        ASD_LOG_ERROR("%s: Read eeprom failed! result: %d.", kIocardItem, ret);
        return kStatusFailed;
    }
    std::ranges::copy(record, data);
    (void)asd_update_property(item, data, kIocardSize); // logged there; the record was read
    ASD_LOG_INFO("Get iocard pcie4 data(0x%x 0x%x 0x%x 0x%x 0x%x 0x%x 0x%x 0x%x) from e2prom succeed.", data[0],
                 data[1], data[2], data[3], data[4], data[5], data[6], data[7]);
    return kStatusOk;
}

gint32 ASD_SetIocardPcie4ToEEP(const guint8 *data, guint32 len) {
    if (len != kIocardSize) {
        ASD_LOG_ERROR("The len of iocard pcie data is invalid(%d).", len);
        return kStatusFailed;
    }
    OBJ_HANDLE item = 0;
    if (iocard_item(&item) != 0) {
        return kStatusFailed;
    }
    gint32 ret = asd_write_equip(item, data, kIocardSize);
    for (guint32 attempt = 1; attempt < kIocardAttempts && ret != 0; ++attempt) {
        vos_task_delay(kIocardPauseMs);
        ret = asd_write_equip(item, data, kIocardSize);
    }
    if (ret != 0) {
        ASD_LOG_ERROR("Set iocard pcie4 data to e2prom failed(Call asd_write to equip failed,ret =%d).", ret);
        return kStatusFailed;
    }
    ASD_LOG_INFO("Set iocard pcie4 data(0x%x 0x%x 0x%x 0x%x 0x%x 0x%x 0x%x 0x%x) to e2prom succeed.", data[0], data[1],
                 data[2], data[3], data[4], data[5], data[6], data[7]);
    return kStatusOk;
}

void ASD_SetCtrlIocardPcie2Cpldram(void) {
    static std::atomic<guint8> count{0}; // consecutive failed reads of the controller's flash parameter, wrapping
    constexpr guint8 kFailuresToReset = 10;
    guint8 flash = 0;
    const bool flash_read = BMC_FlashReadCfgPara(kFlashController, 1, &flash) == 0;
    const guint8 failures = flash_read ? guint8{0} : static_cast<guint8>(count + 1);
    count = failures;
    if (failures == kFailuresToReset) {
        constexpr guint8 kBlank = 0xFF;
        (void)BMC_FlashWriteCfgPara(kFlashController, 1, &kBlank); // the reads go on failing and are counted
    }
    guint8 cpld = 0;
    (void)BSP_GetCpldRam(kCpldController, &cpld); // unreadable: 0, which is no setting
    if (flash_read && flash == cpld) {
        return;
    }
    (void)BSP_SetCpldRam(kCpldController,
                         flash_read && flash == kIocardOn ? kIocardOn
                                                          : kIocardOff); // the next start or push tries again
}

// The setting for a record that holds none: from flash, and on the master the record is completed.
static guint8 iocard_unset_setting(guint8 *eepData, guint32 dataLen, guint8 isMaster, bool flash_read, guint8 flash) {
    if (!flash_read) {
        return kIocardOff;
    }
    const guint8 setting = ASD_JudgeValidIocardPcie4(flash);
    if (isMaster != 0 && dataLen == kIocardSize) {
        eepData[0] = setting;
        (void)ASD_SetIocardPcie4ToEEP(eepData, kIocardSize); // logged there; the setting holds in the CPLD
    }
    return setting;
}

void ASD_SetEepIocardPcie2Cpldram(guint8 *eepData, guint32 dataLen, guint8 isMaster) {
    guint8 flash = 0;
    const bool flash_read = BMC_FlashReadCfgPara(kFlashEeprom, 1, &flash) == 0;
    if (eepData[0] == kIocardUnset) {
        const guint8 setting = iocard_unset_setting(eepData, dataLen, isMaster, flash_read, flash);
        (void)BSP_SetCpldRam(kCpldEeprom, setting); // the next push or start tries again
        return;
    }
    if (!flash_read || flash != eepData[0]) {
        (void)BMC_FlashWriteCfgPara(kFlashEeprom, 1,
                                    eepData); // Kept (answer): the raw byte; the next start compares it again
    }
    (void)BSP_SetCpldRam(kCpldEeprom, ASD_JudgeValidIocardPcie4(eepData[0])); // as above
}

// Kept (answer): after a failed read the record is zeros, so the CPLD byte becomes 0x55 and flash follows to 0.
void ASD_InitIocardPcie4(void) {
    std::array<guint8, kIocardSize> record{};
    if (ASD_GetIocardPcie4FromEEP(record.data(), kIocardSize) != 0) {
        (void)BSP_SetCpldRam(kCpldEeprom, kIocardOff); // written again below
    }
    ASD_SetCtrlIocardPcie2Cpldram();
    ASD_SetEepIocardPcie2Cpldram(record.data(), kIocardSize, 1);
}
