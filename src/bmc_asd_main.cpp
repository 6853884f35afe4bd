// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_main.h"

#include "bmc_asd_common.h"
#include "bmc_asd_init.h"
#include "bmc_asd_ipmi_getter.h"
#include "bmc_asd_ipmi_setter.h"
#include "bmc_asd_log.h"
#include "board.h"
#include "module_frame.h"
#include "object_frame.h"

#include <algorithm>
#include <string_view>

// ---- IPMI commands ----

namespace {

struct OemCommand {
    guint8 cmd;
    const gchar *filter;
    guint8 privilege; // 0 anyone, 4 administrator
    guint8 min;       // bytes of request data
    guint8 max;
    IPMI_CMD_FUNC handler;
    const gchar *item; // null: the request names it
};

} // namespace

static constexpr guint8 kOemNetfn = 0x32;

static constexpr IPMI_CMD_S oem(const OemCommand &command) {
    return {.netfn = kOemNetfn,
            .cmd = command.cmd,
            .filter = command.filter,
            .privilege = command.privilege,
            .role_func = "",
            .max_length = command.max,
            .min_length = command.min,
            .ipmi_handler = command.handler,
            .user_data = command.item};
}

// Kept, though they look wrong: key frames may be as short as one byte (the handlers read a whole frame, zeros past the
// request), file reads check their length themselves, and writes of fixed records take a bare head.
// clang-format off
constexpr std::array<IPMI_CMD_S, kIpmiCommandCount> _ipmi_cmd = {{
    oem({.cmd = 0x12, .filter = "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=1bh", .privilege = 0, .min = 9,   .max = 9,   .handler = ipmi_cmd_get_ekey,                .item = "ASD5"}),
    oem({.cmd = 0x12, .filter = "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=1ch", .privilege = 0, .min = 9,   .max = 9,   .handler = ipmi_cmd_get_ekey_ep,             .item = "ASD5"}),
    oem({.cmd = 0x13, .filter = "data[0]=00h,data[1]=00h,data[2]=80h",             .privilege = 0, .min = 1,   .max = 229, .handler = ipmi_cmd_set_ekey,                .item = "ASD5"}),
    oem({.cmd = 0x12, .filter = "data[0]=00h,data[1]=80h,data[2]=00h,data[4]=1bh", .privilege = 0, .min = 9,   .max = 9,   .handler = ipmi_cmd_get_ekey,                .item = "ASD7"}),
    oem({.cmd = 0x12, .filter = "data[0]=00h,data[1]=80h,data[2]=00h,data[4]=1ch", .privilege = 0, .min = 9,   .max = 9,   .handler = ipmi_cmd_get_ekey_ep,             .item = "ASD7"}),
    oem({.cmd = 0x13, .filter = "data[0]=00h,data[1]=80h,data[2]=00h",             .privilege = 0, .min = 1,   .max = 229, .handler = ipmi_cmd_set_ekey,                .item = "ASD7"}),
    oem({.cmd = 0x12, .filter = "data[0]=00h,data[1]=10h,data[2]=00h,data[4]=1ch", .privilege = 0, .min = 9,   .max = 9,   .handler = ipmi_cmd_get_ekey_ep,             .item = "ASD1000"}),
    oem({.cmd = 0x13, .filter = "data[0]=00h,data[1]=10h,data[2]=00h",             .privilege = 0, .min = 1,   .max = 229, .handler = ipmi_cmd_set_power_ekey,          .item = "ASD1000"}),
    oem({.cmd = 0x12, .filter = "data[0]=01h,data[1]=10h,data[2]=00h,data[4]=1ch", .privilege = 0, .min = 9,   .max = 9,   .handler = ipmi_cmd_get_ekey_ep,             .item = "ASD1001"}),
    oem({.cmd = 0x13, .filter = "data[0]=01h,data[1]=10h,data[2]=00h",             .privilege = 0, .min = 1,   .max = 229, .handler = ipmi_cmd_set_power_ekey,          .item = "ASD1001"}),
    oem({.cmd = 0x16, .filter = "data[1]=00h,data[2]=80h,data[4]=10h",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_mac,                 .item = "ASD10"}),
    oem({.cmd = 0x17, .filter = "data[1]=00h,data[2]=80h,data[4]=10h",             .privilege = 0, .min = 11,  .max = 11,  .handler = ipmi_cmd_set_mac,                 .item = "ASD10"}),
    oem({.cmd = 0x16, .filter = "data[1]=00h,data[2]=80h,data[4]=11h",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_sn,                  .item = "ASD11"}),
    oem({.cmd = 0x17, .filter = "data[1]=00h,data[2]=80h,data[4]=11h",             .privilege = 0, .min = 25,  .max = 25,  .handler = ipmi_cmd_set_sn,                  .item = "ASD11"}),
    oem({.cmd = 0x16, .filter = "data[1]=00h,data[2]=80h,data[4]=15h",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_logo,                .item = "ASD21"}),
    oem({.cmd = 0x17, .filter = "data[1]=00h,data[2]=80h,data[4]=15h",             .privilege = 0, .min = 13,  .max = 13,  .handler = ipmi_cmd_set_logo,                .item = "ASD21"}),
    oem({.cmd = 0x16, .filter = "data[1]=00h,data[2]=80h,data[4]=14h",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_brand,               .item = "ASD14"}),
    oem({.cmd = 0x17, .filter = "data[1]=00h,data[2]=80h,data[4]=14h",             .privilege = 0, .min = 5,   .max = 37,  .handler = ipmi_cmd_set_brand,               .item = "ASD14"}),
    oem({.cmd = 0x16, .filter = "data[1]=00h,data[2]=80h,data[4]=13h",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_vendor,              .item = "ASD15"}),
    oem({.cmd = 0x17, .filter = "data[1]=00h,data[2]=80h,data[4]=13h",             .privilege = 0, .min = 5,   .max = 37,  .handler = ipmi_cmd_set_vendor,              .item = "ASD15"}),
    oem({.cmd = 0x16, .filter = "data[1]=00h,data[2]=80h,data[4]=19h",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_model,               .item = "ASD13"}),
    oem({.cmd = 0x17, .filter = "data[1]=00h,data[2]=80h,data[4]=19h",             .privilege = 0, .min = 5,   .max = 21,  .handler = ipmi_cmd_set_model,               .item = "ASD13"}),
    oem({.cmd = 0x16, .filter = "data[1]=00h,data[2]=80h,data[4]=1ah",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_oem_model,           .item = "ASD20"}),
    oem({.cmd = 0x17, .filter = "data[1]=00h,data[2]=80h,data[4]=1ah",             .privilege = 0, .min = 5,   .max = 21,  .handler = ipmi_cmd_set_oem_model,           .item = "ASD20"}),
    oem({.cmd = 0x16, .filter = "data[1]=00h,data[2]=80h,data[4]=1eh",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_spec,                .item = "ASD26"}),
    oem({.cmd = 0x17, .filter = "data[1]=00h,data[2]=80h,data[4]=1eh",             .privilege = 0, .min = 5,   .max = 21,  .handler = ipmi_cmd_set_spec,                .item = "ASD26"}),
    oem({.cmd = 0x16, .filter = "data[1]=00h,data[2]=80h,data[4]=1fh",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_frameinfo,           .item = "ASD27"}),
    oem({.cmd = 0x17, .filter = "data[1]=00h,data[2]=80h,data[4]=1fh",             .privilege = 0, .min = 5,   .max = 37,  .handler = ipmi_cmd_set_frameinfo,           .item = "ASD27"}),
    oem({.cmd = 0xbb, .filter = "data[1]=00h,data[2]=80h,data[4]=21h",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_ccdb,                .item = "ASD_CCDB"}),
    oem({.cmd = 0xbc, .filter = "data[1]=00h,data[2]=80h,data[4]=2ch",             .privilege = 0, .min = 133, .max = 133, .handler = ipmi_cmd_set_ccdb,                .item = "ASD_CCDB"}),
    oem({.cmd = 0xbc, .filter = "data[1]=00h,data[2]=80h,data[4]=32h",             .privilege = 0, .min = 133, .max = 133, .handler = ipmi_cmd_set_ccdb,                .item = "ASD_CCDB"}),
    oem({.cmd = 0xb4, .filter = "data[1]=00h,data[2]=80h,data[4]=56h",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_powerconfig,         .item = "ASD_PowerConfig"}),
    oem({.cmd = 0xb5, .filter = "data[1]=00h,data[2]=80h,data[4]=56h",             .privilege = 0, .min = 5,   .max = 255, .handler = ipmi_cmd_set_powerconfig,         .item = "ASD_PowerConfig"}),
    oem({.cmd = 0x92, .filter = "data[0]=00h,data[1]=00h,data[2]=80h",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_baycfg,              .item = "ASD24"}),
    oem({.cmd = 0x93, .filter = "data[0]=00h,data[1]=00h,data[2]=80h",             .privilege = 0, .min = 5,   .max = 229, .handler = ipmi_cmd_set_baycfg,              .item = "ASD24"}),
    oem({.cmd = 0x91, .filter = "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=70h", .privilege = 0, .min = 1,   .max = 32,  .handler = ASD_IpmiGetBayconfig,             .item = "ASD25"}),
    oem({.cmd = 0x94, .filter = "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=70h", .privilege = 0, .min = 5,   .max = 255, .handler = ASD_IpmiSetBayconfig,             .item = "ASD25"}),
    oem({.cmd = 0x91, .filter = "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=71h", .privilege = 0, .min = 1,   .max = 32,  .handler = ASD_IpmiGetBayconfigFileLen,      .item = "ASD25"}),
    oem({.cmd = 0x94, .filter = "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=72h", .privilege = 0, .min = 5,   .max = 255, .handler = ASD_IpmiClearBayconfig,           .item = "ASD25"}),
    oem({.cmd = 0xb4, .filter = "data[1]=00h,data[2]=80h,data[4]=62h",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_e2pwp_test,          .item = "ASD_E2PWP"}),
    oem({.cmd = 0xb5, .filter = "data[1]=00h,data[2]=80h,data[4]=62h",             .privilege = 0, .min = 5,   .max = 255, .handler = ipmi_cmd_set_e2pwp_test,          .item = "ASD_E2PWP"}),
    oem({.cmd = 0xf9, .filter = "data[1]=02h,data[2]=00h,data[4]=2ah",             .privilege = 4, .min = 0,   .max = 255, .handler = ASD_GetEEPromData,                .item = nullptr}),
    oem({.cmd = 0xbc, .filter = "data[1]=00h,data[2]=80h,data[4]=19h",             .privilege = 4, .min = 6,   .max = 6,   .handler = ipmi_cmd_set_backboard_pcieorsas, .item = "ASD_PCIEORSAS"}),
    oem({.cmd = 0xbb, .filter = "data[1]=00h,data[2]=80h,data[4]=1ah",             .privilege = 4, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_backboard_pcieorsas, .item = "ASD_PCIEORSAS"}),
    oem({.cmd = 0xbc, .filter = "data[1]=00h,data[2]=80h,data[4]=1eh",             .privilege = 4, .min = 13,  .max = 13,  .handler = ASD_IPMI_SetIocardPCIE4,          .item = "ASD_IOCARD_PCIE4"}),
    oem({.cmd = 0xbb, .filter = "data[1]=00h,data[2]=80h,data[4]=25h",             .privilege = 4, .min = 5,   .max = 5,   .handler = ASD_IPMI_GetIocardPCIE4,          .item = "ASD_IOCARD_PCIE4"}),
    oem({.cmd = 0xbc, .filter = "data[1]=00h,data[2]=80h,data[4]=36h",             .privilege = 0, .min = 21,  .max = 21,  .handler = ipmi_cmd_set_overseas,            .item = "ASD_OVERSEAS"}),
    oem({.cmd = 0xbb, .filter = "data[1]=00h,data[2]=80h,data[4]=36h",             .privilege = 0, .min = 5,   .max = 5,   .handler = ipmi_cmd_get_overseas,            .item = "ASD_OVERSEAS"}),
    oem({.cmd = 0xbb, .filter = "data[1]=00h,data[2]=80h,data[4]=44h",             .privilege = 0, .min = 5,   .max = 5,   .handler = IpmiCmdGetNodeView,               .item = "ASD_NODE_VIEW"}),
    oem({.cmd = 0xbc, .filter = "data[1]=00h,data[2]=80h,data[4]=43h",             .privilege = 0, .min = 69,  .max = 69,  .handler = IpmiCmdSetNodeView,               .item = "ASD_NODE_VIEW"}),
    oem({.cmd = 0xbb, .filter = "data[1]=00h,data[2]=80h,data[4]=5ah",             .privilege = 0, .min = 5,   .max = 5,   .handler = Ipmi_cmdGetProductFrameCfg,       .item = "ASD_PRODUCT_FRAMECFG"}),
    oem({.cmd = 0xbc, .filter = "data[1]=00h,data[2]=80h,data[4]=4ch",             .privilege = 0, .min = 21,  .max = 21,  .handler = Ipmi_cmdSetProductFrameCfg,       .item = "ASD_PRODUCT_FRAMECFG"}),
    oem({.cmd = 0xbb, .filter = "data[1]=00h,data[2]=80h,data[4]=5ch",             .privilege = 0, .min = 5,   .max = 5,   .handler = Ipmi_cmdGetProductCfgInfo,        .item = "ASD_PRODUCT_CFGINFO"}),
    oem({.cmd = 0xbc, .filter = "data[1]=00h,data[2]=80h,data[4]=4fh",             .privilege = 0, .min = 69,  .max = 69,  .handler = Ipmi_cmdSetProductCfgInfo,        .item = "ASD_PRODUCT_CFGINFO"}),
}};
// clang-format on

