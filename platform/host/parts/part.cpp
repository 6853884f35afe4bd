// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

#include "part.h"

#include "atomic_file.h"
#include "clock.h"
#include "fd.h"
#include "log.h"
#include "part_reach.h"
#include "record_write.h"
#include "status.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <glib.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace asd_host {

namespace {

constexpr unsigned kImageMode = 0600; // keys are among the records
constexpr std::uint8_t kErased = 0xFF;
constexpr std::chrono::milliseconds kLockPoll{1};
constexpr std::chrono::milliseconds kShortestWait{10};

// --- locks ---

// Asks until it gets a 0, another error than "held by somebody", or the limit has passed (ETIMEDOUT).
template <typename Try>
[[nodiscard]] int poll_lock(std::chrono::milliseconds limit, Try attempt) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        const int error = attempt() == 0 ? 0 : errno;
        if (error != EAGAIN && error != EACCES && error != EINTR) {
            return error;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return ETIMEDOUT;
        }
        std::this_thread::sleep_for(kLockPoll);
    }
}

// F_RDLCK or F_WRLCK on the whole file; the kernel frees it with the descriptor, also when the process dies.
[[nodiscard]] int lock_file(const Fd &fd, int type, std::chrono::milliseconds limit) {
    struct flock lock = {};
    lock.l_type = static_cast<short>(type);
    lock.l_whence = SEEK_SET;
    return poll_lock(limit, [&] { return ::fcntl(fd.get(), F_OFD_SETLK, &lock); });
}

// --- the file behind a part ---

std::string size_mistake(const PartConfig &config, const std::filesystem::path &file, std::uint64_t held) {
    return file.string() + ": holds " + std::to_string(held) + " bytes, but part \"" + config.name + "\" has " +
           std::to_string(config.size) + "; the file is neither extended nor cut";
}

// Opens without blocking on what is no plain file. 0 or an errno value, with *held the file's size.
[[nodiscard]] int open_file(const std::filesystem::path &file, int access, Fd *fd, std::uint64_t *held) {
    *fd = Fd(::open(file.c_str(), access | O_CLOEXEC | O_NONBLOCK));
    struct stat facts = {};
    if (!*fd || ::fstat(fd->get(), &facts) != 0) {
        return errno;
    }
    if (S_ISDIR(facts.st_mode)) {
        return EISDIR; // a device's folder in sysfs, say, in place of the file in it
    }
    *held = S_ISREG(facts.st_mode) ? static_cast<std::uint64_t>(facts.st_size) : 0;
    return 0;
}

// The folder of the intents comes with the first write: before it there was nothing to lose.
void say_missing(const PartPaths &paths, const PartConfig &config, bool intent) {
    std::error_code unknown;
    if (std::filesystem::exists(paths.intent_dir, unknown)) {
        HOST_LOG(
            kLogError,
            "Part %s: %s is missing, though records were written beside it before; unless the part is new, stop the "
            "service and put the file back. It is created erased%s.",
            config.name.c_str(), paths.file.c_str(), intent ? ", and the intent of its last write dropped" : "");
    }
}

// Creates an image that does not exist, erased. Controllers that share it may start together: the lock on the folder
// keeps a second one from replacing what the first already writes to.
[[nodiscard]] int create_image(const PartPaths &paths, const PartConfig &config, IntentFile *intents) {
    std::error_code failed;
    const bool there = std::filesystem::exists(paths.file, failed);
    if (failed || (there && !has_leftover_temporary(paths.file))) {
        return failed.value();
    }
    const std::filesystem::path parent = paths.file.has_parent_path() ? paths.file.parent_path() : ".";
    std::filesystem::create_directories(parent, failed);
    const Fd folder(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) {
        return errno;
    }
    const auto attempt = [&] { return ::flock(folder.get(), LOCK_EX | LOCK_NB); };
    const int error = poll_lock(there ? std::chrono::milliseconds(0) : paths.lock_limit, attempt);
    if (error != 0) {
        return there ? 0 : error; // what is left over may be the file that the lock's holder writes
    }
    remove_leftover_temporary(paths.file);
    if (std::filesystem::exists(paths.file, failed) || failed) {
        return failed.value();
    }
    say_missing(paths, config, intents->exists());
    if (const int kept = intents->drop(IntentLog::Drop::kNow); kept != 0) {
        return kept; // an intent for an image that is gone would bring one of its records back
    }
    return replace_file(paths.file, std::vector<std::uint8_t>(config.size, kErased), kImageMode);
}

