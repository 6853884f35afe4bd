// SPDX-FileCopyrightText: 2026 The asd authors
// SPDX-License-Identifier: Apache-2.0
#include "holdings.h"

#include "commands.h"
#include "cures.h"
#include "failure.h"
#include "known_items.h"
#include "part_store.h"
#include "service.h"
#include "texts.h"
#include "values.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>

namespace asdctl {

namespace {

bool keeps_a_flag(const std::string &item) {
    const KnownItem *const known = known_item(item);
    return known != nullptr && known->format == Format::kFlag;
}

// ---- of a service ----

class ServiceHoldings final : public Holdings {
public:
    explicit ServiceHoldings(const Context &context)
        : context_(context), service_(context), snapshot_(service_.snapshot()) {
        version = snapshot_.version;
        enclosure = snapshot_.enclosure;
        for (const Item &item : snapshot_.items) {
            items.push_back({.item = item.name,
                             .length = item.length,
                             .confidential = item.confidential,
                             .flag = keeps_a_flag(item.name),
                             .ready = item.ready,
                             .sound = item.ready && std::ranges::all_of(item.chips, &Chip::sound),
                             .why = item.ready ? "" : "not ready: never written, damaged, or not loaded"});
        }
    }

    [[nodiscard]] Bytes read(const Holding &holding) override {
        return service_.read_item(holding.item, "ReadAsdMemData");
    }

    void write(const Holding &holding, BytesView value) override {
        store_item(context_, service_, snapshot_.item(holding.item), value);
    }

private:
    const Context &context_;
    Service service_;
    Snapshot snapshot_;
};

// ---- of parts ----

class PartHoldings final : public Holdings {
public:
    PartHoldings(const Context &context, const std::string &config, const std::string &state_dir, bool to_write)
        : context_(context), plan_(read_enclosure(config)) {
        choice_.state_dir = state_dir;
        load();
        check_one_slot();
        if (to_write) {
            store_.emplace(context, state_dir, parts_);
            load(); // cut writes are finished now
        }
        version = ASD_VERSION;
        enclosure = plan_.name;
        for (const ItemCopies &item : copies_) {
            items.push_back(holding_of(item));
        }
    }

    [[nodiscard]] Bytes read(const Holding &holding) override {
        const Copy *const copy = valid_copy(copies_of(holding));
        return copy == nullptr ? Bytes() : Bytes(copy->data().begin(), copy->data().end());
    }

    // Data before its flag, as the service writes them.
    void write(const Holding &holding, BytesView value) override {
        const ItemCopies &item = copies_of(holding);
        const Bytes record = with_checksum(Bytes(value.begin(), value.end()));
        std::vector<bool> held;
        std::string failures;
        for (const Copy &copy : item.copies) {
            const std::string failure = put(copy, record);
            held.push_back(failure.empty());
            failures += failure.empty() ? "" : (failures.empty() ? "" : "; ") + copy.place->chip + ": " + failure;
        }
        if (const ItemCopies *const flags = flags_of(copies_, item); flags != nullptr) {
            for (std::size_t i = 0; i < flags->copies.size(); ++i) {
                const std::string failure =
                    held[i] ? put(flags->copies[i], with_checksum({held[1 - i] ? kStoredBoth : kStoredAlone})) : "";
                failures += failure.empty() ? "" : "; check flag " + flags->copies[i].place->chip + ": " + failure;
            }
        }
        const bool any = std::ranges::count(held, true) > 0;
        load();
        if (!failures.empty()) {
            throw Failure((any && held.size() > 1 ? "written in part; " : "") + failures);
        }
    }

private:
    void load() {
        parts_ = load_state_dir(context_, plan_.parts, choice_);
        copies_ = copies_on(parts_, plan_.items);
    }

    // Each controller has private parts of its own, with items of the same names.
    void check_one_slot() const {
        std::set<unsigned> slots;
        for (const LoadedPart &part : parts_) {
            if (part.slot) {
                slots.insert(*part.slot);
            }
        }
        if (slots.size() > 1) {
            std::string names;
            for (const unsigned slot : slots) {
                names += (names.empty() ? "" : ", ") + std::to_string(slot);
            }
            throw WrongUsage("slots " + names + " have parts of their own in " + choice_.state_dir,
                             "Say whose with --slot.");
        }
    }

