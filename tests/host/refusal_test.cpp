// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// The system refuses: each operation of the host platform is done again and again, the first time with its first system
// call failing, then with its second, until none is left. What failed says why and leaves old or new; no descriptor
// stays open; and the same operation works once the failure is over.

#include "board.h"
#include "board_state.h"
#include "call_pool.h"
#include "caller.h"
#include "dbus_service.h"
#include "dummy_door.h"
#include "gio_holders.h"
#include "gpio.h"
#include "history.h"
#include "host.h"
#include "host_door.h"
#include "host_test.h"
#include "intent_record.h"
#include "inventory.h"
#include "ipmi_stack.h"
#include "lock_file.h"
#include "module_frame.h"
#include "object_frame.h"
#include "part.h"
#include "peer_link.h"
#include "safe_folder.h"
#include "standard_commands.h"
#include "state_store.h"
#include "vos.h"
#include "write_protect.h"

#include <limits>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace {

enum class Fault {
    kError,     // EIO, once
    kDead,      // EIO from this call on
    kShortage,  // EMFILE, of what makes a descriptor or a thread
    kInterrupt, // EINTR, once, of a transfer or a wait
    kPiece,     // a transfer moves one byte
    kNothing,   // a transfer moves none
};
enum class Kind { kPlain, kMakes, kWaits, kMoves, kStores }; // of a call; what stores is not interrupted
enum class Threads { kOwn, kOthers }; // whose calls fail: of the thread that asked for it, or of all others

constexpr int kOut = -1;
constexpr int kUndisturbed = -1; // the time before the first call fails: what stays open for good is open then

struct {
    std::atomic<Threads> threads = Threads::kOwn;
    std::atomic<Fault> fault = Fault::kError;
    std::atomic<bool> armed = false;
    std::atomic<int> left = 0; // calls before the one that fails
    std::atomic<const char *> struck = nullptr;
} g_fault; // NOLINT(cppcoreguidelines-avoid-non-const-global-variables)
thread_local bool t_asked = false;

bool concerns(Fault fault, Kind kind) {
    switch (fault) {
    case Fault::kShortage:
        return kind == Kind::kMakes;
    case Fault::kInterrupt:
        return kind == Kind::kWaits || kind == Kind::kMoves;
    case Fault::kPiece:
    case Fault::kNothing:
        return kind == Kind::kMoves || kind == Kind::kStores;
    default:
        return true;
    }
}

// This call is to fail, or for a transfer to move less.
bool strikes(const char *call, Kind kind) {
    if (!g_fault.armed || t_asked != (g_fault.threads == Threads::kOwn) || !concerns(g_fault.fault, kind)) {
        return false;
    }
    const int left = g_fault.left--;
    if (left > 0 || (left < 0 && g_fault.fault != Fault::kDead)) {
        return false;
    }
    if (g_fault.struck == nullptr) {
        g_fault.struck = call;
    }
    errno = g_fault.fault == Fault::kShortage ? EMFILE : g_fault.fault == Fault::kInterrupt ? EINTR : EIO;
    return true;
}

// Whether a transfer that is struck fails, and how much one moves that does not.
bool transfer_fails(const char *call, std::size_t *count, Kind kind = Kind::kMoves) {
    if (!strikes(call, kind)) {
        return false;
    }
    const bool less = g_fault.fault == Fault::kPiece || g_fault.fault == Fault::kNothing;
    *count = g_fault.fault == Fault::kPiece ? std::min<std::size_t>(*count, 1) : 0;
    return !less;
}

} // namespace

