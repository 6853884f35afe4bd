// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "host.h"
#include "host_test.h"
#include "object_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

using namespace asd_host;
using namespace asd_test;

// What a property refuses is a promise of the contract, tested there.
TEST(ObjectStore, TellsOfChangesAndMayBeAskedFromWithin) {
    ObjectStore store;
    const OBJ_HANDLE object = store.add(
        "Class", "object",
        {{.name = "Value", .value = Bytes{1}, .writable = true}, {.name = "Length", .value = std::uint32_t{1}}});
    std::vector<PropertyValue> told;
    store.set_observer([&](OBJ_HANDLE handle, const std::string &property) {
        PropertyValue seen;
        EXPECT_EQ(store.get(handle, property, &seen), 0);
        told.push_back(seen);
    });
    EXPECT_EQ(store.set(object, "Value", Bytes{2, 3}), 0);
    EXPECT_EQ(store.set(object, "Value", Bytes{2, 3}), 0); // nothing new
    EXPECT_EQ(store.set(object, "Value", std::int32_t{1}), kWrongType);
    EXPECT_EQ(store.set(object, "Length", std::uint32_t{2}), kReadOnly);
    EXPECT_EQ(told, std::vector<PropertyValue>{(Bytes{2, 3})});
}

TEST(ObjectStore, ReadersSeeWholeValuesWhileAnotherWrites) {
    ObjectStore store;
    const OBJ_HANDLE object = store.add("C", "o", {{.name = "Value", .value = Bytes(256, 0), .writable = true}});
    const std::jthread writer([&store, object] {
        for (int round = 0; round < 5000; ++round) {
            EXPECT_EQ(store.set(object, "Value", Bytes(256, static_cast<std::uint8_t>(round))), 0);
        }
    });
    for (int round = 0; round < 5000; ++round) {
        PropertyValue value;
        ASSERT_EQ(store.get(object, "Value", &value), 0);
        const Bytes &bytes = std::get<Bytes>(value);
        ASSERT_EQ(bytes, Bytes(256, bytes[0]));
    }
}

// Both starts fail, and leave no platform behind.
TEST(HostStart, NamesEveryPartThatCannotBeUsedAndRefusesASecondInstanceUntouched) {
    const ScratchFolder folder;
    Options options;
    options.run_dir = options.state_dir = folder.path();
    fs::create_directories(options.slot_state_dir());
    Enclosure enclosure;
    enclosure.parts = {{.name = "a", .file = "a.bin", .size = 16, .page_size = 16},
                       {.name = "b", .file = "b.bin", .shared = true, .size = 16, .page_size = 16}};
    std::ofstream(options.slot_state_dir() / "a.bin") << "short";
    std::ofstream(options.state_dir / "b.bin") << "longer than sixteen bytes";
    const auto mistakes = host_start(options, enclosure);
    ASSERT_EQ(mistakes.size(), 2U);
    EXPECT_NE(mistakes[0].find("a.bin"), std::string::npos) << mistakes[0];
    EXPECT_NE(mistakes[1].find("b.bin"), std::string::npos) << mistakes[1];

    fs::remove(options.slot_state_dir() / "a.bin");
    const Fd lock(::open((options.slot_run_dir() / "instance.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640));
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    ASSERT_EQ(::pwrite(lock.get(), "4242\n", 5, 0), 5);
    EXPECT_EQ(host_start(options, enclosure),
              Texts{"slot 0 of " + folder.path().native() +
                    " is already served by process 4242; stop it, or choose another --slot or --run-dir"});
    EXPECT_FALSE(fs::exists(options.slot_state_dir() / "a.bin"));
    EXPECT_EQ(host(), nullptr);
}

} // namespace