// An open file as the part it stands for.
class FileDevice final : public PageDevice {
public:
    FileDevice(const PartConfig &config, const Fd &fd, std::function<bool()> protects,
               std::atomic<std::uint64_t> *page_cycles)
        : config_(config), fd_(fd), protected_(std::move(protects)), page_cycles_(page_cycles) {}

    [[nodiscard]] gint32 read(std::uint32_t offset, std::span<std::uint8_t> out) override {
        return part_status(PartStep::kRead, pread_all(fd_.get(), out, offset));
    }

    [[nodiscard]] gint32 write_page(std::uint32_t offset, std::span<const std::uint8_t> bytes) override {
        const bool image = config_.kind == PartKind::kImage;
        if (image && protected_()) {
            return 0; // such a part acknowledges, and no write cycle occurs
        }
        if (const int error = pwrite_all(fd_.get(), bytes, offset); error != 0) {
            return part_status(PartStep::kWrite, error);
        }
        ++*page_cycles_;
        if (image) {
            std::this_thread::sleep_for(clock_real(1000) * config_.write_cycle_us / 1'000'000);
        }
        return 0;
    }

    [[nodiscard]] gint32 sync() override {
        if (config_.kind == PartKind::kDevice || ::fdatasync(fd_.get()) == 0) {
            return 0; // a device keeps what it acknowledged; its file has nothing to sync
        }
        return kTransferFailed | errno;
    }

private:
    const PartConfig &config_;
    const Fd &fd_;
    std::function<bool()> protected_;
    std::atomic<std::uint64_t> *page_cycles_;
};

} // namespace

gint32 part_status(PartStep step, int error) {
    if (error == 0) {
        return 0;
    }
    const bool driver_gone = error == ENXIO || error == ENODEV;
    const bool no_file = step == PartStep::kOpen && (error == ENOENT || error == EIO);
    const bool no_answer = step == PartStep::kRead && (error == ETIMEDOUT || error == EREMOTEIO);
    return (driver_gone || no_file || no_answer ? kPartAbsent : kTransferFailed) | error;
}

struct Part::Impl {
    PartConfig config;
    PartPaths paths;
    Protected protected_by_line;
    IntentFile intents;
    RecordWriter writer; // with the file's lock held
    std::mutex mutex;    // one transfer at a time; guards writer, intents and the next two
    bool unrecoverable =
        false; // the pending intent could not be settled: writes and reads behind a look try again, other reads don't
    bool replaced = false; // a file of another size has taken the place of the part's: said in the log
    int read_failure = 0;  // errno values that are said in the log
    int write_failure = 0;
    std::chrono::milliseconds patience; // with a holder of the lock
    PartReach reach;                    // guarded by mutex
    std::atomic<std::uint64_t> page_cycles = 0;
    // As the last look found the file; errors are errno values.
    std::atomic<int> stat_error = 0;  // it is not there
    std::atomic<int> read_error = 0;  // it gave no byte
    std::atomic<int> write_error = 0; // it can only be read
    std::atomic<bool> wrong_size = false;
    std::atomic<std::uint64_t> held_size = 0;

    Impl(const PartConfig &part, const PartPaths &where, Protected protects)
        : config(part), paths(where), protected_by_line(std::move(protects)),
          intents(where.intent_dir, part.name, part.size), writer(part.name, {part.size, part.page_size}, &intents),
          patience(where.lock_limit) {}

