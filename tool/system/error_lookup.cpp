// SPDX-License-Identifier: Apache-2.0
#include "system/error_lookup.h"

#include "terminal/text.h"
#include "text/numbers.h"

#include <libusb-1.0/libusb.h>
#include <libuvc/libuvc.h>
#include <nyxus/error.h>
#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <regex>

namespace tool {

namespace {

using Place = Explanation::Place;

constexpr int32_t kLastErrno = 133;

// clang-format off
constexpr Explained kUnlisted = {0, "", "A call of the operating system failed.",
                                 "The message names the file, where one was concerned.",
                                 "What the operating system says of it is all there is."};
constexpr Explained kUnused = {0, "not in use", "No function of this version returns this status.",
                               "Another version of the library, or a mistyped number.",
                               "Take the number from nyxus_errno, or paste the whole line."};
// clang-format on

const Explained* find_row(std::span<const Explained> rows, int32_t number)
{
    const auto found = std::ranges::find(rows, number, &Explained::number);
    return found == rows.end() ? nullptr : &*found;
}

/// "" when no status begins like this.
std::string origin_of(int32_t status)
{
    if (status > 0)
        return "a positive result that means a failure";
    const auto found = std::ranges::find(kOrigins, -status >> 8, &Origin::high_byte);
    return found == std::end(kOrigins) ? "" : found->meaning;
}

Explanation of_libusb(const Explained& row)
{
    const int32_t status = NYXUS_E_LIBUSB(row.number);
    return {status, format("NYXUS_E_LIBUSB(%s)", row.name), origin_of(status),
            libusb_strerror(row.number), &row};
}

Explanation of_system(int32_t error, const Explained& row, Place place)
{
    const char* name = strerrorname_np(error);
    const int32_t status = NYXUS_E_SYSTEM(error);
    return {status,
            format("NYXUS_E_SYSTEM(%s)", name != nullptr ? name : std::to_string(error).c_str()),
            origin_of(status),
            std::strerror(error),
            &row,
            place};
}

/// libuvc numbers most of its codes as libusb does.
Explanation of_libuvc(const Explained& row, Place place)
{
    std::string name = row.name;
    if (name.starts_with("LIBUSB_"))
        name.replace(0, std::strlen("LIBUSB_"), "UVC_");
    return {row.number,
            name,
            "libuvc, from functions that stream",
            uvc_strerror(static_cast<uvc_error_t>(row.number)),
            &row,
            place};
}

/// MP_FwDump() returns minus errno as it is.
Explanation of_dump(int32_t error, const Explained& row)
{
    return {-error,
            strerrorname_np(error),
            "operating system (errno), from MP_FwDump()",
            std::strerror(error),
            &row,
            Place::kByNumber};
}

std::vector<Explanation> explain_everything()
{
    std::vector<Explanation> all;
    for (const Explained& row : library_statuses)
        all.push_back({row.number, row.name, origin_of(row.number), "", &row});
    for (const Explained& row : libusb_codes)
        all.push_back(of_libusb(row));
    for (const Explained& row : system_errors)
        all.push_back(of_system(row.number, row, Place::kInTheList));
    for (const Explained& row : libuvc_codes)
        all.push_back(of_libuvc(row, Place::kInTheList));
    for (const Explained& row : exit_codes) {
        all.push_back(
            {row.number, row.name, "exit code of nyxus", "", &row, Place::kInTheList, true});
    }
    for (const Explained& row : libusb_codes) {
        if (find_row(libuvc_codes, row.number) == nullptr)
            all.push_back(of_libuvc(row, Place::kByName));
    }
    for (int error = 1; error <= kLastErrno; ++error) {
        const Explained* row = find_row(system_errors, error);
        all.push_back(row != nullptr ? of_dump(error, *row)
                                     : of_system(error, kUnlisted, Place::kByName));
    }
    return all;
}

template <typename Condition>
std::vector<Explanation> those_that(Condition condition)
{
    static const std::vector<Explanation> all = explain_everything();
    std::vector<Explanation> result;
    std::ranges::copy_if(all, std::back_inserter(result), condition);
    return result;
}

/// Several where functions use the same number differently, none when no function returns it.
std::vector<Explanation> explain_status(int32_t status)
{
    auto result = those_that([&](const Explanation& candidate) {
        return candidate.number == status && !candidate.exit_code;
    });
    if (result.empty() && status <= -0x100 && !origin_of(status).empty()) // at least that is known
        result.push_back({status, kUnused.name, origin_of(status), "", &kUnused});
    return result;
}

std::vector<Explanation> explain_exit_code(int64_t code)
{
    return those_that([&](const Explanation& candidate) {
        return candidate.number == code && candidate.exit_code;
    });
}

std::optional<int64_t> number_in(std::string_view text)
{
    const bool negative = text.starts_with('-');
    text.remove_prefix(negative || text.starts_with('+') ? 1 : 0);
    const std::optional<uint64_t> magnitude = text::parse_number(text, UINT32_MAX);
    if (!magnitude)
        return std::nullopt;
    return negative ? -static_cast<int64_t>(*magnitude) : static_cast<int64_t>(*magnitude);
}

/// A positive number may be a result, an exit code, a status without its sign, or a status as a
/// debugger or a 16-bit field shows it.
std::vector<Explanation> explain_positive(int64_t number)
{
    constexpr int64_t kSignBit = 0x8000;
    constexpr int64_t kTwo16 = 0x10000;
    constexpr int64_t kTwo32 = 0x100000000;

    std::vector<Explanation> result;
    if (number < 0x100) {
        result = explain_status(static_cast<int32_t>(number));
        std::ranges::copy(explain_exit_code(number), std::back_inserter(result));
    }
    for (const int64_t status : {-number, number - kTwo32, number - kTwo16, kSignBit - number}) {
        if (result.empty() && status < 0 && status > -kTwo16)
            result = explain_status(static_cast<int32_t>(status));
    }
    return result;
}

std::vector<Explanation> explain_name(std::string name)
{
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::toupper(c); });
    return those_that([&](const Explanation& candidate) {
        return !candidate.exit_code && candidate.place <= Place::kByName &&
               (candidate.name == name ||
                candidate.name.find("(" + name + ")") != std::string::npos);
    });
}