// No two rows may answer the same request.
static_assert([] {
    for (std::size_t i = 0; i < _ipmi_cmd.size(); ++i) {
        if (_ipmi_cmd[i].min_length > _ipmi_cmd[i].max_length) {
            return false;
        }
        for (std::size_t j = i + 1; j < _ipmi_cmd.size(); ++j) {
            if (_ipmi_cmd[i].cmd == _ipmi_cmd[j].cmd &&
                std::string_view(_ipmi_cmd[i].filter) == std::string_view(_ipmi_cmd[j].filter)) {
                return false;
            }
        }
    }
    return true;
}());

// ---- Registration data ----

static const gchar *_app_module_name = "asd";
static const IPMI_CMD_S *_ipmi_cmd_table;
static guint32 _ipmi_cmd_table_size;
static const DEBUG_CMD_S *_debug_cmd_table; // the module has no debug commands
static guint32 _debug_cmd_table_size;
static guint32 _module_start_delay;

// Before main, so that main sees a table and a size and nothing of what is in them.
__attribute__((constructor)) static void _init_ipmi_cmd_table() {
    _ipmi_cmd_table = _ipmi_cmd.data();
    _ipmi_cmd_table_size = static_cast<guint32>(_ipmi_cmd.size());
}

namespace {

struct ClassMethod {
    const gchar *class_name;
    const gchar *method_name;
    DFL_METHOD_FUNC handler;
};

} // namespace

