// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// IPMI commands that read. Each handler answers its request once and returns the status of that answer, or -1 when the
// message is null (nothing is sent). user_data: the item's name. They run on the stack's threads, many at once.

#include "ipmi_stack.h"
#include "platform_types.h"

extern "C" {

// ---- Identity records: from Value when it is loaded, else from the chip; 0xCC, 0xCE ----
gint32 ipmi_cmd_get_mac(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_get_sn(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_get_brand(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_get_vendor(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_get_model(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_get_oem_model(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_get_overseas(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 Ipmi_cmdGetProductFrameCfg(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ASD_IPMI_GetIocardPCIE4(const IPMI_MSG_S *req_msg, gconstpointer user_data);

// ---- Configuration records: from Value on the master, zeros and 0x00 on any other board; 0xCC, 0xCE ----
gint32 ipmi_cmd_get_spec(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_get_frameinfo(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_get_logo(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_get_powerconfig(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_get_baycfg(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ipmi_cmd_get_e2pwp_test(const IPMI_MSG_S *req_msg, gconstpointer user_data); // reads the chip DeviceId names

// ---- Electronic keys, frame by frame; 0xC7, 0xC9, 0xCC, 0xCE ----
gint32 ipmi_cmd_get_ekey(const IPMI_MSG_S *req_msg, gconstpointer user_data);    // from Value
gint32 ipmi_cmd_get_ekey_ep(const IPMI_MSG_S *req_msg, gconstpointer user_data); // from the chip, read with frame 1

// ---- Bay configuration file, on the master; 0xC1, 0xC7, 0xCE, 0xFF ----
gint32 ASD_IpmiGetBayconfig(const IPMI_MSG_S *req_msg, gconstpointer user_data);
gint32 ASD_IpmiGetBayconfigFileLen(const IPMI_MSG_S *req_msg, gconstpointer user_data);

// ---- Others ----
gint32 ipmi_cmd_get_ccdb(const IPMI_MSG_S *req_msg, gconstpointer user_data);  // from Value; a blank block as zeros
gint32 IpmiCmdGetNodeView(const IPMI_MSG_S *req_msg, gconstpointer user_data); // always from the chips
gint32 ipmi_cmd_get_backboard_pcieorsas(const IPMI_MSG_S *req_msg, gconstpointer user_data); // also 0xD6, 0xE0
gint32 Ipmi_cmdGetProductCfgInfo(const IPMI_MSG_S *req_msg, gconstpointer user_data);

} // extern "C"
