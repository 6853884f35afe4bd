// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "host_test.h"
#include "object_store.h"

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

} // namespace
