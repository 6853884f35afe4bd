// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// How a command ends early.

#include <stdexcept>
#include <string>
#include <utility>

namespace asdctl {

inline constexpr int kDone = 0;
inline constexpr int kFailed = 1; // refused by the service, or something on the way to it failed
inline constexpr int kWrongUsage = 2;

// What failed and where, and what to do about it. Thrown, because a command ends at its first failure wherever that is;
// main prints it and ends the process.
class Failure : public std::runtime_error {
public:
    explicit Failure(const std::string &what, std::string advice = {}, int status = kFailed)
        : std::runtime_error(what), advice_(std::move(advice)), status_(status) {}

    [[nodiscard]] const std::string &advice() const { return advice_; } // whole sentences; may be empty
    [[nodiscard]] int status() const { return status_; }

private:
    std::string advice_;
    int status_;
};

// The command line asks for something that can't be asked for.
class WrongUsage : public Failure {
public:
    explicit WrongUsage(const std::string &what, std::string advice = {})
        : Failure(what, std::move(advice), kWrongUsage) {}
};

} // namespace asdctl
