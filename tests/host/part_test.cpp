// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0

// Writes to a part: power cuts at every step and at every step of the recovery, faults, and the file behind a part.

#include "arith.h"
#include "host_test.h"
#include "intent_record.h"
#include "log.h"
#include "part.h"
#include "part_reach.h"
#include "record_write.h"

#include <random>

#include <fcntl.h>
#include <sys/stat.h>

namespace {

using namespace asd_host;
using namespace asd_test;

constexpr std::uint32_t kSize = 512;
constexpr int kNever = -1;
constexpr std::uint32_t kLengthOfDoubleCuts = 34; // longer ones would take too long

// --- a part and a state folder in memory, losing power on demand ---

struct LostPower {};

enum Tear { kOld, kErased, kZero, kRandom, kTears }; // what a cut leaves of a page's bytes that were not yet stored

struct Faults {
    bool silent = false;              // protected: acknowledged, not stored
    int fail_page = kNever;           // this page write of the call fails ...
    bool fail_after = false;          // ... after storing its bytes (a lost acknowledge)
    bool dead = false;                // reads fail too
    int bad_reads = 0;                // so many reads after the last page write come back wrong
    int save = 0, drop = 0, sync = 0; // errno values
};

class Bench final : public PageDevice, public IntentLog {
public:
    Bytes bytes = Bytes(kSize);
    Bytes log;
    Bytes dropped; // the log that a cut brings back
    Faults faults;
    std::uint32_t page_size = 32;
    Tear tear = kOld;
    int cut_at = kNever;     // the step power is lost at
    int step = 0, pages = 0; // of them so far; page writes

    gint32 read(std::uint32_t offset, std::span<std::uint8_t> out) override {
        std::ranges::copy(std::span(bytes).subspan(offset, out.size()), out.begin());
        if (pages > 0 && faults.bad_reads > 0) {
            --faults.bad_reads;
            out.front() ^= 0x40U;
        }
        return faults.dead ? kPartAbsent | ETIMEDOUT : 0;
    }
    gint32 write_page(std::uint32_t offset, std::span<const std::uint8_t> data) override {
        EXPECT_EQ(offset / page_size, (offset + data.size() - 1) / page_size) << "a write across a page's end wraps";
        for (std::size_t stored = 0; stored <= data.size(); ++stored) {
            if (due()) {
                tear_page(offset, data, stored);
                throw LostPower{};
            }
        }
        const bool fails = pages++ == faults.fail_page;
        if (!faults.silent && (!fails || faults.fail_after)) {
            std::ranges::copy(data, std::span(bytes).subspan(offset).begin());
        }
        return fails ? kTransferFailed | ETIMEDOUT : 0;
    }
    gint32 sync() override {
        cut_if_due();
        return faults.sync == 0 ? 0 : kTransferFailed | faults.sync;
    }
    int load(std::optional<Intent> *intent) override {
        *intent = decode_intent(log);
        log = *intent ? log : Bytes();
        return 0;
    }
    int save(const Intent &intent) override {
        const Bytes next = encode_intent(intent);
        if (due()) {
            log.assign(next.begin(), next.begin() + 30); // torn
            throw LostPower{};
        }
        return replace_log(next, faults.save, {});
    }
    int drop(Drop when) override { return replace_log({}, faults.drop, when == Drop::kSoon ? log : Bytes()); }
    void lose_power() { log = log.empty() ? dropped : log; }

private:
    bool due() { return step++ == cut_at; }
    void cut_if_due() {
        if (due()) {
            throw LostPower{};
        }
    }
    int replace_log(const Bytes &next, int error, const Bytes &before) {
        cut_if_due();
        dropped = error == 0 ? before : Bytes();
        log = error == 0 ? next : log;
        cut_if_due();
        return error;
    }
    void tear_page(std::uint32_t offset, std::span<const std::uint8_t> data, std::size_t stored) {
        for (std::size_t i = 0; i < data.size(); ++i) {
            std::uint8_t &byte = bytes[offset + i];
            const std::uint8_t torn[] = {byte, 0xFF, 0x00, static_cast<std::uint8_t>(random_())};
            byte = i < stored ? data[i] : torn[tear];
        }
    }
    std::minstd_rand random_;
};

// --- the cut engine ---

struct Geometry {
    std::uint32_t page, align, length; // align: offset of the record in its page
    bool record;                       // with a checksum at its end; else any bytes
};

void close_record(std::span<std::uint8_t> record) {
    const std::size_t length = record.size() - 2;
    const unsigned checksum = arith_make_crc_checksum(0, record.data(), static_cast<guint32>(length));
    record[length] = static_cast<std::uint8_t>(checksum & 0xFFU);
    record[length + 1] = static_cast<std::uint8_t>(checksum >> 8U);
}

class CutRun {
public:
    CutRun(const Geometry &geometry, Tear tear) : offset_(128 + geometry.align), page_(geometry.page) {
        std::minstd_rand random(geometry.page * 1000 + geometry.align * 10 + geometry.length);
        std::ranges::generate(before_, [&] { return static_cast<std::uint8_t>(random()); });
        after_ = before_;
        for (std::uint32_t i = 0; i < geometry.length; ++i) {
            // Some bytes stay, so that with small pages whole ones do.
            if (i < geometry.length / 2 || i >= geometry.length / 2 + 20) {
                after_[offset_ + i] = static_cast<std::uint8_t>(random());
            }
        }
        if (geometry.record) {
            close_record(std::span(before_).subspan(offset_, geometry.length));
            close_record(std::span(after_).subspan(offset_, geometry.length));
        }
        bench_.tear = tear;
        bench_.page_size = page_;
        data_ = std::span(after_).subspan(offset_, geometry.length);
    }

