// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
// report: the enclosure's state for people who were not there.

#include "archive.h"
#include "commands.h"
#include "failure.h"
#include "glib_holders.h"
#include "page.h"
#include "records.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

#include <glib.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/utsname.h>

namespace asdctl {

namespace {

constexpr const char *kLogLines = "2000"; // the last ones of the log

constexpr const char *kUsualStateDir = "/var/lib/asd";

struct ReportOptions {
    std::string file;
    std::string html;
    std::string log;
    std::string config = "/etc/asd/enclosure.json";
    PartChoice choice;
};

// "2026-03-01T10:15:02Z" with the first format, in UTC.
std::string time_text(std::time_t when, const char *format) {
    GDateTime *const time = g_date_time_new_from_unix_utc(when);
    const TextPtr text(g_date_time_format(time, format));
    g_date_time_unref(time);
    return text.get();
}

// ---- What other programs say ----

struct Said {
    std::string out;
    std::string errors;
    bool done = false;
};

Said said_by(std::vector<std::string> words) {
    std::vector<char *> argv;
    std::ranges::transform(words, std::back_inserter(argv), [](std::string &word) { return word.data(); });
    argv.push_back(nullptr);
    char *out = nullptr;
    char *errors = nullptr;
    int status = 0;
    const bool ran = g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_SEARCH_PATH, nullptr, nullptr, &out, &errors,
                                  &status, nullptr) != FALSE;
    const TextPtr out_text(out);
    const TextPtr error_text(errors);
    return {.out = out == nullptr ? "" : out,
            .errors = errors == nullptr ? "" : errors,
            .done = ran && g_spawn_check_wait_status(status, nullptr) != FALSE};
}

// What this program itself says of the service.
Said asked(const Context &context, const std::vector<std::string> &words) {
    std::vector<std::string> all = {"/proc/self/exe", "--run-dir", context.run_dir.string(), "--json"};
    if (context.slot_given) {
        all.insert(all.end(), {"--slot", std::to_string(context.slot)});
    }
    all.insert(all.end(), words.begin(), words.end());
    return said_by(std::move(all));
}

// ---- What is in the bundle ----

// The part's bytes without those of keys: what confidential records hold is zeros unless they are blank, and what no
// record holds is unless it is erased, because a key may have lain there once.
Bytes without_keys(const LoadedPart &part, const EnclosurePlan &enclosure) {
    Bytes bytes(part.bytes.size());
    std::ranges::transform(part.bytes, bytes.begin(),
                           [](std::uint8_t byte) { return byte == 0xFF ? byte : std::uint8_t{0}; });
    for (const RecordPlace &place : part.plan.records) {
        if (place.end() > bytes.size()) {
            continue;
        }
        const auto to = bytes.begin() + static_cast<std::ptrdiff_t>(place.offset);
        const auto item = std::ranges::find(enclosure.items, place.item, &ItemPlan::name);
        if (!item->confidential) {
            std::ranges::copy(part.record(place), to);
        } else if (check_record(part.record(place)).state != RecordState::kBlank) {
            std::fill_n(to, part.record(place).size(), std::uint8_t{0});
        }
    }
    return bytes;
}

// "0640 asd asd 32768 /var/lib/asd/backplane_a.bin"
std::string permissions_of(const std::filesystem::path &path) {
    struct stat facts = {};
    if (::lstat(path.c_str(), &facts) != 0) {
        return path.string() + ": " + g_strerror(errno) + "\n";
    }
    const passwd *const owner = ::getpwuid(facts.st_uid); // NOLINT(concurrency-mt-unsafe): no other threads
    const group *const group = ::getgrgid(facts.st_gid);  // NOLINT(concurrency-mt-unsafe): the same
    std::array<char, 16> mode{};
    (void)std::snprintf(mode.data(), mode.size(), "%06o", facts.st_mode);
    return std::string(mode.data()) + " " + (owner == nullptr ? std::to_string(facts.st_uid) : owner->pw_name) + " " +
           (group == nullptr ? std::to_string(facts.st_gid) : group->gr_name) + " " + std::to_string(facts.st_size) +
           " " + path.string() + "\n";
}

std::string permissions_below(const std::filesystem::path &folder) {
    std::string text = permissions_of(folder);
    std::error_code unreadable; // ends the list
    for (const auto &entry : std::filesystem::recursive_directory_iterator(
             folder, std::filesystem::directory_options::skip_permission_denied, unreadable)) {
        text += permissions_of(entry.path());
    }
    return text;
}

std::string permissions_text(const Context &context, const std::vector<LoadedPart> &parts,
                             const ReportOptions &options) {
    std::string text = "# mode owner group bytes path; the parts\n";
    for (const LoadedPart &part : parts) {
        text += permissions_of(part.file);
    }
    return text + "# the state folder\n" + permissions_below(options.choice.state_dir) + "# the run folder\n" +
           permissions_below(context.run_dir) + "# the enclosure file\n" + permissions_of(options.config);
}

std::string versions_text() {
    utsname system = {};
    (void)::uname(&system); // leaves them empty
    const Said package = said_by({"dpkg-query", "-W", "-f=${Package} ${Version} ${db:Status-Status}\n", "asd"});
    const Said release = said_by({"cat", "/etc/os-release"});
    return "asdctl " ASD_VERSION "\n" + (package.done ? package.out : "asd is not installed as a package\n") +
           system.sysname + " " + system.release + " " + system.version + " " + system.machine + "\n" + release.out;
}

std::string log_text(const ReportOptions &options) {
    const Said said = options.log.empty()
                          ? said_by({"journalctl", "--no-pager", "-o", "short-iso", "-u", "asd", "-n", kLogLines})
                          : said_by({"tail", "-n", kLogLines, "--", options.log});
    return said.done ? said.out
                     : "There is no log: " + (said.errors.empty() ? "no journal is here" : said.errors) +
                           "--log FILE puts another one here.\n";
}

constexpr const char *kReadMe = R"(What 'asdctl report' has put together, for people who were not there.

report.html       the enclosure's state; open it in a browser
status.json       what the service says, and
list.json         of its items; or why it does not
inspection.json   every record on the parts
parts/            the parts' bytes. Confidential records, and bytes that no record has, are zeros
enclosure.json    the enclosure file
log.txt           the last lines of the service's log
versions.txt      of asd, the kernel and the system
permissions.txt   of the parts' files and of the service's folders
)";