    [[nodiscard]] bool prepare(std::string *mistake);
    [[nodiscard]] bool check_file(std::string *mistake);
    [[nodiscard]] bool within(std::uint32_t offset, std::size_t length) const {
        return std::uint64_t{offset} + length <= config.size;
    }

    // The file opened and locked for one transfer: shared to read, alone to write. The descriptor frees the lock.
    [[nodiscard]] gint32 begin(int access, Fd *fd);
    [[nodiscard]] int lock(const Fd &fd, int access);
    // A byte of the file, when nobody has its lock.
    [[nodiscard]] gint32 touch();
    void look_at_file();
    // Says why a transfer failed, when that is news, and returns its status.
    [[nodiscard]] gint32 outcome(int access, gint32 status, const char *reason = nullptr);
    // Finishes what a crash left, with the file opened for it.
    void recover();
    void wipe_intent(); // unless somebody has the file's lock
    [[nodiscard]] gint32 begin_read(std::uint32_t offset, std::size_t length, Fd *fd);
    // With the mutex held.
    [[nodiscard]] gint32 read(std::uint32_t offset, std::span<std::uint8_t> out);
    [[nodiscard]] gint32 write(std::uint32_t offset, std::span<const std::uint8_t> data, bool chip_protected);
    [[nodiscard]] bool may_refuse() const { // an image costs no bus time: its file is looked at each time
        return config.kind == PartKind::kDevice;
    }
};

gint32 Part::Impl::begin(int access, Fd *fd) {
    std::uint64_t held = 0;
    if (const int error = open_file(paths.file, access, fd, &held); error != 0) {
        return outcome(access, part_status(PartStep::kOpen, error));
    }
    const bool was_replaced = std::exchange(replaced, held != config.size);
    if (replaced && !was_replaced) {
        HOST_LOG(kLogError, "%s.", size_mistake(config, paths.file, held).c_str());
    }
    if (replaced) {
        return kTransferFailed | EINVAL; // another file has taken its place
    }
    const int error = lock(*fd, access);
    if (error == 0) {
        return 0;
    }
    return outcome(access, kTransferFailed | error, error == ETIMEDOUT ? "another process keeps its lock" : nullptr);
}

// One stopped holder must not cost every try of every request the whole wait.
int Part::Impl::lock(const Fd &fd, int access) {
    const int error = lock_file(fd, access == O_RDONLY ? F_RDLCK : F_WRLCK, patience);
    patience = error == ETIMEDOUT ? std::max(patience / 8, kShortestWait) : paths.lock_limit;
    return error;
}

gint32 Part::Impl::outcome(int access, gint32 status, const char *reason) {
    int *const said = access == O_RDONLY ? &read_failure : &write_failure;
    const int error = status & kErrnoMask;
    if (std::exchange(*said, error) != error && error != 0) {
        HOST_LOG(kLogError, "Part %s can't be %s: %s: %s.", config.name.c_str(),
                 access == O_RDONLY ? "read" : "written", paths.file.c_str(), reason ? reason : g_strerror(error));
    }
    return status;
}

void Part::Impl::recover() {
    Fd fd;
    unrecoverable = true;
    if (const gint32 ret = begin(O_RDWR, &fd); ret != 0) {
        HOST_LOG(kLogError, "Part %s: a cut write can't be finished now (status 0x%x).", config.name.c_str(),
                 static_cast<unsigned>(ret));
        unrecoverable = !is_short_of_resources(ret & kErrnoMask);
        return;
    }
    // The lines protect at start, but the write that is finished here was allowed when it began.
    FileDevice device(
        config, fd, [] { return false; }, &page_cycles);
    const gint32 ret = writer.recover(device);
    unrecoverable = ret != 0 && !is_short_of_resources(ret & kErrnoMask); // else the next read tries again
}

