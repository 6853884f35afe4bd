// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// IPMI commands that write, the module's locks, and the key buffer.
// Each handler answers its request once and returns the status of that answer, or -1 when the message is null (nothing
// is sent). user_data: the item's name. They run on the stack's threads, many at once.

#include "bmc_asd.h"
#include "bmc_asd_holders.h"
#include "ipmi_stack.h"

// Staging area of key writes and cache of key reads from the chip, shared by all four keys. Written with
// g_ekey_buffer_lock held; frames 2 to 5 of a chip read take no lock, hence the atomic bytes.
extern SharedBytes<kEkeySize> g_ekey_buffer;

extern "C" {

// ---- Locks: five mutual-exclusion semaphores, created at start and never deleted ----
// The only nesting is a buffer or data lock, then the EEPROM lock.

extern gulong g_ekey_buffer_lock; // g_ekey_buffer
extern gulong g_BayconfigBufLock; // the bay configuration buffer
extern gulong g_eeprom_lock;      // chip access of the record write and of the E2PWP test read
extern gulong g_ccdbSetEnLock;    // the pending customer block and its request
extern gulong g_setNodeviewLock;  // the last node view and its flag

gint32 asd_ekey_lock_init(void); // creates all five: 0, or -1 with none left
void asd_delete_sem(void);       // deletes those that were created
gint32 asd_eeprom_lock(void);    // waits at most 2000 ms: 0 or -1
void asd_eeprom_unlock(void);

// ---- Fixed-size records; 0xCC no data, 0xCE not written ----
// Kept: each stores its fixed number of bytes, whatever the request's length; a short request stores the zeros behind
// it.

gint32 ipmi_cmd_set_mac(const IPMI_MSG_S *req_msg, gconstpointer user_data); // also to the CPLD: 0xFF when that fails
gint32 ipmi_cmd_set_sn(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_set_brand(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_set_vendor(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_set_model(const IPMI_MSG_S *req_msg, gconstpointer user_data); // also to the CPLD
gint32 ipmi_cmd_set_oem_model(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_set_spec(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_set_frameinfo(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_set_logo(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_set_powerconfig(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_set_e2pwp_test(const IPMI_MSG_S *req_msg, gconstpointer user_data); // to the chip DeviceId names
gint32 ipmi_cmd_set_overseas(const IPMI_MSG_S *req_msg, gconstpointer user_data);   // 0xFF when not written
gint32 ipmi_cmd_set_baycfg(const IPMI_MSG_S *req_msg, gconstpointer user_data);     // 0xCA when not written

// ---- Frame by frame: the last frame commits what the buffer holds ----

gint32 ipmi_cmd_set_ekey(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_set_power_ekey(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ASD_IpmiSetBayconfig(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ASD_IpmiClearBayconfig(const IPMI_MSG_S *req_msg, gconstpointer user_data);

// ---- Board records ----

gint32 ipmi_cmd_set_backboard_pcieorsas(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ASD_IPMI_SetIocardPCIE4(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 Ipmi_cmdSetProductFrameCfg(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 Ipmi_cmdSetProductCfgInfo(const IPMI_MSG_S *req_msg, gconstpointer user_data);

// ---- The peer's side of the master's push ----

gint32 ASD_GetEEPromData(const IPMI_MSG_S *req_msg, gconstpointer user_data);

// ---- Customer block: a set changes Value and a pending copy; the chips follow at once, at standby or daily ----

gint32 ipmi_cmd_set_ccdb(const IPMI_MSG_S *req_msg, gconstpointer user_data);

// ---- Node view: written at once, when it differs from the last one this controller wrote ----

gint32 IpmiCmdSetNodeView(const IPMI_MSG_S *req_msg, gconstpointer user_data);

} // extern "C"
