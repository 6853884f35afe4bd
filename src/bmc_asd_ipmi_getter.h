// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// IPMI commands that read. Each handler answers its request once and returns the status of that answer, or -1 when the
// message is null (nothing is sent). The bay configuration file's also return -1 for a request without data, which they
// have answered with 0xFF. user_data: the item's name. They run on the stack's threads, many at once.

#include "bmc_asd_records.h"
#include "ipmi_stack.h"
#include "platform_types.h"

extern "C" {

// ---- Records: 0xCC, 0xCE; where the bytes come from is in their rows ----
#define ASD_DECLARE_READ(item, get, set) gint32 get(const IPMI_MSG_S *req_msg, gconstpointer user_data);
ASD_RECORD_HANDLERS(ASD_DECLARE_READ)
#undef ASD_DECLARE_READ
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