    [[nodiscard]] const ItemCopies &copies_of(const Holding &holding) const {
        return *std::ranges::find(copies_, holding.item, &ItemCopies::item);
    }

    // The copy whose value counts; null: none does.
    [[nodiscard]] const Copy *valid_copy(const ItemCopies &item) const {
        const auto good = [](const Copy &copy) { return copy.is(RecordState::kGood); };
        const auto first = std::ranges::find_if(item.copies, good);
        if (first == item.copies.end() || std::ranges::count_if(item.copies, good) < 2) {
            return first == item.copies.end() ? nullptr : &*first;
        }
        const ItemCopies *const flags = flags_of(copies_, item);
        const Cure cure = cure_of(item.copies, {}, flags == nullptr ? std::nullopt : trusted_by(flags->copies));
        return cure.hopeless.empty() ? &item.copies[cure.from.value_or(0)] : nullptr;
    }

    [[nodiscard]] Holding holding_of(const ItemCopies &item) const {
        const auto plan = std::ranges::find(plan_.items, item.item, &ItemPlan::name);
        const ItemCopies *const flags = flags_of(copies_, item);
        const Copy *const valid = valid_copy(item);
        const auto is = [&](RecordState state) {
            return std::ranges::any_of(item.copies, [state](const Copy &copy) { return copy.is(state); });
        };
        Holding holding{.item = item.item,
                        .length = plan->length,
                        .confidential = plan->confidential,
                        .flag = is_flag_here(copies_, item),
                        .ready = valid != nullptr,
                        .sound = valid != nullptr && (flags == nullptr || flags_agree(flags->copies)),
                        .why = {}};
        for (const Copy &copy : item.copies) {
            holding.sound =
                holding.sound && copy.is(RecordState::kGood) && std::ranges::equal(copy.data(), valid->data());
        }
        if (valid == nullptr) {
            holding.why = is(RecordState::kGood)
                              ? "both copies are good and differ: 'asdctl repair --from' says which stays"
                          : is(RecordState::kBad)   ? "damaged"
                          : is(RecordState::kBlank) ? "never written"
                                                    : "its part was not read: " + item.copies.front().part->trouble;
        }
        return holding;
    }

    // Why it was not written; empty: it is there, and was read back.
    [[nodiscard]] std::string put(const Copy &copy, BytesView record) {
        if (!copy.check) {
            return copy.part->plan.name + ": " + copy.part->trouble;
        }
        if (std::ranges::equal(copy.record(), record)) {
            return "";
        }
        try {
            store_->write(*copy.part, copy.place->offset, record);
            return "";
        } catch (const Failure &failure) {
            return failure.what();
        }
    }

    const Context &context_;
    EnclosurePlan plan_;
    PartChoice choice_;
    std::vector<LoadedPart> parts_;
    std::vector<ItemCopies> copies_; // of parts_
    std::optional<PartStore> store_; // to write
};

} // namespace

const Holding &Holdings::named(const std::string &name) const {
    const KnownItem *const known = known_named(name);
    const auto found = std::ranges::find(items, known == nullptr ? name : std::string(known->item), &Holding::item);
    if (found == items.end()) {
        std::vector<std::string> names = known_labels();
        std::ranges::transform(items, std::back_inserter(names), &Holding::item);
        throw Failure("there is no item '" + name + "'", "The enclosure file names them." + did_you_mean(name, names));
    }
    return *found;
}

std::unique_ptr<Holdings> service_holdings(const Context &context) {
    return std::make_unique<ServiceHoldings>(context);
}

std::unique_ptr<Holdings> part_holdings(const Context &context, const std::string &config, const std::string &state_dir,
                                        bool to_write) {
    return std::make_unique<PartHoldings>(context, config, state_dir, to_write);
}

} // namespace asdctl