// While the file is locked nobody is within a write: an intent that is there then is one that was left behind.
gint32 Part::Impl::begin_read(std::uint32_t offset, std::size_t length, Fd *fd) {
    if (const gint32 ret = begin(O_RDONLY, fd); ret != 0 || !intents.exists()) {
        return ret;
    }
    if (!unrecoverable) {
        fd->reset();
        recover();
        if (const gint32 ret = begin(O_RDONLY, fd); ret != 0) {
            return ret;
        }
    }
    return writer.in_doubt(offset, length) ? kTransferFailed | EIO : 0;
}

void Part::Impl::wipe_intent() {
    Fd fd;
    std::uint64_t held = 0;
    if (open_file(paths.file, O_RDWR, &fd, &held) == 0 && lock_file(fd, F_WRLCK, std::chrono::milliseconds(0)) == 0) {
        intents.wipe();
    }
}

gint32 Part::Impl::touch() {
    Fd fd;
    std::uint64_t held = 0;
    if (const int error = open_file(paths.file, O_RDONLY, &fd, &held); error != 0) {
        read_error = error;
        return outcome(O_RDONLY, part_status(PartStep::kOpen, error));
    }
    if (held != config.size || lock_file(fd, F_RDLCK, std::chrono::milliseconds(0)) != 0) {
        return 0; // the size is said elsewhere, and a holder of the lock finds out itself
    }
    std::uint8_t byte = 0;
    const int error = pread_all(fd.get(), {&byte, 1}, 0);
    read_error = error;
    return outcome(O_RDONLY, part_status(PartStep::kRead, error));
}

void Part::Impl::look_at_file() {
    struct stat facts = {};
    if (::stat(paths.file.c_str(), &facts) != 0) {
        stat_error = errno;
        return;
    }
    stat_error = 0;
    held_size = static_cast<std::uint64_t>(facts.st_size);
    wrong_size = S_ISREG(facts.st_mode) && held_size != config.size;
    // Opened, because a driver may refuse even root, which access() does not tell.
    const Fd fd(::open(paths.file.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK));
    write_error = fd ? 0 : errno;
}

bool Part::Impl::prepare(std::string *mistake) {
    if (config.size == 0 || config.page_size == 0) {
        *mistake = paths.file.string() + ": part \"" + config.name + "\" has no size or no page size";
        return false;
    }
    if (config.kind == PartKind::kImage) {
        if (const int error = create_image(paths, config, &intents); error != 0) {
            *mistake = paths.file.string() + ": the image of part \"" + config.name +
                       "\" cannot be created: " + g_strerror(error);
            return false;
        }
    }
    if (!check_file(mistake)) {
        return false;
    }
    if (Fd fd; intents.leftover() && begin(O_RDWR, &fd) == 0) {
        intents.remove_leftover();
    }
    if (intents.exists()) {
        recover();
    }
    wipe_intent(); // what a crash behind the last write has left
    return true;
}

bool Part::Impl::check_file(std::string *mistake) {
    Fd fd;
    std::uint64_t held = 0;
    const int error = open_file(paths.file, O_RDONLY, &fd, &held);
    if (error == 0 && held == config.size) {
        if (const int denied = open_file(paths.file, O_RDWR, &fd, &held); denied != 0) {
            HOST_LOG(kLogError, "Part %s can only be read: %s: %s.", config.name.c_str(), paths.file.c_str(),
                     g_strerror(denied));
        }
        return true;
    }
    if (error == 0) {
        *mistake = size_mistake(config, paths.file, held);
        return false;
    }
    if (config.kind == PartKind::kDevice && (part_status(PartStep::kOpen, error) & kPartAbsent) != 0) {
        HOST_LOG(kLogError, "Part %s is absent: %s: %s.", config.name.c_str(), paths.file.c_str(), g_strerror(error));
        read_failure = write_failure = error;
        return true;
    }
    *mistake = paths.file.string() + ": part \"" + config.name + "\" cannot be opened: " + g_strerror(error);
    return false;
}

Part::Part() = default;
Part::~Part() {
    if (impl_ != nullptr && impl_->intents.to_wipe()) {
        impl_->wipe_intent();
    }
}

