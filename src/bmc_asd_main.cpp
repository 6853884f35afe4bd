// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "bmc_asd_main.h"

#include "bmc_asd_common.h"
#include "bmc_asd_init.h"
#include "bmc_asd_ipmi.h"
#include "bmc_asd_ipmi_getter.h"
#include "bmc_asd_ipmi_setter.h"
#include "bmc_asd_log.h"
#include "bmc_asd_records.h"
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

static consteval IPMI_CMD_S oem(const OemCommand &command) {
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

// The command that reads a record.
static consteval IPMI_CMD_S read_of(std::string_view item, IPMI_CMD_FUNC handler) {
    const Record &record = kRecords[row_of(item)];
    return oem({record.get.number, record.get.filter, record.privilege, kHeadSize, kHeadSize, handler, record.item});
}

// The command that writes a record.
static consteval IPMI_CMD_S write_of(std::string_view item, IPMI_CMD_FUNC handler) {
    const Record &record = kRecords[row_of(item)];
    const auto whole = static_cast<guint8>(kHeadSize + record.size);
    const guint8 min = record.short_set ? guint8{kHeadSize} : whole;
    const guint8 max = record.longest_set != 0 ? record.longest_set : whole;
    return oem({record.set.number, record.set.filter, record.privilege, min, max, handler, record.item});
}

// Kept (answer), though they look wrong: key frames may be as short as one byte (the handlers read a whole frame, zeros
// past the request), and file reads check their length themselves.
// clang-format off
extern constexpr auto _ipmi_cmd = std::to_array<IPMI_CMD_S>({
    oem({.cmd = 0x12, .filter = "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=1bh", .privilege = 0, .min = kFrameData, .max = kFrameData, .handler = ipmi_cmd_get_ekey, .item = "ASD5"}),
    oem({.cmd = 0x12, .filter = "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=1ch", .privilege = 0, .min = kFrameData, .max = kFrameData, .handler = ipmi_cmd_get_ekey_ep, .item = "ASD5"}),
    oem({.cmd = 0x13, .filter = "data[0]=00h,data[1]=00h,data[2]=80h", .privilege = 0, .min = 1, .max = kFrameRequestMax, .handler = ipmi_cmd_set_ekey, .item = "ASD5"}),
    oem({.cmd = 0x12, .filter = "data[0]=00h,data[1]=80h,data[2]=00h,data[4]=1bh", .privilege = 0, .min = kFrameData, .max = kFrameData, .handler = ipmi_cmd_get_ekey, .item = "ASD7"}),
    oem({.cmd = 0x12, .filter = "data[0]=00h,data[1]=80h,data[2]=00h,data[4]=1ch", .privilege = 0, .min = kFrameData, .max = kFrameData, .handler = ipmi_cmd_get_ekey_ep, .item = "ASD7"}),
    oem({.cmd = 0x13, .filter = "data[0]=00h,data[1]=80h,data[2]=00h", .privilege = 0, .min = 1, .max = kFrameRequestMax, .handler = ipmi_cmd_set_ekey, .item = "ASD7"}),
    oem({.cmd = 0x12, .filter = "data[0]=00h,data[1]=10h,data[2]=00h,data[4]=1ch", .privilege = 0, .min = kFrameData, .max = kFrameData, .handler = ipmi_cmd_get_ekey_ep, .item = "ASD1000"}),
    oem({.cmd = 0x13, .filter = "data[0]=00h,data[1]=10h,data[2]=00h", .privilege = 0, .min = 1, .max = kFrameRequestMax, .handler = ipmi_cmd_set_power_ekey, .item = "ASD1000"}),
    oem({.cmd = 0x12, .filter = "data[0]=01h,data[1]=10h,data[2]=00h,data[4]=1ch", .privilege = 0, .min = kFrameData, .max = kFrameData, .handler = ipmi_cmd_get_ekey_ep, .item = "ASD1001"}),
    oem({.cmd = 0x13, .filter = "data[0]=01h,data[1]=10h,data[2]=00h", .privilege = 0, .min = 1, .max = kFrameRequestMax, .handler = ipmi_cmd_set_power_ekey, .item = "ASD1001"}),
    read_of("ASD10", ipmi_cmd_get_mac),
    write_of("ASD10", ipmi_cmd_set_mac),
    read_of("ASD11", ipmi_cmd_get_sn),
    write_of("ASD11", ipmi_cmd_set_sn),
    read_of("ASD21", ipmi_cmd_get_logo),
    write_of("ASD21", ipmi_cmd_set_logo),
    read_of("ASD14", ipmi_cmd_get_brand),
    write_of("ASD14", ipmi_cmd_set_brand),
    read_of("ASD15", ipmi_cmd_get_vendor),
    write_of("ASD15", ipmi_cmd_set_vendor),
    read_of("ASD13", ipmi_cmd_get_model),
    write_of("ASD13", ipmi_cmd_set_model),
    read_of("ASD20", ipmi_cmd_get_oem_model),
    write_of("ASD20", ipmi_cmd_set_oem_model),
    read_of("ASD26", ipmi_cmd_get_spec),
    write_of("ASD26", ipmi_cmd_set_spec),
    read_of("ASD27", ipmi_cmd_get_frameinfo),
    write_of("ASD27", ipmi_cmd_set_frameinfo),
    oem({.cmd = 0xbb, .filter = ASD_SELECTOR("21"), .privilege = 0, .min = kHeadSize, .max = kHeadSize, .handler = ipmi_cmd_get_ccdb, .item = "ASD_CCDB"}),
    oem({.cmd = 0xbc, .filter = ASD_SELECTOR("2c"), .privilege = 0, .min = kHeadSize + kCcdbSize, .max = kHeadSize + kCcdbSize, .handler = ipmi_cmd_set_ccdb, .item = "ASD_CCDB"}),
    oem({.cmd = 0xbc, .filter = ASD_SELECTOR("32"), .privilege = 0, .min = kHeadSize + kCcdbSize, .max = kHeadSize + kCcdbSize, .handler = ipmi_cmd_set_ccdb, .item = "ASD_CCDB"}),
    read_of("ASD_PowerConfig", ipmi_cmd_get_powerconfig),
    write_of("ASD_PowerConfig", ipmi_cmd_set_powerconfig),
    read_of("ASD24", ipmi_cmd_get_baycfg),
    write_of("ASD24", ipmi_cmd_set_baycfg),
    oem({.cmd = 0x91, .filter = "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=70h", .privilege = 0, .min = 1, .max = 32, .handler = ASD_IpmiGetBayconfig, .item = "ASD25"}),
    oem({.cmd = 0x94, .filter = "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=70h", .privilege = 0, .min = kHeadSize, .max = kRequestMax, .handler = ASD_IpmiSetBayconfig, .item = "ASD25"}),
    oem({.cmd = 0x91, .filter = "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=71h", .privilege = 0, .min = 1, .max = 32, .handler = ASD_IpmiGetBayconfigFileLen, .item = "ASD25"}),
    oem({.cmd = 0x94, .filter = "data[0]=00h,data[1]=00h,data[2]=80h,data[4]=72h", .privilege = 0, .min = kHeadSize, .max = kRequestMax, .handler = ASD_IpmiClearBayconfig, .item = "ASD25"}),
    read_of("ASD_E2PWP", ipmi_cmd_get_e2pwp_test),
    write_of("ASD_E2PWP", ipmi_cmd_set_e2pwp_test),
    oem({.cmd = 0xf9, .filter = "data[1]=02h,data[2]=00h,data[4]=2ah", .privilege = 4, .min = 0, .max = kRequestMax, .handler = ASD_GetEEPromData, .item = nullptr}),
    oem({.cmd = 0xbc, .filter = ASD_SELECTOR("19"), .privilege = 4, .min = kHeadSize + 1, .max = kHeadSize + 1, .handler = ipmi_cmd_set_backboard_pcieorsas, .item = "ASD_PCIEORSAS"}),
    oem({.cmd = 0xbb, .filter = ASD_SELECTOR("1a"), .privilege = 4, .min = kHeadSize, .max = kHeadSize, .handler = ipmi_cmd_get_backboard_pcieorsas, .item = "ASD_PCIEORSAS"}),
    write_of("ASD_IOCARD_PCIE4", ASD_IPMI_SetIocardPCIE4),
    read_of("ASD_IOCARD_PCIE4", ASD_IPMI_GetIocardPCIE4),
    write_of("ASD_OVERSEAS", ipmi_cmd_set_overseas),
    read_of("ASD_OVERSEAS", ipmi_cmd_get_overseas),
    oem({.cmd = 0xbb, .filter = ASD_SELECTOR("44"), .privilege = 0, .min = kHeadSize, .max = kHeadSize, .handler = IpmiCmdGetNodeView, .item = "ASD_NODE_VIEW"}),
    oem({.cmd = 0xbc, .filter = ASD_SELECTOR("43"), .privilege = 0, .min = kHeadSize + kNodeViewSize, .max = kHeadSize + kNodeViewSize, .handler = IpmiCmdSetNodeView, .item = "ASD_NODE_VIEW"}),
    read_of("ASD_PRODUCT_FRAMECFG", Ipmi_cmdGetProductFrameCfg),
    write_of("ASD_PRODUCT_FRAMECFG", Ipmi_cmdSetProductFrameCfg),
    oem({.cmd = 0xbb, .filter = ASD_SELECTOR("5c"), .privilege = 0, .min = kHeadSize, .max = kHeadSize, .handler = Ipmi_cmdGetProductCfgInfo, .item = "ASD_PRODUCT_CFGINFO"}),
    oem({.cmd = 0xbc, .filter = ASD_SELECTOR("4f"), .privilege = 0, .min = kHeadSize + kProductInfoSize, .max = kHeadSize + kProductInfoSize, .handler = Ipmi_cmdSetProductCfgInfo, .item = "ASD_PRODUCT_CFGINFO"}),
});
// clang-format on

// No row takes lengths that there are not, and none is there twice. Filters of different bytes may still meet in a
// request.
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
