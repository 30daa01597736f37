// SPDX-License-Identifier: Apache-2.0
#include "faults/fault_file.h"

#include "description/reader.h"
#include "faults/fault_json.h"
#include "faults/fault_tables.h"
#include "files/read.h"
#include "text/printable.h"

#include <cstdio>
#include <system_error>

namespace sim {

namespace {

constexpr size_t kLargestFaultFile = 1 << 20;

} // namespace

FaultPlan parse_faults(std::string_view text, const std::string& name)
{
    if (text.size() > kLargestFaultFile)
        throw DescriptionError(name + ": a fault file has at most 1 MiB");
    Mistakes mistakes(name);
    const toml::table table =
        is_json(text) ? table_from_json(text, mistakes) : parse_toml(text, name);
    mistakes.throw_if_any();
    constexpr std::string_view kKey = "fault";
    check_keys(table, {&kKey, 1}, mistakes);
    FaultPlan plan;
    const toml::array* list = table.get_as<toml::array>(kKey);
    if (list != nullptr && list->empty()) // said in so many words: nothing goes wrong
        return plan;
    if (const toml::key* key = find_key(table, kKey)) {
        plan = read_fault_tables(*key, *table.get(kKey), std::nullopt, mistakes);
    } else if (table.empty()) {
        mistakes.add("there is no table [[fault]]");
    }
    mistakes.throw_if_any();
    return plan;
}

std::string read_fault_text(const std::string& path)
{
    try {
        std::string text = files::read_text(path, kLargestFaultFile);
        if (is_json(text)) {
            std::fprintf(stderr,
                         "nyxus-sim: %s is JSON, which is still read; fault files are TOML "
                         "now: see nyxus-faults(5)\n",
                         text::printable(path).c_str());
        }
        return text;
    } catch (const std::system_error& failure) {
        throw DescriptionError("cannot read the fault file " + text::in_quotes(path) + ": " +
                               failure.code().message());
    }
}

} // namespace sim
