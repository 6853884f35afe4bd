// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Holders: what has to be given back is given back when its holder leaves scope, and a message that a failure site may
// repeat is rationed. All of them are small, move-only or immobile, and do nothing else.

#include "board.h"
#include "platform_types.h"
#include "vos.h"

#include <array>
#include <atomic>
#include <span>
#include <utility>

// An owned reference to a GVariant, or none.
class Variant {
public:
    Variant() = default;
    // Takes over a new, floating value.
    static Variant sink(GVariant *value) { return Variant(value != nullptr ? g_variant_ref_sink(value) : nullptr); }
    ~Variant() { reset(); }
    Variant(Variant &&other) noexcept : value_(std::exchange(other.value_, nullptr)) {}
    Variant &operator=(Variant &&) = delete;
    Variant(const Variant &) = delete;
    Variant &operator=(const Variant &) = delete;

    [[nodiscard]] GVariant *get() const { return value_; }
    [[nodiscard]] explicit operator bool() const { return value_ != nullptr; }
    // For the platform to fill; what was held is released first.
    [[nodiscard]] GVariant **out() {
        reset();
        return &value_;
    }

private:
    explicit Variant(GVariant *value) : value_(value) {}
    void reset() {
        if (value_ != nullptr) {
            g_variant_unref(std::exchange(value_, nullptr));
        }
    }
    GVariant *value_ = nullptr;
};

// A zero-filled work buffer; empty for length 0 and when memory is short.
class WorkBuffer {
public:
    static WorkBuffer allocate(guint32 length) { return WorkBuffer(static_cast<guint8 *>(g_try_malloc0(length))); }
    ~WorkBuffer() { g_free(data_); }
    WorkBuffer(WorkBuffer &&other) noexcept : data_(std::exchange(other.data_, nullptr)) {}
    WorkBuffer &operator=(WorkBuffer &&) = delete;
    WorkBuffer(const WorkBuffer &) = delete;
    WorkBuffer &operator=(const WorkBuffer &) = delete;

    [[nodiscard]] guint8 *get() const { return data_; }
    [[nodiscard]] explicit operator bool() const { return data_ != nullptr; }

private:
    explicit WorkBuffer(guint8 *data) : data_(data) {}
    guint8 *data_;
};

// A semaphore held until the end of the scope or release(). timeout_ms 0 waits without limit.
class HeldLock {
public:
    static HeldLock take(gulong semaphore, guint32 timeout_ms) {
        return HeldLock(semaphore, vos_thread_sem4_p(semaphore, timeout_ms));
    }
    ~HeldLock() { release(); }
    HeldLock(const HeldLock &) = delete;
    HeldLock &operator=(const HeldLock &) = delete;

    [[nodiscard]] gint32 result() const { return result_; } // of the taking: 0 when it was obtained
    void release() {
        if (std::exchange(held_, false)) {
            (void)vos_thread_sem4_v(semaphore_); // nothing a caller could do
        }
    }

private:
    HeldLock(gulong semaphore, gint32 result) : semaphore_(semaphore), result_(result), held_(result == 0) {}
    gulong semaphore_;
    gint32 result_;
    bool held_;
};

// Bytes that one thread may read while another writes them, each byte whole. Used where a reader deliberately takes no
// lock and old beside new bytes are accepted.
template <std::size_t N>
class SharedBytes {
public:
    // Copies as many bytes as lie within the buffer.
    void load(std::size_t offset, std::span<guint8> out) const {
        for (std::size_t i = 0; i < out.size() && offset + i < N; ++i) {
            out[i] = bytes_[offset + i].load(std::memory_order_relaxed);
        }
    }
    void store(std::size_t offset, std::span<const guint8> in) {
        for (std::size_t i = 0; i < in.size() && offset + i < N; ++i) {
            bytes_[offset + i].store(in[i], std::memory_order_relaxed);
        }
    }

private:
    std::array<std::atomic<guint8>, N> bytes_{};
};

// Rations a message: at most allowance prints until more than quiet_ms have passed since the last print.
// Kept (log text): last print and allowance start at 0, so nothing is printed before the tick counter first passes
// quiet_ms. Atomic because several threads may fail at once; a race only miscounts a message.
class RateLimit {
public:
    constexpr RateLimit(guint32 quiet_ms, guint32 allowance) : quiet_ms_(quiet_ms), allowance_(allowance) {}

    // Call on each failure: true when the message is to be printed now.
    [[nodiscard]] bool admits() {
        const auto now =
            static_cast<guint32>(vos_tick_get()); // NOLINT(readability-redundant-casting): gulong is wider on 64 bit
        if (BSP_Diff_Uint32(last_.load(std::memory_order_relaxed), now) > quiet_ms_) {
            left_.store(allowance_, std::memory_order_relaxed);
        }
        const guint32 left = left_.load(std::memory_order_relaxed);
        if (left == 0) {
            return false;
        }
        last_.store(now, std::memory_order_relaxed);
        left_.store(left - 1, std::memory_order_relaxed);
        return true;
    }

private:
    guint32 quiet_ms_;
    guint32 allowance_;
    std::atomic<guint32> last_{0};
    std::atomic<guint32> left_{0};
};