    Bench &bench() { return bench_; }

    // Power is lost at that step of the write, and at that one of the recovery. False: the run was over before.
    bool cut(int write_step, int recovery_step) {
        bench_.bytes = before_;
        bench_.log.clear(), bench_.dropped.clear();
        const bool write_cut = cut_at(write_step, [&] { return writer().write(bench_, offset_, data_); });
        bench_.lose_power();
        const bool recovery_cut = cut_at(recovery_step, [&] { return writer().recover(bench_); });
        return recovery_step == kNever ? write_cut : recovery_cut;
    }

    // The intent is still there when the part holds the other record. True: that one stays, whether the folder takes
    // the intent back or, being read-only, never does.
    [[nodiscard]] bool leaves(const Bytes &other, int drop_error) {
        bench_.bytes = other;
        const auto old_bytes = std::span(before_).subspan(offset_, data_.size());
        bench_.log =
            encode_intent({"part", offset_, {old_bytes.begin(), old_bytes.end()}, {data_.begin(), data_.end()}});
        bench_.faults.drop = drop_error;
        const bool settled = writer().recover(bench_) == 0 && writer().recover(bench_) == 0;
        return settled && bench_.bytes == other && bench_.log.empty() == (drop_error == 0);
    }
    // What came later: it differs from the intent's new bytes in one byte and in its checksum.
    [[nodiscard]] Bytes later(std::size_t at) const {
        Bytes bytes = after_;
        bytes[offset_ + at] ^= 0x21U;
        close_record(std::span(bytes).subspan(offset_, data_.size()));
        return bytes;
    }

    // After a restart without a cut: old or new, nothing beside it touched, nothing left to do, and writable again.
    [[nodiscard]] bool whole() {
        bench_.cut_at = kNever;
        bench_.lose_power();
        const bool recovered = writer().recover(bench_) == 0;
        const bool one_of_both = bench_.bytes == before_ || bench_.bytes == after_;
        const int pages = bench_.pages;
        const bool again = writer().recover(bench_) == 0 && bench_.pages == pages && bench_.log.empty();
        return recovered && one_of_both && again && writer().write(bench_, offset_, data_) == 0 &&
               bench_.bytes == after_;
    }

private:
    RecordWriter writer() { return {"part", {kSize, page_}, &bench_}; }
    bool cut_at(int step, const std::function<gint32()> &call) {
        bench_.step = 0;
        bench_.cut_at = step;
        try {
            EXPECT_EQ(call(), 0);
        } catch (const LostPower &) {
            return true;
        }
        return false;
    }

