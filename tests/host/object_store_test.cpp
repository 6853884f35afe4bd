// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "host.h"
#include "object_frame.h"
#include "object_store.h"
#include "scratch_folder.h"
#include "status.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

using namespace asd_host;

TEST(ObjectStore, SetRefusesWhatAPropertyCannotHoldAndTellsOfChanges) {
    ObjectStore store;
    const OBJ_HANDLE object = store.add("Class", "object",
                                        {{.name = "Value", .value = Bytes{1}, .writable = true},
                                         {.name = "Length", .value = std::uint32_t{1}},
                                         {.name = "Ready", .value = std::uint8_t{0}, .writable = true}});
    std::vector<std::string> told;
    store.set_observer([&](OBJ_HANDLE handle, const std::string &property) {
        EXPECT_EQ(handle, object);
        PropertyValue seen; // the store may be used from within
        EXPECT_EQ(store.get(handle, property, &seen), 0);
        told.push_back(property);
    });
    struct Row {
        OBJ_HANDLE handle;
        const char *property;
        PropertyValue value;
        gint32 status;
    };
    const std::vector<Row> rows = {
        {object, "Value", Bytes{2, 3}, 0},
        {object, "Value", Bytes{2, 3}, 0}, // unchanged: nobody is told
        {object, "Ready", std::uint8_t{1}, 0},
        {object, "Ready", std::uint32_t{1}, kWrongType},
        {object, "Value", std::int32_t{1}, kWrongType},
        {object, "Length", std::uint32_t{2}, kReadOnly},
        {object, "Absent", std::uint8_t{1}, kNoProperty},
        {object + 1, "Ready", std::uint8_t{1}, kNoObject},
        {0, "Ready", std::uint8_t{1}, kNoObject},
        {-1, "Ready", std::uint8_t{1}, kNoObject},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.property) + " of " + std::to_string(row.handle));
        EXPECT_EQ(store.set(row.handle, row.property, row.value), row.status);
    }
    EXPECT_EQ(told, (std::vector<std::string>{"Value", "Ready"}));
    PropertyValue value = std::uint8_t{77};
    EXPECT_EQ(store.get(object, "Absent", &value), kNoProperty);
    EXPECT_EQ(value, PropertyValue(std::uint8_t{77}));
    EXPECT_EQ(store.get(object, "Length", &value), 0);
    EXPECT_EQ(value, PropertyValue(std::uint32_t{1}));
}

TEST(ObjectStore, AliasesBelongToAClassAndTheLastBindingWins) {
    ObjectStore store;
    const OBJ_HANDLE a = store.add("A", "a", {});
    const OBJ_HANDLE b = store.add("B", "b", {});
    const OBJ_HANDLE c = store.add("A", "c", {});
    EXPECT_EQ(store.bind_alias(a, 7), 0);
    EXPECT_EQ(store.bind_alias(b, 7), 0);
    EXPECT_EQ(store.bound("A", 7), a);
    EXPECT_EQ(store.bound("B", 7), b);
    EXPECT_EQ(store.bind_alias(c, 7), 0);
    EXPECT_EQ(store.bound("A", 7), c);
    EXPECT_EQ(store.bound("A", 8), std::nullopt);
    EXPECT_EQ(store.bind_alias(99, 7), kNoObject);
    EXPECT_EQ(store.of_class("A"), (std::vector<OBJ_HANDLE>{a, c}));
}

// A reader never sees a value that is half one write and half another.
TEST(ObjectStore, ReadersSeeWholeValuesWhileOthersWrite) {
    ObjectStore store;
    const OBJ_HANDLE object = store.add("C", "o", {{.name = "Value", .value = Bytes(256, 0), .writable = true}});
    std::vector<std::jthread> threads;
    for (std::uint8_t writer = 1; writer <= 3; ++writer) {
        threads.emplace_back([&store, object, writer] {
            for (int round = 0; round < 2000; ++round) {
                EXPECT_EQ(store.set(object, "Value", Bytes(256, static_cast<std::uint8_t>(writer * round % 251))), 0);
            }
        });
    }
    for (int round = 0; round < 2000; ++round) {
        PropertyValue value;
        ASSERT_EQ(store.get(object, "Value", &value), 0);
        const Bytes &bytes = std::get<Bytes>(value);
        ASSERT_EQ(bytes, Bytes(256, bytes[0]));
    }
}