static constexpr std::array<const gchar *, 3> kClasses = {kClassItem, kClassChip, "Config9555"};
static constexpr const gchar *kClassAfterMethods = "CommPrevChip";

// clang-format off
static constexpr std::array<ClassMethod, 7> kMethods = {{
    {.class_name = kClassItem, .method_name = "WriteAtomStorageData",   .handler = asd_write_data},
    {.class_name = kClassItem, .method_name = "UpdateMemProperty",      .handler = Asd_UpdateMemProperty},
    {.class_name = kClassItem, .method_name = "ReadAtomStorageData",    .handler = asd_read_data},
    {.class_name = kClassItem, .method_name = "ClearMemData",           .handler = asd_clear_memdata},
    {.class_name = kClassChip, .method_name = "SetAsdDevErrCode",       .handler = Asd_SetErrCode},
    {.class_name = kClassItem, .method_name = "ReadAsdMemData",         .handler = Asd_GetAsdMemData},
    {.class_name = kClassItem, .method_name = "EqWriteAtomStorageData", .handler = asd_eqwrite_data},
}};
// clang-format on

// ---- Registration; the texts end in CR LF ----

gint32 asd_add_obj_handle(const gchar * /*class_name*/, OBJ_HANDLE /*object_handle*/) {
    return 0;
}