    Bench bench_;
    std::uint32_t offset_;
    std::uint32_t page_;
    Bytes before_ = Bytes(kSize);
    Bytes after_;
    std::span<const std::uint8_t> data_;
};

TEST(PowerCut, AnywhereInAWriteOrItsRecoveryLeavesOldOrNew) {
    constexpr std::pair<std::uint32_t, bool> kPlaces[] = {{0, false},  {0, true},   {1, false},
                                                          {30, false}, {31, false}, {31, true}};
    log_set(kLogError, false); // each recovery says what it finishes
    int cuts = 0;
    const auto cut_everywhere = [&cuts](const Geometry &geometry, Tear tear) {
        CutRun run(geometry, tear);
        for (int step = 0; run.cut(step, kNever); ++step, ++cuts) {
            ASSERT_TRUE(run.whole()) << "cut at step " << step;
            for (int again = 0; geometry.length == kLengthOfDoubleCuts && run.cut(step, again); ++again, ++cuts) {
                ASSERT_TRUE(run.whole()) << "cut at steps " << step << " and " << again;
            }
        }
        ASSERT_TRUE(run.whole());
    };
    for (const std::uint32_t page : {8U, 16U, 32U, 64U, 128U}) {
        for (const auto &[align, record] : kPlaces) {
            for (const std::uint32_t length : {3U, kLengthOfDoubleCuts, 130U}) {
                for (int tear = 0; tear < kTears; ++tear) {
                    SCOPED_TRACE("page " + std::to_string(page) + " align " + std::to_string(align) + " length " +
                                 std::to_string(length) + " tear " + std::to_string(tear));
                    ASSERT_NO_FATAL_FAILURE(cut_everywhere({page, align, length, record}, static_cast<Tear>(tear)));
                }
            }
        }
    }
    RecordProperty("cuts", cuts);
    EXPECT_GT(cuts, 105000);
}

TEST(PowerCut, AnIntentThatOutlivedItsWriteTouchesNoRecordThatChecks) {
    log_set(-1, false);
    for (const std::uint32_t page : {8U, 16U, 32U, 64U, 128U}) {
        for (const std::uint32_t length : {3U, 34U, 66U, 130U}) {
            CutRun run({page, 0, length, true}, kOld);
            for (std::size_t at = 0; at < length - 2; ++at) {
                EXPECT_TRUE(run.leaves(run.later(at), 0)) << "page " << page << " length " << length << " byte " << at;
                EXPECT_TRUE(run.leaves(run.later(at), EROFS)) << "length " << length << " byte " << at;
            }
        }
    }
    log_set(kLogError, false);
}

// The engine must be able to fail: without the intent it finds mixtures.
TEST(PowerCut, WithoutIntentMixturesAreFound) {
    CutRun run({32, 1, 34, false}, kErased);
    run.bench().faults.save = ENOSPC;
    int mixtures = 0;
    for (int step = 0; run.cut(step, kNever); ++step) {
        mixtures += run.whole() ? 0 : 1;
    }
    EXPECT_GT(mixtures, 30);
}

// --- faults ---

const struct {
    const char *name;
    Faults faults;
    gint32 status;
    bool intent_stays;  // after the failed write
    int pages_of_retry; // written by the same write once the fault is gone
} kFaultRows[] = {
    // clang-format off
    {"none",                                 {},                                    0, false, 0},
    {"protected: acknowledged, not stored",  {.silent = true},                      kTransferFailed | EIO, false, 3},
    {"first page refused",                   {.fail_page = 0},                      kTransferFailed | ETIMEDOUT, false, 3},
    {"second page refused",                  {.fail_page = 1},                      kTransferFailed | ETIMEDOUT, true, 2},
    {"last page stored, then an error",      {.fail_page = 2, .fail_after = true},  kTransferFailed | ETIMEDOUT, true, 0},
    {"part does not answer",                 {.dead = true},                        kPartAbsent | ETIMEDOUT, false, 3},
    {"first read-back wrong",                {.bad_reads = 1},                      0, false, 0},
    {"both read-backs wrong",                {.bad_reads = 2},                      kTransferFailed | EIO, true, 0},
    {"not synced: page cache proves nothing", {.sync = EIO},                        kTransferFailed | EIO, true, 3},
    {"not synced, and no intent either",     {.save = ENOSPC, .sync = EIO},         kTransferFailed | EIO, false, 3},
    {"state folder full",                    {.save = ENOSPC},                      0, false, 0},
    {"intent can't be removed",              {.drop = EROFS},                       0, true, 0},
    // clang-format on
};

struct Writing {
    Bench bench;
    RecordWriter writer{"part", {kSize, 32}, &bench};