// NOLINTBEGIN(cppcoreguidelines-macro-usage): the same for each call
#define ASD_REAL(name) static const auto real = reinterpret_cast<decltype(&name)>(::dlsym(RTLD_NEXT, #name))
#define ASD_CALL(name, kind, throws, parameters, arguments)                                                            \
    int name parameters throws {                                                                                       \
        ASD_REAL(name);                                                                                                \
        return strikes(#name, kind) ? kOut : real arguments;                                                           \
    }
#define ASD_TRANSFER(name, parameters, arguments)                                                                      \
    ssize_t name parameters {                                                                                          \
        ASD_REAL(name);                                                                                                \
        return transfer_fails(#name, &count) ? kOut : real arguments;                                                  \
    }
// NOLINTEND(cppcoreguidelines-macro-usage)

// In place of the C library's, which they call.
extern "C" {
int open(const char *file, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    ASD_REAL(open);
    return strikes("open", Kind::kMakes) ? kOut : real(file, flags, mode);
}
int fcntl(int fd, int command, ...) {
    va_list rest;
    va_start(rest, command);
    void *const argument = va_arg(rest, void *); // as the C library takes it
    va_end(rest);
    ASD_REAL(fcntl);
    return strikes("fcntl", Kind::kPlain) ? kOut : real(fd, command, argument);
}
ssize_t write(int fd, const void *bytes, size_t count) {
    ASD_REAL(write);
    constexpr std::size_t kEvent = 8; // what an event takes, which it does at any time
    return count > kEvent && transfer_fails("write", &count, Kind::kStores) ? kOut : real(fd, bytes, count);
}
int fsync(int /*fd*/) {
    return strikes("fsync", Kind::kPlain) ? kOut : 0; // no power is lost here
}
int fdatasync(int /*fd*/) {
    return strikes("fdatasync", Kind::kPlain) ? kOut : 0;
}
int pthread_create(pthread_t *thread, const pthread_attr_t *how, void *(*run)(void *), void *argument) noexcept {
    ASD_REAL(pthread_create);
    return strikes("pthread_create", Kind::kMakes) ? EAGAIN : real(thread, how, run, argument);
}
// clang-format off
ASD_CALL(fstat, Kind::kPlain, noexcept, (int fd, struct stat *facts), (fd, facts))
ASD_CALL(stat, Kind::kPlain, noexcept, (const char *file, struct stat *facts), (file, facts))
ASD_CALL(lstat, Kind::kPlain, noexcept, (const char *file, struct stat *facts), (file, facts))
ASD_CALL(mkdir, Kind::kPlain, noexcept, (const char *file, mode_t mode), (file, mode))
ASD_CALL(chmod, Kind::kPlain, noexcept, (const char *file, mode_t mode), (file, mode))
ASD_CALL(rename, Kind::kPlain, noexcept, (const char *from, const char *to), (from, to))
ASD_CALL(unlink, Kind::kPlain, noexcept, (const char *file), (file))
ASD_CALL(ftruncate, Kind::kPlain, noexcept, (int fd, off_t size), (fd, size))
ASD_CALL(flock, Kind::kPlain, noexcept, (int fd, int how), (fd, how))
ASD_CALL(eventfd, Kind::kMakes, noexcept, (unsigned first, int flags), (first, flags))
ASD_CALL(socket, Kind::kMakes, noexcept, (int domain, int type, int protocol), (domain, type, protocol))
ASD_CALL(bind, Kind::kPlain, noexcept, (int fd, const sockaddr *at, socklen_t size), (fd, at, size))
ASD_CALL(listen, Kind::kPlain, noexcept, (int fd, int backlog), (fd, backlog))
ASD_CALL(connect, Kind::kPlain, , (int fd, const sockaddr *to, socklen_t size), (fd, to, size))
ASD_CALL(accept4, Kind::kMakes, , (int fd, sockaddr *from, socklen_t *size, int flags), (fd, from, size, flags))
ASD_CALL(getsockopt, Kind::kPlain, noexcept, (int fd, int level, int name, void *value, socklen_t *size), (fd, level, name, value, size))
ASD_CALL(poll, Kind::kWaits, , (pollfd *fds, nfds_t number, int limit_ms), (fds, number, limit_ms))
ASD_TRANSFER(pread, (int fd, void *bytes, size_t count, off_t offset), (fd, bytes, count, offset))
ASD_TRANSFER(pwrite, (int fd, const void *bytes, size_t count, off_t offset), (fd, bytes, count, offset))
ASD_TRANSFER(recv, (int fd, void *bytes, size_t count, int flags), (fd, bytes, count, flags))
ASD_TRANSFER(send, (int fd, const void *bytes, size_t count, int flags), (fd, bytes, count, flags))
// clang-format on
}

namespace {

using namespace asd_host;
using namespace asd_test;

constexpr std::uint32_t kSize = 512;
constexpr std::uint32_t kPlace = 32; // of the record
const Bytes kOld(16, 1), kNew(16, 7);

std::size_t descriptors() {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator()));
}

// Does the action while calls fail.
template <typename Action>
auto struck(Action action) {
    t_asked = true;
    g_fault.armed = true;
    auto outcome = action();
    g_fault.armed = false;
    t_asked = false;
    return outcome;
}

std::string reason_of(gint32 status) {
    return status == 0 ? "" : g_strerror(status & 0xFFFF);
}

// What operations are done with and to; a new one for each time.
struct Site {
    ScratchFolder scratch;
    const fs::path &folder = scratch.path();
    std::string mistake;
    PartConfig config{.name = "bp/0", .file = {}, .size = kSize, .page_size = 32, .write_cycle_us = 0};
    std::unique_ptr<Part> part;

    [[nodiscard]] std::string opened(std::unique_ptr<Part> *as) {
        mistake.clear();
        *as = Part::open(
            config, {folder / "image", folder / "intents", milliseconds(20)}, [] { return false; }, &mistake);
        return mistake;
    }
    [[nodiscard]] std::string write(const Bytes &bytes) { return reason_of(part->write(kPlace, bytes, false)); }
    // One more line of it, and no torn one.
    [[nodiscard]] bool keep_change() const {
        const ItemConfig item{.name = "ASD14", .length = 4, .chips = {}};
        History history;
        history.set_folder(folder);
        const std::string before = history.lines("");
        history.add(item, Caller("IPMI", [] { return std::string("uid 7"); }), {kOld, kNew, {}}, kNew);
        return history.lines("").size() > before.size();
    }
    [[nodiscard]] Bytes held() const {
        const Bytes all = content_of(folder / "image");
        return all.size() != kSize ? all : Bytes(all.begin() + kPlace, all.begin() + kPlace + 16);
    }
    void open_written() {
        ASSERT_EQ(opened(&part), "");
        ASSERT_EQ(write(kOld), "");
    }
    // As another controller's crash leaves them.
    void leave_cut_write() {
        open_written();
        ASSERT_EQ(IntentFile(folder / "intents", config.name, kSize).save({config.name, kPlace, kOld, kNew}), 0);
        Bytes image = content_of(folder / "image");
        std::fill_n(image.begin() + kPlace, 5, 0x5A);
        ASSERT_EQ(replace_file(folder / "image", image, 0600), 0);
    }
    // Never what a cut has left, unless the disk itself has lost what would mend it.
    [[nodiscard]] std::string read() {
        Bytes bytes(16);
        const std::string reason = reason_of(part->read(kPlace, bytes));
        const Fault fault = g_fault.fault;
        const bool lossless = fault == Fault::kShortage || fault == Fault::kInterrupt || fault == Fault::kPiece;
        EXPECT_TRUE(!reason.empty() || !lossless || bytes == kOld || bytes == kNew) << testing::PrintToString(bytes);
        return reason;
    }
    [[nodiscard]] bool holds_new_after_restart(bool or_old) {
        std::unique_ptr<Part> restarted;
        EXPECT_EQ(opened(&restarted), "");
        return held() == kNew || (or_old && held() == kOld);
    }
};

struct Operation {
    const char *name;
    std::function<void(Site &)> prepare;
    std::function<std::string(Site &)> act; // what it says; nothing when it is done
    std::function<bool(Site &, bool done)> whole;
};

std::ostream &operator<<(std::ostream &out, const Operation &operation) {
    return out << operation.name;
}

// clang-format off
const Operation kOperations[] = {
    {"a new part", {}, [](Site &site) { return site.opened(&site.part); },
     [](Site &site, bool done) { return site.held() == Bytes(16, 0xFF) || (!done && !fs::exists(site.folder / "image")); }},
    {"a start after a cut write", [](Site &site) { site.leave_cut_write(), site.part.reset(); },
     [](Site &site) {
         const std::string said = site.opened(&site.part);
         return said.empty() ? site.read() : said;
     }, {}},
    {"a read after a cut write", [](Site &site) { site.leave_cut_write(); },
     [](Site &site) {
         site.part->look(true);
         return site.read();
     }, {}},
    {"a write after a cut write", [](Site &site) { site.leave_cut_write(); }, [](Site &site) { return site.write(kNew); },
     [](Site &site, bool done) { return !done || site.holds_new_after_restart(false); }},
    {"a write", [](Site &site) { site.open_written(); }, [](Site &site) { return site.write(kNew); },
     [](Site &site, bool done) { return site.holds_new_after_restart(!done); }},
    {"a look", [](Site &site) { site.open_written(); },
     [](Site &site) {
         site.part->look(true);
         const Bytes intent = content_of(site.folder / "intents" / "bp%2F0.intent");
         return std::ranges::count(intent, 0) == std::ssize(intent) ? site.part->sight().reason : "the write's bytes stay";
     }, {}},
    {"values that are kept", [](Site &site) { StateStore store; ASSERT_TRUE(store.open(site.folder / "values", &site.mistake) && store.put(1, kOld) == 0); },
     [](Site &site) {
         StateStore store;
         return !store.open(site.folder / "values", &site.mistake) ? site.mistake : store.put(1, kNew) == 0 ? "" : "not stored";
     },
     [](Site &site, bool done) {
         StateStore store;
         EXPECT_TRUE(store.open(site.folder / "values", &site.mistake)) << site.mistake;
         return store.get(1) == kNew || (!done && store.get(1) == kOld);
     }},
    {"emulated lines", {}, [](Site &site) {
         WriteProtectLines lines;
         return lines.open(site.folder / "lines", &site.mistake) && lines.write(7, 1) == 0 ? "" : site.mistake;
     }, {}},
    {"a role", [](Site &site) { fs::create_directory(site.folder / "slot0"); }, [](Site &site) {
         BoardState board;
         Options options;
         options.run_dir = options.state_dir = site.folder;
         return !board.open(options, {}, &site.mistake) ? site.mistake : board.role() == BOARD_MASTER ? "" : "no role";
     }, {}},
    {"a lock", {}, [](Site &site) {
         LockFile lock(site.folder / "lock");
         const int error = lock.take();
         return error != 0 ? g_strerror(error) : lock.sign() != 0 ? "not signed" : lock.holder().empty() ? "not named" : "";
     }, {}},
    {"a folder", {}, [](Site &site) { return make_own_folder(site.folder / "a" / "b", 0700, true); },
     [](Site &site, bool done) { return !done || fs::is_directory(site.folder / "a" / "b"); }},
    {"the history", [](Site &site) { (void)site.keep_change(); }, [](Site &site) { return site.keep_change() ? "" : "not kept"; }, {}},
    {"a server", {}, [](Site &site) {
         IpmiRegistry none;
         auto door = open_dummy_door(site.folder / "ipmi.sock", none, 4, &site.mistake);
         return door != nullptr && door->stop(milliseconds(kLimitMs)) ? "" : site.mistake;
     },
     [](Site &site, bool done) { return done || g_fault.fault == Fault::kDead || !fs::exists(site.folder / "ipmi.sock"); }},
    {"the host's door", {}, [](Site &site) {
         IpmiRegistry none;
         auto door = HostDoor::open(site.folder / "host.sock", none, &site.mistake);
         return door != nullptr && door->stop(milliseconds(kLimitMs)) ? "" : site.mistake;
     }, {}},
    {"the D-Bus service", [](Site &site) { fs::create_directories(site.folder / "slot0"); }, [](Site &site) {
         Host host;
         host.options.run_dir = host.options.state_dir = site.folder;
         const ModuleRegistry module;
         const IpmiRegistry none;
         auto service = DbusService::open(host, module, none, &site.mistake);
         return service != nullptr && service->stop(milliseconds(kLimitMs)) ? "" : site.mistake;
     }, {}},
    // A part of a wrong size keeps the platform from running, so that it can be started again and again.
    {"a start", [](Site &site) { ASSERT_EQ(replace_file(site.folder / "wrong", Bytes(3), 0600), 0); },
     [](Site &site) {
         Options options;
         options.run_dir = site.folder / "run";
         options.state_dir = site.folder / "state";
         Enclosure enclosure;
         enclosure.parts = {site.config, site.config};
         enclosure.parts[0].file = site.folder / "wrong";
         enclosure.parts[1].file = "parts/a";
         enclosure.parts[1].write_protect_line = 55;
         std::string others;
         for (const std::string &mistake : host_start(options, enclosure)) {
             others += mistake.find("holds 3 bytes") == std::string::npos ? mistake : "";
         }
         return others;
     }, {}},
    {"a look at the locks",
     {},
     [](Site &site) {
         Host host;
         host.instance_lock = LockFile(site.folder / "instance");
         host.state_lock = LockFile(site.folder / "state");
         std::string said = host_watch(host);
         fs::remove(site.folder / "instance"), fs::remove(site.folder / "state");
         said += host_watch(host);
         return said.empty() && host.state_lock_failed ? "not locked" : said;
     }, {}},
    {"a task", {}, [](Site &) {
         gulong task = 0;
         return reason_of(vos_task_create(&task, "task", [](void *) {}, nullptr, 0));
     }, {}},
};
// clang-format on

// With threads of their own: a request to a peer, on a new connection and on the one that is kept.
const Operation kServing = {
    "a peer's requests",
    {},
    [](Site &site) {
        static constexpr std::array kRows{ipmi_row(1, "", 0, 0, 255, "")};
        IpmiRegistry registry;
        EXPECT_TRUE(registry.add(kRows));
        auto link = open_peer_link(
            site.folder / "link", registry, [](std::string_view) { return kCompleted; }, &site.mistake);
        PeerLines lines(std::chrono::seconds(1));
        gint32 status = link == nullptr ? kPeerAbsent : 0;
        for (int i = 0; i < 3 && status == 0; ++i) {
            IpmiResponse response;
            status = lines.request(1, site.folder / "link", {.netfn = 0x32, .cmd = 1, .data = kNew},
                                   milliseconds(kLimitMs), &response);
            EXPECT_TRUE(status != 0 || std::ranges::equal(std::span(response).subspan(1), kNew));
        }
        const std::vector<fs::path> sockets{site.folder / "link"};
        const auto deadline = std::chrono::steady_clock::now() + milliseconds(kLimitMs);
        const bool reloaded = status == 0 && peers_reload(sockets, "ASD14", deadline) == Reloaded::kByMaster;
        const bool listens = lines.listens(1, site.folder / "link", {});
        link.reset();
        return reloaded && listens ? "" : "status " + std::to_string(status);
    },
    {}};

class Refusal : public testing::TestWithParam<Operation> {};

constexpr Fault kFaults[] = {Fault::kError,     Fault::kDead,  Fault::kShortage,
                             Fault::kInterrupt, Fault::kPiece, Fault::kNothing};

void sweep(const Operation &operation, Fault fault, Threads threads) {
    const char *call = "";
    std::size_t before = std::numeric_limits<std::size_t>::max();
    for (int nth = kUndisturbed; call != nullptr; ++nth) {
        Site site;
        if (operation.prepare) {
            operation.prepare(site);
        }
        before = std::min(before, nth == kUndisturbed ? before : descriptors()); // clients' threads end a moment later
        g_fault.threads = threads;
        g_fault.fault = fault;
        g_fault.left = nth < 0 ? std::numeric_limits<int>::max() : nth;
        g_fault.struck = nullptr;
        const std::string said = struck([&] { return operation.act(site); });
        call = nth == kUndisturbed ? "" : g_fault.struck.load();
        SCOPED_TRACE(std::string(operation.name) + ", fault " + std::to_string(static_cast<int>(fault)) + " of call " +
                     std::to_string(nth) + ", " + (call != nullptr ? call : "none") + ": " + said);
        EXPECT_TRUE(said.empty() || (call != nullptr && nth >= 0 && fault != Fault::kInterrupt));
        EXPECT_TRUE(eventually([before] { return descriptors() <= before; }));
        EXPECT_TRUE(!operation.whole || operation.whole(site, said.empty()));
        EXPECT_EQ(operation.act(site), "");
        EXPECT_TRUE(!operation.whole || operation.whole(site, true));
    }
}

TEST_P(Refusal, IsSaidLeavesNothingAndIsOverWhenItEnds) {
    log_set(-1, false); // what each says is asked for; the log would be rationed
    for (const Fault fault : kFaults) {
        sweep(GetParam(), fault, Threads::kOwn);
    }
    log_set(kLogError, false);
}

INSTANTIATE_TEST_SUITE_P(Each, Refusal, testing::ValuesIn(kOperations));

// Who else could get at a folder, or has made the link that leads there.
TEST(SafeFolder, IsOnesOwnAlone) {
    const ScratchFolder scratch;
    const fs::path folder = scratch.path() / "folder", link = scratch.path() / "link";
    EXPECT_EQ(make_own_folder(folder, 0700, true), "");
    const std::tuple<mode_t, bool, const char *> rows[] = {
        {0777, false, "plant files in it; chmod go-w"}, {0750, true, "get at it; chmod 0700"}, {0755, false, ""}};
    for (const auto &[mode, nobody_enters, mistake] : rows) {
        fs::permissions(folder, fs::perms(mode));
        EXPECT_NE(make_own_folder(folder, 0700, nobody_enters).find(mistake), std::string::npos) << mode;
    }
    fs::create_directory_symlink(folder, link);
    EXPECT_EQ(make_own_folder(link, 0700, false), "");
    if (geteuid() == 0) {
        ASSERT_EQ(::lchown(link.c_str(), 65534, 65534), 0);
        EXPECT_NE(make_own_folder(link, 0700, false).find("is a link that user 65534 has made"), std::string::npos);
    }
    EXPECT_FALSE(open_own_file(scratch.path() / "link", 0600));
}

TEST(Serving, GoesOnWhenTheSystemRefuses) {
    log_set(-1, false);
    for (const Fault fault : kFaults) {
        sweep(kServing, fault, Threads::kOwn);
        if (fault != Fault::kDead) { // clients would wait for ever
            sweep(kServing, fault, Threads::kOthers);
        }
    }
    log_set(kLogError, false);
}

// A module that asks too early, or for nothing, is told so.
TEST(Contract, NullAndTheTimeBeforeTheStartAreRefused) {
    OBJ_HANDLE handle = 0;
    GVariant *value = nullptr;
    guint8 byte = 0;
    BOOL flag = 0;
    BOARD_MOS_E role = BOARD_MASTER;
    gulong task = 0;
    IPMI_REQ_MSG_HEAD_S nobody{};
    nobody.target_type = IPMI_MMC + 1;
    IPMI_REQ_MSG_HEAD_S peer{};
    peer.target_type = IPMI_MMC;
    IPMI_REQ_MSG_HEAD_S filled = peer;
    filled.src_len = 1;
    const VariantPtr some(g_variant_ref_sink(g_variant_new_byte(1)));
    const auto each = [](OBJ_HANDLE, gpointer) { return 0; };
    const auto handler = [](const gchar *, OBJ_HANDLE) { return 0; };
    const std::pair<int, gint32> rows[] = {
        // clang-format off
        {__LINE__, dfl_get_object_handle(nullptr, &handle)},   {__LINE__, dfl_get_object_handle("ASD14", nullptr)},
        {__LINE__, dfl_get_object_handle("ASD14", &handle)},   {__LINE__, dfl_get_referenced_object(1, "A", nullptr)},
        {__LINE__, dfl_get_referenced_object(1, "A", &handle)},
        {__LINE__, dfl_get_property_value(1, nullptr, &value)}, {__LINE__, dfl_get_property_value(1, "Value", nullptr)},
        {__LINE__, dfl_get_property_value(1, "Value", &value)}, {__LINE__, dfl_get_property_ubyte(1, nullptr, &byte)},
        {__LINE__, dfl_get_property_ubyte(1, "Ready", nullptr)}, {__LINE__, dfl_get_property_ubyte(1, "Ready", &byte)},
        {__LINE__, dfl_set_property_value(1, nullptr, some.get(), 0)}, {__LINE__, dfl_set_property_value(1, "Ready", nullptr, 0)},
        {__LINE__, dfl_set_property_value(1, "Ready", some.get(), 0)},
        {__LINE__, dfl_foreach_object(nullptr, each, nullptr, 0)}, {__LINE__, dfl_foreach_object("A", nullptr, nullptr, 0)},
        {__LINE__, dfl_foreach_object("A", each, nullptr, 0)}, {__LINE__, dfl_bind_object_alias(1, 1)},
        {__LINE__, dfl_get_binded_object(nullptr, 1, &handle)}, {__LINE__, dfl_get_binded_object("A", 1, nullptr)},
        {__LINE__, dfl_get_binded_object("A", 1, &handle)},    {__LINE__, dfl_add_object_handler(nullptr)},
        {__LINE__, dfl_del_object_handler(handler)},           {__LINE__, dfl_block_read(1, nullptr, 0, 1, &byte)},
        {__LINE__, dfl_block_read(1, "Storage", 0, 1, nullptr)}, {__LINE__, dfl_block_write(1, "Storage", 0, 1, &byte)},
        {__LINE__, vos_task_create(nullptr, "t", [](void *) {}, nullptr, 0)}, {__LINE__, vos_thread_mutex_sem4_create("s", nullptr)},
        {__LINE__, vos_task_create(&task, "t", nullptr, nullptr, 0)}, {__LINE__, ipmi_send_request(&peer, nullptr, 0, nullptr, 1)},
        {__LINE__, ipmi_send_request(&nobody, nullptr, 0, nullptr, 1)}, {__LINE__, ipmi_send_request(&filled, nullptr, 0, nullptr, 1)},
        {__LINE__, ipmi_send_request(&peer, nullptr, 1, nullptr, 1)},
        {__LINE__, BSP_GetBoardSlot(nullptr)},                 {__LINE__, BSP_GetBoardSlot(&byte)},
        {__LINE__, BSP_GetBoardMasterOrSlaveState(&role)},     {__LINE__, BSP_GetEquipMode(&byte)},
        {__LINE__, BSP_IsCpldUpgrading(&byte)},                {__LINE__, BSP_GetPowerStandByStatus(&flag)},
        {__LINE__, BSP_ReadCpldBit(1, 32, &byte)},             {__LINE__, BSP_ReadCpldBit(1, 1, &byte)},
        {__LINE__, BSP_GetCpldRam(1, &byte)},                  {__LINE__, BSP_SetCpldRam(1, 1)},
        {__LINE__, BSP_SetWwn2CpldRam(nullptr, 6)},            {__LINE__, BSP_SetPcieSasModelToCpldRam(1)},
        {__LINE__, BMC_FlashReadCfgPara(1, 1, &byte)},         {__LINE__, BMC_FlashWriteCfgPara(1, 0, &byte)},
        {__LINE__, BMC_FlashWriteCfgPara(1, 1, &byte)},        {__LINE__, gpio_write(55, 1)},
        {__LINE__, ipmi_send_response(nullptr, 1, &byte)},     {__LINE__, ipmi_send_request(nullptr, nullptr, 0, nullptr, 1)},
        {__LINE__, static_register_module(nullptr)},           {__LINE__, static_declaration_class(nullptr)},
        {__LINE__, static_declaration_class_method(nullptr, "M", nullptr)}, {__LINE__, static_declaration_class_method("A", nullptr, nullptr)},
        {__LINE__, static_declaration_class_method("A", "M", nullptr)}, {__LINE__, static_register_reboot_handler(nullptr)},
        {__LINE__, static_implementation_ipmicmd(1, nullptr)}, {__LINE__, static_register_debug_cmd(1, nullptr)},
        {__LINE__, static_complete_module_register()},         {__LINE__, static_module_init(-1, nullptr)},
        {__LINE__, static_module_start(nullptr, 0)},           {__LINE__, static_start_rpc_service()},
        // clang-format on
    };
    for (const auto &[line, status] : rows) {
        EXPECT_TRUE(status == kBadArgument || status == kUnsupported) << "line " << line << ": " << status;
    }
    const DFL_METHOD_FUNC method = [](const OBJ_HANDLE, GSList *, GSList *, GSList **) { return 0; };
    for (const gint32 status : {0, kBadArgument}) { // a second time
        EXPECT_EQ(static_declaration_class("A"), status);
        EXPECT_EQ(static_declaration_class_method("A", "M", method), status);
    }
    EXPECT_EQ(static_implementation_ipmicmd(0, nullptr) + static_register_debug_cmd(0, nullptr), 0);
    IpmiRegistry registry;
    EXPECT_TRUE(registry.add(standard_commands()) && registry.add(inventory_commands()));
    for (const auto rows_of : {standard_commands(), inventory_commands()}) {
        for (const IPMI_CMD_S &row : rows_of) {
            const Bytes data(row.max_length);
            const std::span<const std::uint8_t> sent(data);
            for (const auto length : {row.min_length, row.max_length}) {
                EXPECT_FALSE(registry.serve({.netfn = row.netfn, .cmd = row.cmd, .data = sent.first(length)}).empty());
            }
        }
    }
    EXPECT_EQ(dfl_get_object_name(1), nullptr);
    EXPECT_EQ(get_ipmi_src_data(nullptr), nullptr);
    EXPECT_EQ(get_ipmi_src_data_len(nullptr), 0);
    EXPECT_EQ(BSP_IsSmmBoard() + BSP_IsManuVersion() + BSP_GetBoardOnlineStatus(0), 0);
}

} // namespace
