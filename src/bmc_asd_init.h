// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Start-up, the four background tasks, the push to the peers and the I/O card record. Start-up runs on the main thread,
// the receivers of pushed items on request threads; where nothing else is said a function may be called on any thread.

#include "bmc_asd.h"

// One entry of the routine that reloads items while the board is master.
struct ASD_MASTER_ROUTINEINFO {
    const gchar *asdName;
    gulong period;   // ms
    gulong preTicks; // tick of the last run
};

// A receiver of pushed items, by the item's name.
struct ASD_SYNC_EEPROM_INFO_S {
    const gchar *name;
    void (*syncFun)(const guint8 *data, guint32 len);
};

// ---- Customer block: what is pending ----
// The pending block is unknown until it has been read or set, and again after a copy into it failed. Both with the lock
// held.

[[nodiscard]] bool ccdb_is_pending(const guint8 *block);     // 128 bytes; an unknown block equals nothing
[[nodiscard]] gint32 ccdb_make_pending(const guint8 *block); // 128 bytes; 0, or the copy's failure: then it is unknown

extern "C" {

// ---- Start ----

[[nodiscard]] gint32 asd_init(void);  // creates the locks and binds every item's number; 0 or -1
[[nodiscard]] gint32 asd_start(void); // creates the four tasks; 0 or the status of the creation that failed
[[nodiscard]] gint32 ASD_SyncSourceObjectForeach(OBJ_HANDLE object_handle,
                                                 gpointer user_data); // binds one item's number; 0

// ---- Tasks; they never return, but for the last on a management module ----

void asd_master_check_task(void *data);     // every 500 ms: the role and what its change requires
void asd_eeprom_check_task(void *data);     // hourly: compares and repairs the identity records
void ASD_ROUTINE_SYS_CCDB_Task(void *data); // daily: writes the customer block
void ASD_EEprom_Sync_Task(void *Data);      // every 1000 ms: pushes items to the peers

void GetInfofromRam(void);             // the board records and the pending customer block, on becoming master
void asd_master_eepromroutine(void);   // reloads the routine items whose period has passed
void ASD_EEprom_MasterWriteCcdb(void); // requested and standby writes of the customer block

// ---- Customer block: the pending copy, its request and its lock ----

[[nodiscard]] gint32 update_ccdb_data_of_ram(gconstpointer Data); // publishes 128 bytes as Value
// Writes the pending block; with the lock held. An unknown one is read from Value first, and not written when that
// fails.
void AsdWriteCcdbDataToEeprom(void);
// Fills the pending block from Value; with the lock held. 0; or -1 with the block as it was, also while the item is not
// online.
[[nodiscard]] gint32 AsdReadCcdbDataFromRam(void);

[[nodiscard]] gulong AsdGetGCcdbSetEnLock(void);
void AsdSetGCcdbSetEnLock(gulong lock);         // for other modules; start creates and sets it
[[nodiscard]] guint8 *AsdGetGCcdbSetData(void); // 128 bytes; with the lock held
void AsdSetGCcdbSetData(const guint8 *data);    // 128 bytes; with the lock held
[[nodiscard]] guint8 AsdGetGCcdbSetEn(void);    // 1: an immediate write waits for the master check
void AsdSetGCcdbSetEn(guint8 value);            // with the lock held

// ---- Node view: the last one written, its flag and its lock ----

[[nodiscard]] gint32 AsdSetNodevie2E2prom(OBJ_HANDLE objHandle, const guint8 *srcData, gint32 lenth); // 0 or -1
[[nodiscard]] gint32 AsdSetGNodeviewLockMutex(void); // waits at most 10000 ms: 0 when obtained
void AsdSetGNodeviewunLockMutex(void);               // on the thread that took it
// 0: the next set writes whatever its data, also after a set that is under way meanwhile; takes no lock.
void AsdSetNodeviewFlag(guint8 value);

// ---- Push ----

[[nodiscard]] gint32 ASD_SyncEEpromToSlaveForeach(OBJ_HANDLE object_handle, gpointer callback_data); // 0 always
// One item to every peer; a Len above 128 is logged, and nothing is sent.
void ASD_EEprom_Sync(const UINT8 *Data, UINT8 NumId, UINT32 Len);

// Hands received bytes to the receiver of the item, if it has one. The receivers take what the item is mirrored into,
// CPLD RAM or flash, along; bytes that a shorter item does not have are zeros. What fails comes again with the next
// push.
void asd_update_local_data(OBJ_HANDLE objHandle, const UINT8 *data, UINT32 len);
void ASD_SyncASD10(const guint8 *data, guint32 len);
void ASD_SyncASD13(const guint8 *data, guint32 len);
void ASD_SyncPcieOrSas(const guint8 *data, guint32 len);
void ASD_SyncIocardPcie4(const guint8 *data, guint32 len);
void ASD_SyncProCfgInfo(const guint8 *data, guint32 len);

// ---- I/O card PCIe 4.0 record: 8 bytes, the first a setting code ----

[[nodiscard]] guint8 ASD_JudgeValidIocardPcie4(guint8 data); // 0xAA for 0xAA, 0x55 for everything else
// Three attempts each; len must be 8. 0, or -1 with *data untouched.
[[nodiscard]] gint32 ASD_GetIocardPcie4FromEEP(guint8 *data, guint32 len);
[[nodiscard]] gint32 ASD_SetIocardPcie4ToEEP(const guint8 *data, guint32 len);
void ASD_SetCtrlIocardPcie2Cpldram(void); // the controller's setting, from flash to CPLD RAM
// The EEPROM's setting to CPLD RAM and flash; isMaster: a record without a setting may be completed from flash and
// written.
void ASD_SetEepIocardPcie2Cpldram(guint8 *eepData, guint32 dataLen, guint8 isMaster);
void ASD_InitIocardPcie4(void); // reads the record and brings both settings into CPLD RAM, on becoming master

} // extern "C"
