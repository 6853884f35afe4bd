// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#pragma once

// Scripted days in the life of a task: what the board does at which tick, and all that the task does about it.

#include "module_test.h"

struct Change {
    guint64 at; // with the first delay that ends at this tick or later; 0: before the task starts
    Arrange what;
};

struct Scene {
    const char *name;
    std::vector<Change> script; // in order
    guint64 until;              // the task ends inside the first delay that reaches this tick
    Texts timeline;
};

// True when the task ended by itself. It is ended in a pause of its own, not in one between two attempts at a chip,
// where a buffer would be lost.
inline bool run_script(VOS_TASK_ENTRY task, const std::vector<Change> &script, guint64 until) {
    std::size_t next = 0;
    const auto go_on = [&] {
        for (; next < script.size() && script[next].at <= fake::world().ticks; ++next) {
            script[next].what();
        }
    };
    go_on();
    fake::world().on_delay = go_on;
    const bool ended = fake::run_task(task, [&] {
        const std::string &delay = fake::world().events.back().line;
        return fake::world().ticks >= until && std::stoul(delay.substr(delay.find(' '))) >= 500;
    });
    fake::world().on_delay = {};
    return ended;
}

inline void play(VOS_TASK_ENTRY task, const std::vector<Change> &script, guint64 until) {
    EXPECT_FALSE(run_script(task, script, until)) << "the task ended";
}

// Each in a process of its own, because tasks remember.
inline void run_scenes(VOS_TASK_ENTRY task, const Arrange &build, const Texts &watched,
                       const std::vector<Scene> &scenes, gint32 max_level = 1) {
    for (const Scene &scene : scenes) {
        SCOPED_TRACE(scene.name);
        const auto body = [&] {
            fresh_world();
            build();
            fake::clear_journal();
            play(task, scene.script, scene.until);
            EXPECT_EQ(fake::timeline(watched, max_level), scene.timeline) << scene.name;
        };
        in_fresh_process(body);
    }
}

// "tick line" for each line.
inline Texts at(guint64 tick, Texts lines) {
    for (std::string &line : lines) {
        line = std::to_string(tick) + " " + line;
    }
    return lines;
}

inline Arrange role_set(BOARD_MOS_E role) {
    return [=] { fake::world().board.role = role; };
}

inline Arrange equip_mode_set(guint8 mode) {
    return [=] { fake::world().board.equip_mode = mode; };
}

inline Arrange idle_bit_set(guint8 value) {
    return [=] { fake::world().board.cpld_bits[{0x1F8, 1}] = value; };
}

inline Arrange upgrading_set(guint8 value) {
    return [=] { fake::world().board.cpld_upgrading = value; };
}

inline Arrange published_role(guint32 role) {
    return [=] { g_masterMode = role; };
}