gint32 asd_del_obj_handle(const gchar * /*class_name*/, OBJ_HANDLE /*object_handle*/) {
    return 0;
}

static gint32 declare_class(const gchar *class_name) {
    const gint32 ret = static_declaration_class(class_name);
    if (ret != 0) {
        ASD_LOG_ERROR("declaration class %s failed.errcode:%d\r\n", class_name, ret);
    }
    return ret;
}

static gint32 declare_classes_and_methods() {
    for (const gchar *class_name : kClasses) {
        if (const gint32 ret = declare_class(class_name); ret != 0) {
            return ret;
        }
    }
    for (const ClassMethod &method : kMethods) {
        const gint32 ret = static_declaration_class_method(method.class_name, method.method_name, method.handler);
        if (ret != 0) {
            ASD_LOG_ERROR("declaration method %s.%s failed.errcode:%d\r\n", method.class_name, method.method_name, ret);
            return ret;
        }
    }
    return declare_class(kClassAfterMethods);
}

static gint32 register_handlers() {
    if (const gint32 ret = static_register_reboot_handler(BSP_RebootRequestProcess); ret != 0) {
        ASD_LOG_ERROR("register reboot handler failed.errcode:%d\r\n", ret);
        return ret;
    }
    if (const gint32 ret = dfl_add_object_handler(asd_add_obj_handle); ret != 0) {
        ASD_LOG_ERROR("register add object handler failed.errcode:%d\r\n", ret);
        return ret;
    }
    const gint32 ret = dfl_del_object_handler(asd_del_obj_handle);
    if (ret != 0) {
        ASD_LOG_ERROR("register del object handler failed.errcode:%d\r\n", ret);
    }
    return ret;
}

