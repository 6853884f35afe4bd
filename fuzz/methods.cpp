// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// A method called on D-Bus by a client that keeps the protocol: the method, the object and the types of the arguments
// are the first three bytes, the arguments the rest.

#include "bus_names.h"
#include "gio_holders.h"
#include "host.h"
#include "places.h"
#include "service.h"

#include <array>

namespace {

using namespace asd_host;

constexpr int kLimitMs = 20'000;
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
constexpr std::array<const char *, 8> kTypes = {"(ay)", "(i)", "()", "(ss)", "(ssv)", "(ayay)", "(v)", "(a{sv}u)"};

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
    if (size < 3) {
        return 0;
    }
    const auto &[interface, name] = kMethods[data[0] % kMethods.size()];
    const GVariantType *type = G_VARIANT_TYPE(kTypes[data[2] % kTypes.size()]);
    const VariantPtr bytes = sunk(g_variant_new_from_data(type, data + 3, size - 3, FALSE, nullptr, nullptr));
    const VariantPtr arguments(g_variant_get_normal_form(bytes.get()));
    ErrorSlot error;
    const VariantPtr reply(g_dbus_connection_call_sync(connection.get(), nullptr, path_of(data[1]).c_str(), interface,
                                                       name, arguments.get(), nullptr, G_DBUS_CALL_FLAGS_NONE, kLimitMs,
                                                       nullptr, error.out()));
    // Not every value can be sent: an empty tuple in a variant cannot.
    const bool sent = !error.is_io(G_IO_ERROR_INVALID_ARGUMENT);
    fuzz::require(reply != nullptr || !sent || g_dbus_error_is_remote_error(error.get()) != 0, error.text());
    service.require_protected();
    return 0;
}