std::unique_ptr<Part> Part::open(const PartConfig &config, const PartPaths &paths, Protected protected_by_line,
                                 std::string *mistake) {
    std::unique_ptr<Part> part(new Part());
    part->impl_ = std::make_unique<Impl>(config, paths, std::move(protected_by_line));
    if (!part->impl_->prepare(mistake)) {
        return nullptr;
    }
    return part;
}

gint32 Part::Impl::read(std::uint32_t offset, std::span<std::uint8_t> out) {
    Fd fd;
    if (const gint32 ret = begin_read(offset, out.size(), &fd); ret != 0) {
        return ret;
    }
    return outcome(O_RDONLY, part_status(PartStep::kRead, pread_all(fd.get(), out, offset)));
}

gint32 Part::Impl::write(std::uint32_t offset, std::span<const std::uint8_t> data, bool chip_protected) {
    Fd fd;
    if (const gint32 ret = begin(O_RDWR, &fd); ret != 0) {
        return ret;
    }
    const auto protects = [&] { return chip_protected || (protected_by_line && protected_by_line()); };
    FileDevice device(config, fd, protects, &page_cycles);
    const gint32 ret = writer.write(device, offset, data);
    unrecoverable = false; // what is left over may be within reach again
    return outcome(O_RDWR, ret);
}

gint32 Part::read(std::uint32_t offset, std::span<std::uint8_t> out) {
    if (!impl_->within(offset, out.size())) {
        return kBadArgument;
    }
    const std::lock_guard lock(impl_->mutex);
    return impl_->reach.attempt(impl_->may_refuse(), [&] { return impl_->read(offset, out); });
}

gint32 Part::write(std::uint32_t offset, std::span<const std::uint8_t> data, bool chip_protected) {
    if (!impl_->within(offset, data.size())) {
        return kBadArgument;
    }
    const std::lock_guard lock(impl_->mutex);
    return impl_->reach.attempt(impl_->may_refuse(), [&] { return impl_->write(offset, data, chip_protected); });
}

bool Part::probe() {
    std::uint8_t byte = 0;
    const std::lock_guard lock(impl_->mutex);
    impl_->reach.suspect();
    return (impl_->reach.attempt(false, [&] { return impl_->read(0, {&byte, 1}); }) & kPartAbsent) == 0;
}

bool Part::answering() const {
    return impl_->reach.answering();
}

void Part::look(bool transfer) {
    const int before = impl_->stat_error;
    impl_->look_at_file();
    const bool came_or_went = before != impl_->stat_error;
    const std::unique_lock lock(impl_->mutex, std::try_to_lock);
    if (lock && impl_->intents.to_wipe()) {
        impl_->wipe_intent();
    }
    if (lock && (transfer || came_or_went)) {
        impl_->unrecoverable = false; // what kept a cut write from being finished may be over
        impl_->reach.suspect();
        (void)impl_->reach.attempt(false, [&] { return impl_->touch(); });
    }
}

PartSight Part::sight() const {
    if (!impl_->reach.answering()) {
        return {.condition = Condition::kSilent, .reason = g_strerror(impl_->reach.last_failure() & kErrnoMask)};
    }
    for (const int error : {impl_->stat_error.load(), impl_->read_error.load()}) {
        if (error != 0) {
            return {.condition = Condition::kSilent, .reason = g_strerror(error)};
        }
    }
    if (impl_->wrong_size) {
        return {.condition = Condition::kWrongSize,
                .reason = std::to_string(impl_->held_size) + " bytes instead of " + std::to_string(impl_->config.size)};
    }
    if (const int denied = impl_->write_error; denied != 0) {
        return {.condition = Condition::kUnwritable, .reason = g_strerror(denied)};
    }
    return {};
}

const std::filesystem::path &Part::file() const {
    return impl_->paths.file;
}

const PartConfig &Part::config() const {
    return impl_->config;
}

std::uint64_t Part::page_cycles() const {
    return impl_->page_cycles;
}

} // namespace asd_host
