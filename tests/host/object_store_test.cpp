// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "gio_holders.h"
#include "host.h"
#include "host_test.h"
#include "object_frame.h"
#include "object_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

using namespace asd_host;
using namespace asd_test;

TEST(ObjectStore, SetRefusesWhatAPropertyCannotHoldAndTellsOfChanges) {
    ObjectStore store;
    const OBJ_HANDLE object = store.add("Class", "object",
                                        {{.name = "Value", .value = Bytes{1}, .writable = true},
                                         {.name = "Length", .value = std::uint32_t{1}},
                                         {.name = "Ready", .value = std::uint8_t{0}, .writable = true}});
    Texts told;
    store.set_observer([&](OBJ_HANDLE handle, const std::string &property) {
        EXPECT_EQ(handle, object);
        PropertyValue seen; // the store may be used from within
        EXPECT_EQ(store.get(handle, property, &seen), 0);
        told.push_back(property);
    });
    const struct {
        OBJ_HANDLE handle;
        const char *property;
        PropertyValue value;
        gint32 status;
    } rows[] = {
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
    for (const auto &row : rows) {
        SCOPED_TRACE(std::string(row.property) + " of " + std::to_string(row.handle));
        EXPECT_EQ(store.set(row.handle, row.property, row.value), row.status);
    }
    EXPECT_EQ(told, (Texts{"Value", "Ready"}));
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

// Starts that fail leave no platform behind, so these may share a process.
class HostStart : public testing::Test {
protected:
    HostStart() {
        options_.run_dir = folder_.path() / "run";
        options_.state_dir = folder_.path() / "state";
        fs::create_directories(options_.slot_run_dir());
        fs::create_directories(options_.slot_state_dir());
        enclosure_.parts = {{.name = "a", .file = "a.bin", .size = 16, .page_size = 16},
                            {.name = "b", .file = "b.bin", .shared = true, .size = 16, .page_size = 16}};
    }
    ScratchFolder folder_;
    Options options_;
    Enclosure enclosure_;
};

TEST_F(HostStart, ASecondInstanceIsRefusedBeforeItTouchesAnything) {
    const auto lock_file = options_.slot_run_dir() / "instance.lock";
    const Fd lock(::open(lock_file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    ASSERT_EQ(::write(lock.get(), "4242\n", 5), 5);
    EXPECT_EQ(host_start(options_, enclosure_),
              Texts{"slot 0 of " + options_.run_dir.native() +
                    " is already served by process 4242; stop it, or choose another --slot or --run-dir"});
    EXPECT_FALSE(fs::exists(options_.slot_state_dir() / "a.bin"));
    EXPECT_EQ(host(), nullptr);
}

TEST_F(HostStart, EveryPartThatCannotBeUsedIsNamed) {
    std::ofstream(options_.slot_state_dir() / "a.bin") << "short";
    std::ofstream(options_.state_dir / "b.bin") << "longer than sixteen bytes";
    const auto mistakes = host_start(options_, enclosure_);
    ASSERT_EQ(mistakes.size(), 2U);
    EXPECT_NE(mistakes[0].find("a.bin"), std::string::npos) << mistakes[0];
    EXPECT_NE(mistakes[1].find("b.bin"), std::string::npos) << mistakes[1];
    EXPECT_EQ(host(), nullptr);
}

// The last one, as it leaves the platform running.
TEST_F(HostStart, AReferenceHasNoValueThatCouldBeReadOrWritten) {
    enclosure_.chips = {{.name = "Dev", .part = "a"}};
    enclosure_.items = {{.name = "Item", .num = 1, .length = 4, .chips = {"Dev"}}};
    ASSERT_EQ(host_start(options_, enclosure_), Texts{});
    OBJ_HANDLE item = 0;
    ASSERT_EQ(dfl_get_object_handle("Item", &item), 0);
    GVariant *value = nullptr;
    EXPECT_EQ(dfl_get_property_value(item, "AtomStorageDataDev0", &value), kWrongType);
    const VariantPtr name = sunk(g_variant_new_string("Item"));
    EXPECT_EQ(dfl_set_property_value(item, "AtomStorageDataDev0", name.get(), 0), kWrongType);
    EXPECT_TRUE(fs::exists(options_.slot_state_dir() / "a.bin") && fs::exists(options_.state_dir / "b.bin"));
}

} // namespace