/// Statuses stand where the library and this program put them: "rv = -5", "(-5)", "[-5]", ", -5]".
std::vector<Explanation> explain_status_inside(const std::string& line)
{
    static const std::regex kStatus(R"((?:rv = |\(|\[|, )(-[0-9]{1,5})(?![0-9]))");
    std::vector<Explanation> result;
    for (std::sregex_iterator match(line.begin(), line.end(), kStatus), end; match != end;
         ++match) {
        if (auto found = explain_status(std::stoi(match->str(1))); !found.empty())
            result = std::move(found); // the last one counts
    }
    return result;
}

std::vector<Explanation> explain_message(const std::string& line)
{
    size_t longest = 0; // the longest words are the most specific ones
    std::vector<Explanation> result;
    const auto offer = [&](const Explanation& candidate, const std::string& words) {
        if (words.empty() || line.find(words) == std::string::npos || words.size() < longest)
            return;
        if (words.size() > longest)
            result.clear();
        longest = words.size();
        result.push_back(candidate);
    };
    for (const Explanation& candidate : all_explanations()) {
        for (const char* message : candidate.row->messages)
            offer(candidate, message == nullptr ? "" : message);
        if (candidate.name.starts_with("NYXUS_E_LIBUSB"))
            offer(candidate, "() FAILED, " + candidate.text);
    }
    return result;
}

} // namespace

std::vector<Explanation> explain_word(const std::string& word)
{
    const std::optional<int64_t> number = number_in(word);
    if (!number)
        return explain_name(word);
    if (*number >= 0)
        return explain_positive(*number);
    return *number > INT32_MIN ? explain_status(static_cast<int32_t>(*number))
                               : std::vector<Explanation>();
}

std::vector<Explanation> explain_line(const std::string& line)
{
    static const std::regex kExit(R"(\bexit (?:code |status )?([0-9]{1,3})$)");
    std::smatch match;
    if (std::regex_search(line, match, kExit)) {
        if (auto code = explain_exit_code(std::stoi(match.str(1))); !code.empty())
            return code;
    }
    std::vector<Explanation> result = explain_status_inside(line);
    return result.empty() ? explain_message(line) : result;
}

std::vector<Explanation> all_explanations()
{
    return those_that(
        [](const Explanation& candidate) { return candidate.place == Place::kInTheList; });
}

} // namespace tool