// Starts that fail leave no platform behind, so these may share a process as long as none is running yet.
TEST(HostStart, ASecondInstanceIsRefusedBeforeItTouchesAnything) {
    if (host() != nullptr) {
        GTEST_SKIP() << "a platform runs in this process";
    }
    const asd_test::ScratchFolder folder;
    Options options;
    options.run_dir = folder.path() / "run";
    options.state_dir = folder.path() / "state";
    const auto lock_file = options.slot_run_dir() / "instance.lock";
    std::filesystem::create_directories(options.slot_run_dir());
    const Fd lock(::open(lock_file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    ASSERT_EQ(::write(lock.get(), "4242\n", 5), 5);
    Enclosure enclosure;
    enclosure.parts = {{.name = "p", .file = "p.bin", .size = 16, .page_size = 16}};
    const auto mistakes = host_start(options, enclosure);
    ASSERT_EQ(mistakes.size(), 1U);
    EXPECT_EQ(mistakes[0], "slot 0 of " + options.run_dir.native() +
                               " is already served by process 4242; stop it, or choose another --slot or --run-dir");
    EXPECT_FALSE(std::filesystem::exists(options.slot_state_dir() / "p.bin"));
    EXPECT_EQ(host(), nullptr);
}

TEST(HostStart, EveryPartThatCannotBeUsedIsNamed) {
    if (host() != nullptr) {
        GTEST_SKIP() << "a platform runs in this process";
    }
    const asd_test::ScratchFolder folder;
    Options options;
    options.run_dir = folder.path() / "run";
    options.state_dir = folder.path() / "state";
    std::filesystem::create_directories(options.slot_state_dir());
    std::ofstream(options.slot_state_dir() / "short.bin") << "short";
    std::ofstream(options.state_dir / "long.bin") << "longer than sixteen bytes";
    Enclosure enclosure;
    enclosure.parts = {{.name = "a", .file = "short.bin", .size = 16, .page_size = 16},
                       {.name = "b", .file = "long.bin", .shared = true, .size = 16, .page_size = 16}};
    const auto mistakes = host_start(options, enclosure);
    ASSERT_EQ(mistakes.size(), 2U);
    EXPECT_NE(mistakes[0].find("short.bin"), std::string::npos) << mistakes[0];
    EXPECT_NE(mistakes[1].find("long.bin"), std::string::npos) << mistakes[1];
    EXPECT_EQ(host(), nullptr);
}

// The contract's operations on a running platform, in a folder of its own. Once a process: the platform never ends.
class ObjectFrame : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        folder = std::make_unique<asd_test::ScratchFolder>();
        Enclosure enclosure;
        enclosure.parts = {{.name = "left", .file = "left.bin", .size = 256, .page_size = 16, .write_cycle_us = 0},
                           {.name = "right",
                            .file = "right.bin",
                            .shared = true,
                            .size = 256,
                            .page_size = 16,
                            .write_cycle_us = 0,
                            .write_protect_line = 55}};
        enclosure.chips = {{.name = "Dev1", .part = "left", .offset = 32, .stg_is_wp = 1},
                           {.name = "Dev2", .part = "right", .offset = 0}};
        enclosure.items = {{.name = "Item1", .num = 1, .length = 4, .chips = {"Dev1"}},
                           {.name = "Item2", .num = 2, .length = 4, .chips = {"Dev2"}}};
        options.run_dir = folder->path() / "run";
        options.state_dir = folder->path() / "state";
        options.slot = 2;
        EXPECT_EQ(host_start(options, enclosure), std::vector<std::string>());
    }
    static void TearDownTestSuite() { folder.reset(); }

    static OBJ_HANDLE handle_of(const char *name) {
        OBJ_HANDLE handle = 0;
        EXPECT_EQ(dfl_get_object_handle(name, &handle), 0) << name;
        return handle;
    }

    static inline std::unique_ptr<asd_test::ScratchFolder> folder;
    static inline Options options;
};

using Variant = std::unique_ptr<GVariant, decltype(&g_variant_unref)>;