    // Writes, with these faults, that number count times.
    gint32 write(std::uint32_t offset, std::size_t count, std::uint8_t number, const Faults &faults = {}) {
        bench.faults = faults;
        bench.pages = 0;
        return writer.write(bench, offset, Bytes(count, number));
    }
};

TEST(RecordWrites, FaultsAreReportedAndTheSameWriteThenSucceeds) {
    for (const auto &row : kFaultRows) {
        SCOPED_TRACE(row.name);
        Writing fresh;
        EXPECT_EQ(fresh.write(64, 70, 0x5A, row.faults), row.status); // 3 pages
        EXPECT_EQ(!fresh.bench.log.empty(), row.intent_stays);
        EXPECT_EQ(fresh.write(64, 70, 0x5A), 0);
        EXPECT_EQ(fresh.bench.pages, row.pages_of_retry);
        Bytes expected(kSize);
        std::fill_n(expected.begin() + 64, 70, 0x5A);
        EXPECT_EQ(fresh.bench.bytes, expected);
        EXPECT_TRUE(fresh.bench.log.empty());
    }
}

TEST(RecordWrites, BytesThatWereNotSyncedAreRewrittenBeforeTheirIntentGoes) {
    Writing part;
    ASSERT_NE(part.write(64, 70, 1, {.sync = EIO}), 0);
    part.bench.faults = {};
    for (const int pages : {3, 0}) { // once
        part.bench.pages = 0;
        EXPECT_EQ(part.writer.recover(part.bench), 0);
        EXPECT_EQ(part.bench.pages, pages);
    }
}

TEST(RecordWrites, AnIntentThatStayedDoesNotBringOldBytesBack) {
    Writing part;
    ASSERT_EQ(part.write(0, 16, 1, {.drop = EROFS}), 0);
    // One page, so the first intent would take it for torn.
    ASSERT_EQ(part.write(0, 16, 2, {.save = EROFS, .drop = EROFS}), 0);
    ASSERT_EQ(part.write(64, 16, 3, {.save = EROFS, .drop = EROFS}), 0);
    EXPECT_EQ(part.bench.bytes[0], 2);
    EXPECT_FALSE(part.writer.in_doubt(0, 16));
}

TEST(RecordWrites, AWornOutPageBlocksNeitherOtherRecordsNorNewerBytes) {
    Writing part;
    ASSERT_NE(part.write(0, 70, 1, {.fail_page = 1}), 0);
    EXPECT_TRUE(part.writer.in_doubt(69, 1));
    EXPECT_FALSE(part.writer.in_doubt(70, 100));
    EXPECT_EQ(part.write(128, 16, 2, {.fail_page = 0}), 0); // the recovery's page fails again
    EXPECT_TRUE(part.writer.in_doubt(0, 1));
    EXPECT_EQ(part.write(0, 70, 3, {.fail_page = 0}), 0);
    EXPECT_EQ(part.bench.bytes[69], 3);
    EXPECT_TRUE(part.bench.log.empty());
}

TEST(Judge, DecidesFromThePagesAlone) {
    const Intent intent{"part", 4, Bytes(24, 1), Bytes(24, 2)}; // pages of 8: 4, 8, 8 and 4 bytes
    const std::pair<std::string, Verdict> rows[] = {
        // clang-format off
        {"1111", Verdict::kOld},  {"2222", Verdict::kNew},  {"1221", Verdict::kTorn},    {"9111", Verdict::kTorn},
        {"2911", Verdict::kTorn}, {"2229", Verdict::kTorn}, {"9229", Verdict::kForeign}, {"9999", Verdict::kForeign},
        // clang-format on
    };
    for (const auto &[pages, verdict] : rows) {
        Bytes now;
        for (const std::size_t page : {0U, 1U, 1U, 2U, 2U, 3U}) { // 4 bytes each
            now.insert(now.end(), 4, static_cast<std::uint8_t>(pages[page] - '0'));
        }
        EXPECT_EQ(judge(intent, now, 8), verdict) << pages;
    }
}

// --- the file behind a part ---

class PartFile : public testing::Test {
protected:
    PartConfig config_{.name = "bp/0", .file = {}, .size = kSize, .page_size = 32, .write_cycle_us = 0};
    ScratchFolder folder_;
    fs::path intents_ = folder_.path() / "intents";
    fs::path image_ = folder_.path() / "chips" / "bp0";
    bool line_protects_ = false;
    milliseconds lock_limit_{30000};
    std::string mistake_;

