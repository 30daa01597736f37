// SPDX-License-Identifier: Apache-2.0
#include "error_lookup.h"

#include "error_catalogue.h"
#include "text.h"
#include "text/numbers.h"

#include <libusb-1.0/libusb.h>
#include <libuvc/libuvc.h>
#include <nyxus/error.h>
#include <regex.h>
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <stdexcept>

namespace tool {

namespace {

constexpr int32_t kOriginMask = 0xFF00;
constexpr int32_t kUsbOrigin = 0x4000;
constexpr int32_t kSystemOrigin = 0x8000;
constexpr int32_t kLastErrno = 133;

const Explained* find_row(std::span<const Explained> rows, int32_t number)
{
    const auto found = std::ranges::find(rows, number, &Explained::number);
    return found == rows.end() ? nullptr : &*found;
}

const Origin* find_origin(int32_t status)
{
    const auto found = std::ranges::find(kOrigins, -status >> 8, &Origin::high_byte);
    return found == std::end(kOrigins) ? nullptr : found;
}

Explanation explanation(int32_t number, const Explained& row)
{
    Explanation result;
    result.number = number;
    result.name = row.name;
    result.meaning = row.meaning;
    result.causes = row.causes;
    result.advice = row.advice;
    for (const char* message : row.messages) {
        if (message != nullptr)
            result.messages.emplace_back(message);
    }
    return result;
}

Explanation library_explanation(const Explained& row)
{
    Explanation result = explanation(row.number, row);
    result.origin = row.number > 0 ? "a positive result that means a failure"
                                   : find_origin(row.number)->meaning;
    return result;
}

Explanation libusb_explanation(const Explained& row)
{
    Explanation result = explanation(NYXUS_E_LIBUSB(row.number), row);
    result.name = format("NYXUS_E_LIBUSB(%s)", row.name);
    result.origin = find_origin(result.number)->meaning;
    result.text = libusb_strerror(row.number);
    return result;
}

Explanation system_explanation(int32_t error)
{
    constexpr Explained kUnlisted = {0, "", "A call of the operating system failed.",
                                     "The message names the file, where one was concerned.",
                                     "What the operating system says of it is all there is."};
    const Explained* row = find_row(system_errors(), error);
    Explanation result = explanation(NYXUS_E_SYSTEM(error), row != nullptr ? *row : kUnlisted);
    const char* name = strerrorname_np(error);
    result.name =
        format("NYXUS_E_SYSTEM(%s)", name != nullptr ? name : std::to_string(error).c_str());
    result.origin = find_origin(result.number)->meaning;
    result.text = std::strerror(error);
    return result;
}

/// libuvc numbers most of its codes as libusb does.
Explanation libuvc_explanation(int32_t code, const Explained& row)
{
    Explanation result = explanation(code, row);
    if (result.name.starts_with("LIBUSB_"))
        result.name.replace(0, std::strlen("LIBUSB_"), "UVC_");
    result.origin = "libuvc, from functions that stream";
    result.text = uvc_strerror(static_cast<uvc_error_t>(code));
    return result;
}

/// MP_FwDump() returns minus errno as it is.
Explanation dump_explanation(int32_t error)
{
    Explanation result = system_explanation(error);
    result.number = -error;
    result.name = strerrorname_np(error);
    result.origin = "operating system (errno), from MP_FwDump()";
    return result;
}

/// At least the origin is known.
Explanation unused_explanation(int32_t status)
{
    constexpr Explained kUnused = {0, "not in use",
                                   "No function of this version returns this status.",
                                   "Another version of the library, or a mistyped number.",
                                   "Take the number from nyxus_errno, or paste the whole line."};
    Explanation result = explanation(status, kUnused);
    result.origin = find_origin(status)->meaning;
    return result;
}

void explain_bare(int32_t status, std::vector<Explanation>& result)
{
    const Explained* code = find_row(libuvc_codes(), status);
    if (code == nullptr)
        code = find_row(libusb_codes(), status);
    if (code != nullptr)
        result.push_back(libuvc_explanation(status, *code));
    if (find_row(system_errors(), -status) != nullptr)
        result.push_back(dump_explanation(-status));
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
        if (auto code = explain_exit_code(static_cast<int32_t>(number)))
            result.push_back(*code);
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
    std::vector<Explanation> result;
    for (const Explanation& candidate : all_explanations()) {
        if (!candidate.exit_code &&
            (candidate.name == name || candidate.name.find("(" + name + ")") != std::string::npos))
            result.push_back(candidate);
    }
    for (const Explained& row : libusb_codes()) { // libuvc's names of them
        if (name.starts_with("UVC_") && name.substr(4) == row.name + std::strlen("LIBUSB_"))
            result.push_back(libuvc_explanation(row.number, row));
    }
    for (int error = 1; result.empty() && error <= kLastErrno; ++error) {
        if (strerrorname_np(error) != nullptr && name == strerrorname_np(error))
            result.push_back(system_explanation(error));
    }
    return result;
}

/// The second group of the next match; the text goes on behind it.
std::optional<int32_t> take_number(const char*& text, const regex_t& pattern)
{
    regmatch_t groups[3];
    if (regexec(&pattern, text, std::size(groups), groups, 0) != 0)
        return std::nullopt;
    const int32_t number = std::atoi(text + groups[2].rm_so);
    text += groups[2].rm_eo;
    return number;
}

regex_t compiled(const char* pattern)
{
    regex_t result;
    if (regcomp(&result, pattern, REG_EXTENDED) != 0)
        throw std::logic_error(pattern);
    return result;
}

/// Statuses stand where the library and this program put them: "rv = -5", "(-5)", "[-5]", ", -5]".
std::vector<Explanation> explain_status_inside(const std::string& line)
{
    static const regex_t kStatus = compiled(R"((rv = |\(|\[|, )(-[0-9]{1,5})([^0-9]|$))");
    std::vector<Explanation> result;
    const char* rest = line.c_str();
    while (const auto status = take_number(rest, kStatus)) {
        if (auto found = explain_status(*status); !found.empty())
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
        for (const std::string& message : candidate.messages)
            offer(candidate, message);
        if (candidate.name.starts_with("NYXUS_E_LIBUSB"))
            offer(candidate, "() FAILED, " + candidate.text);
    }
    return result;
}

} // namespace

std::vector<Explanation> explain_status(int32_t status)
{
    std::vector<Explanation> result;
    const int32_t origin = -status & kOriginMask;
    const int32_t kind = -status & ~kOriginMask;
    if (const Explained* row = find_row(library_statuses(), status))
        result.push_back(library_explanation(*row));
    if (status < 0 && -status < 0x100)
        explain_bare(status, result);
    if (status < 0 && origin == kUsbOrigin && -status < kSystemOrigin) {
        if (const Explained* row = find_row(libusb_codes(), -kind))
            result.push_back(libusb_explanation(*row));
    }
    if (status < 0 && origin == kSystemOrigin && kind >= 1 && kind <= kLastErrno)
        result.push_back(system_explanation(kind));
    if (result.empty() && status <= -0x100 && find_origin(status) != nullptr)
        result.push_back(unused_explanation(status));
    return result;
}

std::optional<Explanation> explain_exit_code(int32_t code)
{
    const Explained* row = find_row(exit_codes(), code);
    if (row == nullptr)
        return std::nullopt;
    Explanation result = explanation(code, *row);
    result.exit_code = true;
    result.origin = "exit code of nyxus";
    return result;
}

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
    static const regex_t kExit = compiled(R"(\<exit (code |status )?([0-9]{1,3})$)");
    const char* text = line.c_str();
    if (const auto number = take_number(text, kExit)) {
        if (auto code = explain_exit_code(*number))
            return {*code};
    }
    std::vector<Explanation> result = explain_status_inside(line);
    return result.empty() ? explain_message(line) : result;
}

std::vector<Explanation> all_explanations()
{
    std::vector<Explanation> result;
    for (const Explained& row : library_statuses())
        result.push_back(library_explanation(row));
    for (const Explained& row : libusb_codes())
        result.push_back(libusb_explanation(row));
    for (const Explained& row : system_errors())
        result.push_back(system_explanation(row.number));
    for (const Explained& row : libuvc_codes())
        result.push_back(libuvc_explanation(row.number, row));
    for (const Explained& row : exit_codes())
        result.push_back(*explain_exit_code(row.number));
    return result;
}

} // namespace tool