TEST_F(ObjectFrame, ValuesCrossAsVariantsOfTheirOwnType) {
    const OBJ_HANDLE item = handle_of("Item1");
    const OBJ_HANDLE chip = handle_of("Dev1");
    struct Row {
        OBJ_HANDLE handle;
        const char *property;
        const char *before;
        const char *written;
        gint32 status;
        const char *after;
    };
    const std::vector<Row> rows = {
        {item, "Value", "@ay []", "[byte 0x01, 0xff]", 0, "[byte 0x01, 0xff]"},
        {item, "Value", "[byte 0x01, 0xff]", "@ay []", 0, "@ay []"},
        {item, "Value", "@ay []", "'text'", kWrongType, "@ay []"},
        {item, "Ready", "byte 0x00", "uint32 1", kWrongType, "byte 0x00"},
        {item, "Ready", "byte 0x00", "byte 0x01", 0, "byte 0x01"},
        {item, "DevCount", "uint32 1", "uint32 2", kReadOnly, "uint32 1"},
        {item, "Num", "byte 0x01", "byte 0x02", kReadOnly, "byte 0x01"},
        {chip, "ErrorCode", "0", "-1001", 0, "-1001"},
        {chip, "StgWp", "byte 0x00", "byte 0x00", 0, "byte 0x00"},
        {chip, "Offset", "uint32 32", "uint32 0", kReadOnly, "uint32 32"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(std::string(row.property) + " = " + row.written);
        const auto expect = [&row](const char *text) {
            GVariant *value = nullptr;
            ASSERT_EQ(dfl_get_property_value(row.handle, row.property, &value), 0);
            const Variant held(value, g_variant_unref);
            const std::unique_ptr<gchar, decltype(&g_free)> printed(g_variant_print(value, TRUE), g_free);
            EXPECT_STREQ(printed.get(), text);
        };
        expect(row.before);
        const Variant written(g_variant_ref_sink(g_variant_new_parsed(row.written)), g_variant_unref);
        EXPECT_EQ(dfl_set_property_value(row.handle, row.property, written.get(), 16), row.status);
        expect(row.after);
    }
    GVariant *value = nullptr;
    EXPECT_EQ(dfl_get_property_value(item, "AtomStorageDataDev0", &value), kWrongType);
    EXPECT_EQ(dfl_get_property_value(item, "StorageLoc", &value), kNoProperty);
    guint8 byte = 77;
    EXPECT_EQ(dfl_get_property_ubyte(item, "Length", &byte), kWrongType);
    EXPECT_EQ(byte, 77);
    OBJ_HANDLE referenced = 0;
    EXPECT_EQ(dfl_get_referenced_object(item, "AtomStorageDataDev0", &referenced), 0);
    EXPECT_EQ(referenced, chip);
    EXPECT_EQ(dfl_get_referenced_object(item, "AtomStorageDataDev1", &referenced), kNoProperty);
    EXPECT_EQ(dfl_get_referenced_object(item, "Length", &referenced), kWrongType);
}

TEST_F(ObjectFrame, EveryObjectOfAClassIsVisitedWhateverTheCallbackReturns) {
    std::vector<OBJ_HANDLE> visited;
    const auto callback = [](OBJ_HANDLE handle, gpointer list) -> gint32 {
        static_cast<std::vector<OBJ_HANDLE> *>(list)->push_back(handle);
        return -handle;
    };
    const OBJ_HANDLE first = handle_of("Item1");
    EXPECT_EQ(dfl_foreach_object("AtomStorageData", callback, &visited, 0), -first);
    EXPECT_EQ(visited, (std::vector<OBJ_HANDLE>{first, handle_of("Item2")}));
    EXPECT_EQ(dfl_foreach_object("Config9555", callback, &visited, 0), 0);
}

TEST_F(ObjectFrame, BlocksReachTheChipsPartUnlessItIsProtected) {
    const OBJ_HANDLE open = handle_of("Dev1");
    const OBJ_HANDLE behind_line = handle_of("Dev2");
    const std::array<guint8, 4> data = {1, 2, 3, 4};
    std::array<guint8, 4> read = {};
    const Variant on(g_variant_ref_sink(g_variant_new_byte(1)), g_variant_unref);
    const Variant off(g_variant_ref_sink(g_variant_new_byte(0)), g_variant_unref);

    EXPECT_EQ(dfl_set_property_value(open, "StgWp", on.get(), 16), 0);
    EXPECT_NE(dfl_block_write(open, "StorageLoc", 40, 4, data.data()), 0);
    EXPECT_EQ(dfl_set_property_value(open, "StgWp", off.get(), 16), 0);
    EXPECT_EQ(dfl_block_write(open, "StorageLoc", 40, 4, data.data()), 0);
    EXPECT_EQ(dfl_block_read(open, "StorageLoc", 40, 4, read.data()), 0);
    EXPECT_EQ(read, data);

    EXPECT_NE(dfl_block_write(behind_line, "StorageLoc", 0, 4, data.data()), 0);
    EXPECT_EQ(host()->lines.write(55, 1), 0);
    EXPECT_EQ(dfl_block_write(behind_line, "StorageLoc", 0, 4, data.data()), 0);
    EXPECT_EQ(host()->lines.write(55, 0), 0);
    EXPECT_TRUE(std::filesystem::exists(folder->path() / "state/right.bin")); // shared by the slots
    EXPECT_TRUE(std::filesystem::exists(folder->path() / "state/slot2/left.bin"));

    EXPECT_EQ(dfl_block_read(open, "StorageLoc", 40, 4, nullptr), kBadArgument);
    EXPECT_EQ(dfl_block_read(open, nullptr, 40, 4, read.data()), kBadArgument);
    EXPECT_EQ(dfl_block_read(open, "Offset", 40, 4, read.data()), kNoProperty);
    EXPECT_EQ(dfl_block_read(handle_of("Item1"), "StorageLoc", 40, 4, read.data()), kNoProperty);
    EXPECT_EQ(dfl_block_read(999, "StorageLoc", 40, 4, read.data()), kNoObject);
    EXPECT_NE(dfl_block_read(open, "StorageLoc", 254, 4, read.data()), 0);
}

} // namespace
