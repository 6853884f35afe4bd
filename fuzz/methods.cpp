// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// A method called on D-Bus by a client that keeps the protocol: the method, the object and the types of the arguments
// are the first three bytes, the arguments the rest.

#include "bus_names.h"
#include "gio_holders.h"
#include "host.h"
#include "places.h"
#include "service.h"

#include <algorithm>
#include <array>

namespace {

using namespace asd_host;

constexpr const char *kProperties = "org.freedesktop.DBus.Properties";

struct Method {
    const char *interface;
    const char *name;
};
constexpr std::array<Method, 9> kMethods = {{
    {.interface = kItemInterface, .name = "WriteAtomStorageData"},
    {.interface = kItemInterface, .name = "EqWriteAtomStorageData"},
    {.interface = kItemInterface, .name = "UpdateMemProperty"},
    {.interface = kItemInterface, .name = "ReadAtomStorageData"},
    {.interface = kItemInterface, .name = "ReadAsdMemData"},
    {.interface = kItemInterface, .name = "ClearMemData"},
    {.interface = kChipInterface, .name = "SetAsdDevErrCode"},
    {.interface = kProperties, .name = "Get"},
    {.interface = kProperties, .name = "Set"},
}};

GVariant *argument_of(unsigned type, fuzz::Input bytes) {
    std::uint32_t number = 0;
    std::ranges::copy(bytes.first(std::min(bytes.size(), sizeof number)), reinterpret_cast<std::uint8_t *>(&number));
    switch (type % 8) {
    case 0:
        return g_variant_new_int32(static_cast<gint32>(number));
    case 1:
        return g_variant_new_byte(static_cast<guint8>(number));
    case 2:
        return g_variant_new_take_string(
            g_utf8_make_valid(reinterpret_cast<const char *>(bytes.data()), static_cast<gssize>(bytes.size())));
    case 3:
        return g_variant_new_variant(argument_of(type / 8, bytes));
    default:
        return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1);
    }
}

GVariant *arguments_of(fuzz::Input rest) {
    GVariantBuilder tuple;
    g_variant_builder_init(&tuple, G_VARIANT_TYPE_TUPLE);
    while (rest.size() >= 3) {
        const std::size_t length = std::min(rest[1] + std::size_t{rest[2]} * 256, rest.size() - 3);
        g_variant_builder_add_value(&tuple, argument_of(rest[0], rest.subspan(3, length)));
        rest = rest.subspan(3 + length);
    }
    return g_variant_builder_end(&tuple);
}

ConnectionPtr client(const fuzz::Service &service) {
    ErrorSlot error;
    ConnectionPtr connection(g_dbus_connection_new_for_address_sync(
        ("unix:path=" + service.door(kBusSocket).native()).c_str(), G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT,
        nullptr, nullptr, error.out()));
    fuzz::require(connection != nullptr, error.text());
    return connection;
}

std::string path_of(std::uint8_t number) {
    const ObjectStore &objects = host()->objects;
    const auto count =
        static_cast<OBJ_HANDLE>(objects.of_class(kItemClass).size() + objects.of_class(kChipClass).size());
    const OBJ_HANDLE object = 1 + number % count; // they are all there are
    return kRootPath + ("/" + *objects.class_of(object)) + "/" + *objects.name_of(object);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const fuzz::Service &service = fuzz::Service::running();
    static const ConnectionPtr connection = client(service);
    if (size < 2) {
        return 0;
    }
    const auto &[interface, name] = kMethods[data[0] % kMethods.size()];
    const VariantPtr arguments = sunk(arguments_of(fuzz::Input(data, size).subspan(2)));
    ErrorSlot error;
    const VariantPtr reply(g_dbus_connection_call_sync(connection.get(), nullptr, path_of(data[1]).c_str(), interface,
                                                       name, arguments.get(), nullptr, G_DBUS_CALL_FLAGS_NONE,
                                                       asd_test::kLimitMs, nullptr, error.out()));
    fuzz::require(reply != nullptr || g_dbus_error_is_remote_error(error.get()) != 0, error.text());
    service.require_protected();
    return 0;
}