gint32 _app_init(void) {
    if (const gint32 ret = static_register_module(_app_module_name); ret != 0) {
        ASD_LOG_ERROR("register module %s failed.errcode:%d\r\n", _app_module_name, ret);
        return ret;
    }
    if (const gint32 ret = init_md_so(); ret != 0) {
        ASD_LOG_ERROR("init_md_so failed.errcode:%d\r\n", ret);
        return ret;
    }
    _module_start_delay = 0;
    if (const gint32 ret = declare_classes_and_methods(); ret != 0) {
        return ret;
    }
    return register_handlers();
}

static gint32 register_commands() {
    if (_ipmi_cmd_table_size != 0) {
        if (const gint32 ret = static_implementation_ipmicmd(_ipmi_cmd_table_size, _ipmi_cmd_table); ret != 0) {
            ASD_LOG_ERROR("register ipmi command failed.errcode:%d\r\n", ret);
            return ret;
        }
    }
    if (_debug_cmd_table_size != 0) {
        if (const gint32 ret = static_register_debug_cmd(_debug_cmd_table_size, _debug_cmd_table); ret != 0) {
            ASD_LOG_ERROR("register debug cmd failed.errcode:%d\r\n", ret);
            return ret;
        }
    }
    const gint32 ret = static_complete_module_register();
    if (ret != 0) {
        ASD_LOG_ERROR("get object/class/route info failed.errcode:%d\r\n", ret);
    }
    return ret;
}

int main(int /*argc*/, char * /*argv*/[]) {
    if (const gint32 ret = _app_init(); ret != 0) {
        return ret;
    }
    if (const gint32 ret = register_commands(); ret != 0) {
        return ret;
    }
    if (const gint32 ret = static_module_init(-1, asd_init); ret != 0) {
        ASD_LOG_ERROR("module %s init failed.errcode:%d\r\n", _app_module_name, ret);
        return ret;
    }
    if (const gint32 ret = static_module_start(asd_start, _module_start_delay); ret != 0) {
        ASD_LOG_ERROR("module %s start failed.errcode:%d\r\n", _app_module_name, ret);
        return ret;
    }
    (void)static_start_rpc_service(); // serves until the process is told to end; then there is nothing left to do
    return 0;
}
