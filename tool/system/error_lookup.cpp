// SPDX-License-Identifier: Apache-2.0
#include "system/error_lookup.h"

#include "terminal/text.h"
#include "text/numbers.h"

#include <libusb-1.0/libusb.h>
#include <libuvc/libuvc.h>
#include <nyxus/error.h>
#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <iterator>

namespace tool {

namespace {

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

Explanation of_system(int32_t error, const Explained& row, bool is_listed)
{
    const int32_t status = NYXUS_E_SYSTEM(error);
    const char* name = strerrorname_np(error);
    const std::string shown = name != nullptr ? name : std::to_string(error);
    return {
        status,   "NYXUS_E_SYSTEM(" + shown + ")", origin_of(status), std::strerror(error), &row,
        is_listed};
}

/// libuvc numbers most of its codes as libusb does.
Explanation of_libuvc(const Explained& row, bool is_listed)
{
    std::string name = row.name;
    if (name.starts_with("LIBUSB_"))
        name.replace(0, std::strlen("LIBUSB_"), "UVC_");
    return {row.number,
            name,
            "libuvc, from functions that stream",
            uvc_strerror(static_cast<uvc_error_t>(row.number)),
            &row,
            is_listed};
}

/// Everything that can be asked for. MP_FwDump() returns minus errno as it is.
std::vector<Explanation> explain_everything()
{
    std::vector<Explanation> all;
    for (const Explained& row : library_statuses)
        all.push_back({row.number, row.name, origin_of(row.number), "", &row});
    for (const Explained& row : libusb_codes)
        all.push_back(of_libusb(row));
    for (const Explained& row : system_errors)
        all.push_back(of_system(row.number, row, true));
    for (const Explained& row : libuvc_codes)
        all.push_back(of_libuvc(row, true));
    for (const Explained& row : exit_codes)
        all.push_back({row.number, row.name, "exit code of nyxus", "", &row, true, true});
    for (const Explained& row : libusb_codes) {
        if (find_row(libuvc_codes, row.number) == nullptr)
            all.push_back(of_libuvc(row, false));
    }
    for (const Explained& row : system_errors) {
        all.push_back({-row.number, std::string("MP_FwDump(): ") + row.name,
                       "operating system (errno)", std::strerror(row.number), &row, false});
    }
    for (int error = 1; error <= kLastErrno; ++error) {
        if (find_row(system_errors, error) == nullptr)
            all.push_back(of_system(error, kUnlisted, false));
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

/// Several where functions use the same number differently; exit codes only if they are asked for.
std::vector<Explanation> with_number(int64_t number, bool exit_codes_only = false)
{
    return those_that([&](const Explanation& candidate) {
        return candidate.number == number && (candidate.exit_code || !exit_codes_only);
    });
}

/// One without its sign, or as a debugger shows it, is found, too; of one that no function returns,
/// at least its origin.
std::vector<Explanation> explain_number(const std::string& text)
{
    constexpr int64_t kTwo32 = 0x100000000;
    const bool negative = text.starts_with('-');
    const auto magnitude = text::parse_number(text.substr(negative ? 1 : 0), UINT32_MAX);
    if (!magnitude)
        return {};
    const auto number = static_cast<int64_t>(*magnitude);
    const std::vector<int64_t> statuses =
        negative ? std::vector{-number} : std::vector{number, -number, number - kTwo32};
    std::vector<Explanation> result;
    for (const int64_t status : statuses) {
        if (result.empty())
            result = with_number(status);
    }
    const std::string origin = number < 0x10000 ? origin_of(static_cast<int32_t>(-number)) : "";
    if (result.empty() && number >= 0x100 && !origin.empty())
        result.push_back({static_cast<int32_t>(-number), kUnused.name, origin, "", &kUnused});
    return result;
}

std::vector<Explanation> explain_name(std::string name)
{
    std::ranges::transform(name, name.begin(), [](unsigned char c) { return std::toupper(c); });
    return those_that([&](const Explanation& candidate) {
        return !candidate.exit_code && (candidate.name == name ||
                                        candidate.name.find("(" + name + ")") != std::string::npos);
    });
}

constexpr char kDigits[] = "0123456789";

bool ends_with_one_of(std::string_view text, std::initializer_list<std::string_view> ends)
{
    return std::ranges::any_of(ends, [&](std::string_view end) { return text.ends_with(end); });
}

/// What a line ends with: "exit 5", "exit code 5", "exit status 5".
std::vector<Explanation> explain_exit_code(const std::string& line)
{
    constexpr size_t kMostDigits = 3;
    const size_t digits = line.find_last_not_of(kDigits) + 1;
    const std::string number = line.substr(digits);
    const std::string before = " " + line.substr(0, digits);
    if (number.empty() || number.size() > kMostDigits ||
        !ends_with_one_of(before, {" exit ", " exit code ", " exit status "}))
        return {};
    return with_number(std::stoi(number), true);
}

/// Numbers stand where the library and this program put them: "rv = -5", "(-5)", "[-5]", ", -5]".
/// The last one counts.
std::vector<Explanation> explain_number_inside(const std::string& line)
{
    constexpr size_t kMostCharacters = 6;
    std::vector<Explanation> result;
    for (size_t at = line.find('-'); at != std::string::npos; at = line.find('-', at + 1)) {
        const size_t end = line.find_first_not_of(kDigits, at + 1);
        const std::string number = line.substr(at, end - at);
        const std::string_view before = std::string_view(line).substr(0, at);
        if (number.size() < 2 || number.size() > kMostCharacters ||
            !ends_with_one_of(before, {"rv = ", "(", "[", ", "}))
            continue;
        auto found = explain_number(number);
        if (!found.empty())
            result = std::move(found);
    }
    auto found = explain_exit_code(line);
    return found.empty() ? result : found;
}

/// The longest words are the most specific ones.
std::vector<Explanation> explain_message(const std::string& line)
{
    const bool is_own = line.find("nyxus: ") != std::string::npos;
    size_t longest = 0;
    std::vector<Explanation> result;
    const auto offer = [&](const Explanation& candidate, const std::string& words) {
        if (words.empty() || line.find(words) == std::string::npos || words.size() < longest)
            return;
        if (words.size() > longest)
            result.clear();
        longest = words.size();
        if (result.empty() || result.back().row != candidate.row)
            result.push_back(candidate);
    };
    for (const Explanation& candidate : all_explanations()) {
        for (const char* message : candidate.row->messages)
            offer(candidate, message == nullptr ? "" : message);
        if (candidate.name.starts_with("NYXUS_E_LIBUSB"))
            offer(candidate, "() FAILED, " + candidate.text);
        if (is_own && candidate.name.starts_with("NYXUS_E_SYSTEM"))
            offer(candidate, ": " + candidate.text);
        for (const OwnMessage& own : own_messages) {
            if (candidate.exit_code && candidate.number == own.exit_code && is_own)
                offer(candidate, own.words);
        }
    }
    return result;
}

} // namespace

std::vector<Explanation> explain(const std::string& words)
{
    std::vector<Explanation> result;
    for (const auto search : {explain_number, explain_number_inside, explain_message}) {
        if (result.empty())
            result = search(words);
    }
    return result.empty() ? explain_name(words) : result;
}

std::vector<Explanation> all_explanations()
{
    return those_that([](const Explanation& candidate) { return candidate.is_listed; });
}

} // namespace tool