    std::unique_ptr<Part> open() {
        return Part::open(
            config_, {image_, intents_, lock_limit_}, [this] { return line_protects_; }, &mistake_);
    }
    std::unique_ptr<Part> opened() {
        auto part = open();
        return part != nullptr ? std::move(part) : throw std::runtime_error(mistake_);
    }
    Bytes held() const { return content_of(image_); }
    void save_intent(std::uint8_t before) {
        ASSERT_EQ(IntentFile(intents_, config_.name, kSize).save({"bp/0", 32, Bytes(16, before), Bytes(16, 7)}), 0);
    }
    // As a crash leaves them: a torn record on the part and the intent of its write.
    void leave_cut_write() {
        Bytes torn = held();
        torn[40] ^= 0x55U;
        ASSERT_EQ(replace_file(image_, torn, 0600), 0);
        save_intent(0xFF);
    }
};

TEST_F(PartFile, AnUnchangedRecordCostsNoWearAndADateFarAheadDoesNotMatter) {
    std::unique_ptr<Part> part;
    EXPECT_EQ(logged([&] { part = opened(); }), Texts());
    EXPECT_EQ(part->write(0, Bytes(100, 0xFE), false) + part->write(0, Bytes(100, 0xFF), false), 0);
    const std::uint64_t before = part->page_cycles();
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(part->write(30, Bytes(40, 0x11), false), 0);
        EXPECT_EQ(part->page_cycles() - before, 3U); // 2, 32 and 6 bytes
    }
    const Bytes ended = content_of(intents_ / "bp%2F0.intent"); // it keeps the length of the longest
    part->look(false);
    const Bytes wiped = content_of(intents_ / "bp%2F0.intent");
    EXPECT_TRUE(ended.size() > 200 && ended[100] != 0 && wiped == Bytes(ended.size())) << testing::PrintToString(wiped);
    const timespec written_in_2096 = {.tv_sec = 4'000'000'000, .tv_nsec = 0}; // by a clock that 32 bits do not hold
    const timespec dates[] = {written_in_2096, written_in_2096};
    ASSERT_EQ(::utimensat(AT_FDCWD, image_.c_str(), dates, 0), 0);
    Bytes read(40);
    EXPECT_EQ(opened()->read(30, read), 0);
    EXPECT_EQ(read, Bytes(40, 0x11));
}

TEST_F(PartFile, FileOfAnotherSizeIsRefusedUntouched) {
    for (std::uint32_t *size : {&config_.size, &config_.page_size}) {
        const std::uint32_t usual = std::exchange(*size, 0);
        EXPECT_FALSE(open());
        EXPECT_TRUE(mistake_.ends_with(": part \"bp/0\" has no size or no page size")) << mistake_;
        *size = usual;
    }
    fs::create_directories(image_.parent_path());
    for (const std::size_t size : {0U, kSize - 1, kSize + 1}) {
        ASSERT_EQ(replace_file(image_, Bytes(size, 3), 0600), 0);
        EXPECT_FALSE(open());
        EXPECT_EQ(mistake_, image_.string() + ": holds " + std::to_string(size) +
                                " bytes, but part \"bp/0\" has 512; the file is neither extended nor cut");
        EXPECT_EQ(held(), Bytes(size, 3));
    }
}

TEST_F(PartFile, WhatIsInADevicesPlaceIsSaidOnceAndUsedWhenItIsTheDevice) {
    config_.kind = PartKind::kDevice;
    line_protects_ = true; // a device's own pin protects it, not we
    fs::create_directories(image_.parent_path());
    std::unique_ptr<Part> part;
    const struct {
        std::function<void()> put;
        gint32 status;
        std::size_t count; // of lines, once for reads and once for writes
        const char *said;
        PartSight seen;
    } rows[] = {
        // clang-format off
        {[&] { part = opened(); },                                           kPartAbsent | ENOENT,     1, "is absent", {Condition::kSilent, "No such file or directory"}},
        {[&] { ASSERT_EQ(replace_file(image_, Bytes(kSize, 0), 0600), 0); }, 0,                        0, "", {}},
        {[&] { ASSERT_EQ(::truncate(image_.c_str(), kSize - 1), 0); },       kTransferFailed | EINVAL, 1, "holds 511 bytes", {Condition::kWrongSize, "511 bytes instead of 512"}},
        {[&] { fs::remove(image_), fs::create_directory(image_); },          kTransferFailed | EISDIR, 2, "can't be read: ", {Condition::kSilent, "Is a directory"}},
        {[&] { fs::remove(image_); },                                        kPartAbsent | ENOENT,     2, ": No such", {Condition::kSilent, "No such file or directory"}},
        // clang-format on
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.said);
        Bytes read(4);
        const Texts lines = logged([&] {
            row.put();
            if (row.status == 0) {
                part->look(false); // it has come back, or the pause of a silent part would be waited for
            }
            EXPECT_EQ(part->write(0, Bytes(4, 9), false), row.status);
            EXPECT_EQ(part->read(0, read), row.status);
            EXPECT_EQ(part->read(0, read), row.status);
            part->look(true);
        });
        EXPECT_TRUE(part->sight() == row.seen) << part->sight().reason;
        EXPECT_EQ(read, Bytes(4, row.status == 0 ? 9 : 0));
        EXPECT_EQ(lines.size(), row.count) << testing::PrintToString(lines);
        EXPECT_TRUE(lines.empty() || lines.back().find(row.said) != lines.back().npos) << testing::PrintToString(lines);
        EXPECT_EQ(fs::exists(image_), row.status != (kPartAbsent | ENOENT)) << "never created";
    }
    fs::create_directory(image_);
    EXPECT_FALSE(open());
    EXPECT_EQ(mistake_, image_.string() + ": part \"bp/0\" cannot be opened: Is a directory");
}

