// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_tables.h"

#include "faults/fault_fields.h"
#include "text/printable.h"

#include <algorithm>
#include <iterator>

namespace sim {

namespace {

using Keys = std::span<const std::string_view>;
constexpr std::string_view kTransferTriggers[] = {"transfer", "unit", "selector", "request"};
constexpr std::string_view kRomTriggers[] = {"rom_address"};
constexpr std::string_view kFrameTriggers[] = {"frame"};
constexpr std::string_view kSettings[] = {"bytes", "ms", "mask", "announced", "replug_ms", "after"};

class FaultReader {
public:
    FaultReader(const toml::table& table, Mistakes& mistakes) : table_(table), mistakes_(mistakes)
    {
        if (const toml::table* when = table["when"].as_table())
            when_ = *when;
    }

    PlannedFault read()
    {
        read_fields(table_, "fault", fault_fields(), fault_, mistakes_,
                    [this](const Field<PlannedFault>& field, const toml::key* key) {
                        read_trigger(field, key);
                    });
        const auto name = table_["do"].value<std::string_view>();
        const auto word = std::ranges::find(effect_words(), name.value_or(""), &EffectWord::name);
        if (word != effect_words().end())
            check_together(*word);
        return fault_;
    }

private:
    void read_trigger(const Field<PlannedFault>& field, const toml::key* key)
    {
        if (key == nullptr) {
            report_missing(table_, "fault", field.key, field.kind, field.meaning, mistakes_);
        } else if (!table_.get(field.key)->is_table()) {
            report_kind(*key, *table_.get(field.key), field.kind, mistakes_);
        } else {
            read_fields(when_, "fault.when", trigger_fields(), fault_.when, mistakes_,
                        [](const auto&, const toml::key*) {});
        }
    }

    /// What is right by itself but not with the rest.
    void check_together(const EffectWord& word)
    {
        fault_.site = site(word);
        const toml::key& key = *find_key(table_, "do");
        for (const std::string_view setting : kSettings) {
            const toml::key* given = find_key(table_, setting);
            if (given != nullptr &&
                std::ranges::find(word.settings, setting) == word.settings.end())
                add(*given, " means nothing to " + quoted(word));
        }
        if (!word.required.empty() && find_key(table_, word.required) == nullptr)
            mistakes_.add(key.source(), quoted(word) + " needs " + text::in_quotes(word.required));
        if (fault_.after && (fault_.site == Site::kFrame || fault_.site == Site::kClock))
            add(*find_key(table_, "after"), " is about a request, and nothing is asked here");
        if (when_["time_ms"].is_integer()) { // from that moment on
            if (fault_.when.time_us)
                fault_.when.time_us->to = Range{}.to;
            if (find_key(table_, "times") == nullptr)
                fault_.times = 1;
        }
    }

    Site site(const EffectWord& word)
    {
        if (word.strikes == Strikes::kFrames || has_any(kFrameTriggers)) {
            if (word.strikes != Strikes::kFrames && word.strikes != Strikes::kTransfersAndFrames &&
                word.strikes != Strikes::kAnything)
                refuse(kFrameTriggers, quoted(word) + ", which does not happen to frames");
            refuse(kTransferTriggers, "a fault of a frame");
            refuse(kRomTriggers, "a fault of a frame");
            return Site::kFrame;
        }
        if (word.strikes == Strikes::kRomStatus)
            refuse(kRomTriggers, quoted(word) + ", which is about the status register");
        if (word.strikes == Strikes::kRom || word.strikes == Strikes::kRomStatus ||
            has_any(kRomTriggers))
            return Site::kRom;
        const bool happens_by_itself =
            word.strikes == Strikes::kAnything && !has_any(kTransferTriggers);
        return happens_by_itself && when_.contains("time_ms") ? Site::kClock : Site::kTransfer;
    }

    bool has_any(Keys triggers) const
    {
        return std::ranges::any_of(triggers, [this](auto key) { return when_.contains(key); });
    }

    void refuse(Keys triggers, const std::string& company)
    {
        for (const std::string_view trigger : triggers) {
            if (const toml::key* key = find_key(when_, trigger))
                add(*key, " does not go together with " + company);
        }
    }

    void add(const toml::key& key, const std::string& what)
    {
        mistakes_.add(key.source(), text::in_quotes(key.str()) + what);
    }

    static std::string quoted(const EffectWord& word) { return '"' + std::string(word.name) + '"'; }

    const toml::table& table_;
    toml::table when_;
    Mistakes& mistakes_;
    PlannedFault fault_;
};

} // namespace

FaultPlan read_fault_tables(const toml::key& key, const toml::node& node,
                            const std::optional<std::string>& owner, Mistakes& mistakes)
{
    FaultPlan plan;
    for (const toml::table* table : tables_of(key, node, kFaultTables, mistakes)) {
        const std::string name = "fault " + std::to_string(plan.size() + 1);
        mistakes.set_subject(name + ": ");
        PlannedFault& fault = plan.emplace_back(FaultReader(*table, mistakes).read());
        fault.text = name + (owner ? " of camera " + text::in_quotes(*owner) : "") + " (\"" +
                     (*table)["do"].value_or(std::string()) + '"';
        if (const toml::source_position begin = table->source().begin)
            fault.text += ", line " + std::to_string(begin.line);
        fault.text += ')';
        const auto* when = (*table)["when"].as_table();
        const toml::key* camera = owner && when != nullptr ? find_key(*when, "camera") : nullptr;
        if (camera != nullptr) {
            mistakes.add(camera->source(), "'camera' has no meaning in the description of one");
        }
    }
    mistakes.set_subject("");
    return plan;
}

} // namespace sim
