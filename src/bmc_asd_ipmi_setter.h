// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// IPMI commands that write.
// Each handler answers its request once and returns the status of that answer, or -1 when the message is null (nothing
// is sent). The bay configuration file's also return -1 for a request without data, which they have answered with 0xFF.
// user_data: the item's name. They run on the stack's threads, many at once.

#include "bmc_asd_records.h"
#include "ipmi_stack.h"
#include "platform_types.h"

extern "C" {

// ---- Records; 0xCC no data, 0xCE or the row's code not written ----

#define ASD_DECLARE_WRITE(item, get, set) gint32 set(const IPMI_MSG_S *req_msg, gconstpointer user_data);
ASD_RECORD_HANDLERS(ASD_DECLARE_WRITE)
#undef ASD_DECLARE_WRITE
gint32 ipmi_cmd_set_e2pwp_test(const IPMI_MSG_S *req_msg, gconstpointer user_data); // to the chip DeviceId names

// ---- Frame by frame: the last frame commits what the buffer holds ----

gint32 ipmi_cmd_set_ekey(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_set_power_ekey(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ASD_IpmiSetBayconfig(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ASD_IpmiClearBayconfig(const IPMI_MSG_S *req_msg, gconstpointer user_data);

// ---- Board records ----

gint32 ipmi_cmd_set_backboard_pcieorsas(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 Ipmi_cmdSetProductCfgInfo(const IPMI_MSG_S *req_msg, gconstpointer user_data);

// ---- The peer's side of the master's push ----

gint32 ASD_GetEEPromData(const IPMI_MSG_S *req_msg, gconstpointer user_data);

// ---- Customer block: a set changes Value and a pending copy; the chips follow at once, at standby or daily ----

gint32 ipmi_cmd_set_ccdb(const IPMI_MSG_S *req_msg, gconstpointer user_data);

// ---- Node view: written at once, when it differs from the last one this controller wrote ----

gint32 IpmiCmdSetNodeView(const IPMI_MSG_S *req_msg, gconstpointer user_data);

} // extern "C"