TEST(PartReach, SilentPartIsTriedOnceAPause) {
    PartReach reach;
    int made = 0;
    const auto absent = [&made] { return ++made, kPartAbsent | ETIMEDOUT; };
    for (int failure = 0; failure < PartReach::kFailures; ++failure) {
        EXPECT_TRUE(reach.answering());
        EXPECT_EQ(reach.attempt(true, absent), kPartAbsent | ETIMEDOUT);
    }
    EXPECT_EQ(made, PartReach::kFailures);
    EXPECT_FALSE(reach.answering());
    const auto began = std::chrono::steady_clock::now();
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(reach.attempt(true, absent), kPartAbsent | ETIMEDOUT);
    }
    EXPECT_LE(made - PartReach::kFailures, 1 + (std::chrono::steady_clock::now() - began) / PartReach::kPause);
    EXPECT_EQ(reach.attempt(false, [] { return 0; }), 0);
    EXPECT_TRUE(reach.answering());
}

TEST(PartStatus, TellsAnAbsentPartFromAFailedTransfer) {
    using enum PartStep;
    const std::tuple<PartStep, int, gint32> rows[] = {
        // clang-format off
        {kOpen, ENOENT, kPartAbsent},     {kOpen, EIO, kPartAbsent},         {kOpen, EACCES, kTransferFailed},
        {kRead, ETIMEDOUT, kPartAbsent},  {kRead, EREMOTEIO, kPartAbsent},   {kRead, EIO, kTransferFailed},
        {kRead, ENXIO, kPartAbsent},      {kWrite, ENODEV, kPartAbsent},     {kWrite, EIO, kTransferFailed},
        {kOpen, ETIMEDOUT, kTransferFailed},                                 {kWrite, ETIMEDOUT, kTransferFailed},
        // clang-format on
    };
    for (const auto &[step, error, kind] : rows) {
        EXPECT_EQ(part_status(step, error), kind | error) << static_cast<int>(step);
    }
}

// A file of the kernel's, as the EEPROM driver's are, that not even root may open to write.
TEST_F(PartFile, DeviceThatIsReadOnlyIsSaidAtStartAndRead) {
    config_.kind = PartKind::kDevice;
    image_ = "/sys/kernel/notes";
    config_.size = static_cast<std::uint32_t>(fs::file_size(image_));
    std::unique_ptr<Part> part;
    expect_line("Part bp/0 can only be read: /sys/kernel/notes: ", [&] { part = opened(); });
    Bytes read(4);
    EXPECT_EQ(part->read(0, read), 0);
    part->look(false);
    EXPECT_EQ(part->sight().condition, Condition::kUnwritable);
    const gint32 status = part->write(0, read, false);
    EXPECT_TRUE(status == (kTransferFailed | EACCES) || status == (kTransferFailed | EROFS)) << status;
}