Bytes bundle_of(const Context &context, const EnclosurePlan &enclosure, const std::vector<LoadedPart> &parts,
                const ReportOptions &options, const std::string &page, const Said &status, std::time_t now) {
    Archive archive("asd-report-" + time_text(now, "%Y%m%dT%H%M%SZ"), now);
    archive.add("README", kReadMe);
    archive.add("report.html", page);
    archive.add("status.json", status.done ? status.out : Json({{"error", status.errors}}).dump(2) + "\n");
    const Said list = asked(context, {"list"});
    archive.add("list.json", list.done ? list.out : Json({{"error", list.errors}}).dump(2) + "\n");
    const std::vector<Finding> findings = findings_of(parts, "");
    archive.add("inspection.json",
                inspection_json(parts, findings, verdict_on(findings, unread_of(parts, ""))).dump(2) + "\n");
    for (const LoadedPart &part : parts) {
        if (!part.bytes.empty()) {
            archive.add("parts/" + (part.slot ? slot_folder(*part.slot) + "-" : std::string()) + part.plan.name +
                            ".bin",
                        without_keys(part, enclosure));
        }
    }
    archive.add("enclosure.json", read_file(options.config, kLargestEnclosure));
    archive.add("log.txt", log_text(options));
    archive.add("versions.txt", versions_text());
    archive.add("permissions.txt", permissions_text(context, parts, options));
    return archive.packed();
}

// ---- The command ----

// Words that make a command work on these parts; none where the service that has them does.
std::string on_these_parts(const ReportOptions &options, bool served) {
    const bool usual = options.choice.state_dir == kUsualStateDir;
    return served && usual ? ""
                           : " --config " + options.config + (usual ? "" : " --state-dir " + options.choice.state_dir);
}

int run_report(const Context &context, const ReportOptions &options) {
    const EnclosurePlan enclosure = read_enclosure(options.config);
    const std::vector<LoadedPart> parts = load_state_dir(context, enclosure.parts, options.choice);
    const Said status = asked(context, {"status"});
    const std::time_t now = std::time(nullptr);
    const std::string page = page_of({.enclosure = enclosure,
                                      .parts = parts,
                                      .status = status.done ? Json::parse(status.out, nullptr, false) : Json(nullptr),
                                      .when = time_text(now, "%Y-%m-%dT%H:%M:%SZ"),
                                      .on_parts = on_these_parts(options, status.done)});
    std::string file = options.html;
    if (!options.html.empty()) {
        write_file(file, Bytes(page.begin(), page.end()));
    }
    if (options.html.empty() || !options.file.empty()) {
        file = options.file.empty() ? "asd-report-" + time_text(now, "%Y%m%dT%H%M%SZ") + ".tar.gz" : options.file;
        write_file(file, bundle_of(context, enclosure, parts, options, page, status, now));
    }
    return file == "-" ? kDone : answer(context, {{"file", file}}, "The enclosure's state is in " + file + "\n");
}

} // namespace

void add_report_command(CLI::App &app, Command &chosen) {
    const auto [report, options] =
        add_command(app, chosen, "report", "Put the enclosure's state in a file, for people who were not there",
                    "report\n  asdctl report --html enclosure.html", run_report);
    options->choice.state_dir = kUsualStateDir;
    report->add_option("FILE", options->file,
                       "The new archive, .tar.gz (asd-report-TIME.tar.gz); - for standard output");
    report->add_option("--html", options->html, "A page for people, in one file; without FILE that alone")
        ->type_name("FILE");
    report->add_option("--log", options->log, "The service's log (the journal of its unit)")->type_name("FILE");
    report->add_option("--config", options->config, "The enclosure file (/etc/asd/enclosure.json)")->type_name("FILE");
    report->add_option("--state-dir", options->choice.state_dir, "The enclosure's state folder (/var/lib/asd)")
        ->type_name("DIR");
}

} // namespace asdctl
