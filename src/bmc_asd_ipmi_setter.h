// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// IPMI commands that write.
// Each handler answers its request once and returns the status of that answer, or -1 when the message is null (nothing
// is sent). user_data: the item's name. They run on the stack's threads, many at once.

#include "ipmi_stack.h"
#include "platform_types.h"

extern "C" {

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