TEST_F(PartFile, CutWriteIsFinishedAtStartAndBeforeAnyoneReads) {
    const auto running = opened(); // say, the other controller's process
    line_protects_ = true;         // as at start
    for (const bool restart : {true, false}) {
        ASSERT_NO_FATAL_FAILURE(leave_cut_write());
        EXPECT_EQ(fs::status(intents_ / "bp%2F0.intent").permissions(), fs::perms(0600)) << "keys may be in it";
        const auto restarted = restart ? open() : nullptr;
        Bytes read(16);
        EXPECT_EQ(running->read(32, read), 0);
        EXPECT_EQ(read, Bytes(16, 7));
        EXPECT_TRUE(fs::is_empty(intents_ / "bp%2F0.intent"));
    }
    // An image that was taken away does not get one of its records back.
    save_intent(3);
    fs::remove(image_);
    expect_line(image_.string() + " is missing, though records were written", [&] { EXPECT_TRUE(open()); });
    EXPECT_EQ(held(), Bytes(kSize, 0xFF));
    EXPECT_TRUE(fs::is_empty(intents_ / "bp%2F0.intent"));
}

TEST_F(PartFile, WhatIsNoIntentIsSaidOnceAndWhatACrashLeftGoes) {
    ASSERT_TRUE(open());
    const fs::path intent = intents_ / "bp%2F0.intent";
    const std::pair<std::size_t, std::function<void()>> rows[] = {
        {1, [&] { ASSERT_EQ(replace_file(intent, Bytes(60, 'A'), 0600), 0); }},
        {1, [&] { ASSERT_EQ(::mkfifo(intent.c_str(), 0600), 0); }},
        {1, [&] { std::ofstream(intent) << 'A', fs::resize_file(intent, 1ULL << 36U); }},
        {3, [&] { fs::create_directories(intent / "full"); }}, // stays, so that no intent can be noted either
    };
    for (const auto &[said, put] : rows) {
        fs::create_directories(intents_);
        fs::remove(intent);
        put();
        for (const fs::path &leftover : {intent, image_}) {
            ASSERT_EQ(replace_file(leftover.string() + ".tmp", Bytes(9, 9), 0600), 0);
        }
        Bytes read(4);
        const Bytes written(4, static_cast<std::uint8_t>(said));
        const auto lines = logged([&] {
            const auto part = opened();
            EXPECT_EQ(part->read(0, read), 0);
            EXPECT_EQ(part->write(0, written, false), 0);
            EXPECT_EQ(part->read(0, read), 0);
        });
        EXPECT_EQ(read, written);
        ASSERT_EQ(lines.size(), said);
        EXPECT_NE(lines[0].find(intent.string() + " is no intent (it is "), std::string::npos) << lines[0];
        EXPECT_FALSE(fs::exists(intent.string() + ".tmp") || fs::exists(image_.string() + ".tmp"));
    }
}

TEST_F(PartFile, LockOfAnotherProcessIsWaitedForOnlySoLong) {
    lock_limit_ = milliseconds(400);
    const auto part = opened();
    Fd other(::open(image_.c_str(), O_RDWR | O_CLOEXEC));
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    ASSERT_EQ(::fcntl(other.get(), F_OFD_SETLK, &lock), 0);
    Bytes read(4);
    EXPECT_EQ(part->read(0, read), 0) << "readers share";
    EXPECT_EQ(part->write(0, Bytes(4, 1), false), kTransferFailed | ETIMEDOUT);
    EXPECT_EQ(held(), Bytes(kSize, 0xFF));
    lock.l_type = F_WRLCK;
    ASSERT_EQ(::fcntl(other.get(), F_OFD_SETLK, &lock), 0);
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(part->read(0, read), kTransferFailed | ETIMEDOUT);
    }
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5 * lock_limit_) << "not the whole wait again and again";
    other.reset();
    EXPECT_EQ(part->write(0, Bytes(4, 1), false), 0);
}

} // namespace
