// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the module's files and its callers share: object classes and properties, status codes, limits and wire records.

#include "board.h"
#include "platform_types.h"

// Object classes.
inline constexpr const gchar *kClassItem = "AtomStorageData";
inline constexpr const gchar *kClassChip = "AtomStorageDataDev";

// Properties of an item.
inline constexpr const gchar *PROPERTY_ASD_ONLINE = "Online";     // y: non-zero when the item is present on this board
inline constexpr const gchar *PROPERTY_ASD_DEVCOUNT = "DevCount"; // u: chips that hold the item, 1 or 2
inline constexpr const gchar *PROPERTY_ASD_DEV0 = "AtomStorageDataDev0"; // reference: first or only chip
inline constexpr const gchar *PROPERTY_ASD_DEV1 = "AtomStorageDataDev1"; // reference: second chip of a mirrored item
inline constexpr const gchar *PROPERTY_ASD_LENGTH = "Length";            // u: data bytes
inline constexpr const gchar *PROPERTY_ASD_VALUE = "Value";       // ay: the in-memory copy that other modules read
inline constexpr const gchar *PROPERTY_ASD_READY = "Ready";       // y: 1 when Value holds what was read or written last
inline constexpr const gchar *PROPERTY_ASD_NUM = "Num";           // y: the item's number, the same on every controller
inline constexpr const gchar *PROPERTY_ASD_NEEDSYNC = "NeedSync"; // y: non-zero when the master pushes it to its peers

// Properties of a chip.
inline constexpr const gchar *PROPERTY_ASD_DEV_STORAGELOC = "StorageLoc";   // block access: the chip's byte space
inline constexpr const gchar *PROPERTY_ASD_DEV_OFFSET = "Offset";           // u: address of the record
inline constexpr const gchar *PROPERTY_ASD_DEV_RETRYNUMBER = "RetryNumber"; // u: failed transfers tolerated in one call
inline constexpr const gchar *PROPERTY_ASD_DEV_HEALTH = "Health";           // y: 0 when the last access succeeded
inline constexpr const gchar *PROPERTY_ASD_DEV_ERRORCODE = "ErrorCode";     // i: status of the last access
inline constexpr const gchar *PROPERTY_ASD_DEV_STGWP = "StgWp";     // y: 0 lifts the chip's own protection, 1 sets it
inline constexpr const gchar *PROPERTY_ASD_DEV_STGISWP = "StgIsWp"; // y: 1 when protection is driven through StgWp

inline constexpr DF_OPTIONS kOptionsNone = 0;
inline constexpr DF_OPTIONS kOptionsStgWp = 16; // goes with every write of StgWp

// Statuses. 0 is success; those of the platform are passed through unchanged.
inline constexpr gint32 kStatusOk = 0;
inline constexpr gint32 kStatusFailed = -1;           // bad argument, missing name, no memory or over-long item
inline constexpr gint32 kStatusNullData = -1001;      // null data on publication
inline constexpr gint32 kStatusByteArray = -1005;     // byte array could not be built or taken
inline constexpr gint32 kStatusNoChipUsable = -1006;  // neither chip of a pair usable
inline constexpr gint32 kStatusNotOnline = -1007;     // item not online
inline constexpr gint32 kStatusChipCount = -1008;     // chip count neither 1 nor 2
inline constexpr gint32 kStatusValueRefused = -1012;  // Value could not be written
inline constexpr gint32 kStatusArguments = -1014;     // unusable method argument list
inline constexpr gint32 kStatusChipsDiffer = -1016;   // the two chips of a pair hold different data
inline constexpr gint32 kStatusUnknownItem = -1017;   // item name unknown
inline constexpr gint32 kStatusNoCheckObject = -1018; // item has no row in the check-object table
inline constexpr gint32 kStatusChecksum = -1019;      // checksum still bad after three reads

// Limits in bytes.
inline constexpr guint32 kItemMax = 8192;       // of an item
inline constexpr guint32 kPowerItemMax = 1024;  // of a power supply's item
inline constexpr guint32 kClearMax = 1024;      // that clearing an item's in-memory copy writes
inline constexpr guint32 kEkeySize = 1024;      // electronic key
inline constexpr guint32 kBayconfigSize = 2052; // bay configuration: 4-byte length, 2048-byte file
inline constexpr guint32 kCcdbSize = 128;       // customer configuration block
inline constexpr guint32 kNodeViewSize = 64;    // node view
inline constexpr guint32 kProductInfoSize = 64; // product configuration information
inline constexpr guint32 kSyncDataMax = 128;    // an item's value in a sync message
inline constexpr guint32 kSyncHeadSize = 6;     // bytes of a sync message before the value
inline constexpr guint32 kChecksumSize = 2;     // behind every record on a chip, low byte first

inline constexpr guint8 kErased = 0xFF;     // every byte of an erased chip
inline constexpr guint32 kRetryDefault = 5; // failed transfers tolerated on a chip that does not say
inline constexpr guint32 kEkeyFrames = 5;   // frames of an electronic key, both ways

// While this CPLD bit reads 1 the board idles: the role monitor and the hourly check rest, and failures do not mark a
// chip unhealthy. The push and the daily write go on.
inline constexpr UINT32 kCpldIdleRegister = 0x1F8;
inline constexpr UINT32 kCpldIdleBit = 1;

// The checksum a caller of a chip write asks for. Kept (record): every record gets the 16-bit one, whatever is asked.
enum tag_asd_checksum_crc {
    ASD_CHECKSUM_CRC16 = 2,
    ASD_CHECKSUM_CRC32 = 4,
};

enum tagBMC_SYNC_SDRTYPE_E : guint8 {
    SYNC_SDRTYPE_SET_OPP_EEPROM = 0x2A, // selector of the sync message
};

// An item and the item that holds its check flag.
struct asd_handle_bakname_s {
    const gchar *handle_name;
    const gchar *handle_bakname;
};

// The master's message to a peer: the request data of network function 0x32, command 0xF9. Only the first 6 + Length
// bytes travel.
struct ASD_EEPROM_STATE_SYNC_S {
    guint8 FruId;
    guint8 FruType0;
    guint8 FruType1;
    guint8 DeviceId;
    guint8 CmdSdrType;
    guint8 AsdNum; // Num of the item
    guint8 SyncData[kSyncDataMax];
};
static_assert(sizeof(ASD_EEPROM_STATE_SYNC_S) == kSyncHeadSize + kSyncDataMax);

// Product configuration information, request and response.
struct Asd_Product_CfgInfoReq {
    guint8 fruId[3];
    guint8 deviceId;
    guint8 sdrtype;
    guint8 proCfgInfo[kProductInfoSize];
};
static_assert(sizeof(Asd_Product_CfgInfoReq) == 69);

struct Asd_Product_CfgInfoRsp {
    guint8 compCode;
    guint8 proCfgInfo[kProductInfoSize];
};
static_assert(sizeof(Asd_Product_CfgInfoRsp) == 65);
