// SPDX-License-Identifier: Apache-2.0
#include "rom/job.h"

#include "session/follower.h"
#include "terminal/text.h"

#include <algorithm>
#include <cstring>

namespace tool {

namespace {

/// A word in a command line.
std::string quoted(const std::string& word)
{
    const auto is_plain = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("-_./:+,=", c);
    };
    if (!word.empty() && std::ranges::all_of(word, is_plain))
        return word;
    std::string text = "'";
    for (const char c : printable(word))
        text += c == '\'' ? "'\\''" : std::string(1, c);
    return text + "'";
}

/// The command line with one camera in the place of all.
std::string for_one_camera(const Arguments& arguments, const std::string& port)
{
    std::string command = "nyxus -c " + port;
    for (size_t i = 0; i < arguments.words.size(); ++i) {
        const std::string& word = arguments.words[i];
        if (word == "--jobs") {
            ++i; // and its number
        } else if (word != "--all" && !word.starts_with("--jobs=")) {
            command += " " + quoted(word);
        }
    }
    return command;
}

/// The command that goes on with the camera; "" for none.
std::string advice(const Result& result, const Arguments& arguments, const Sources& sources)
{
    const std::string& port = result.camera.port_path;
    if (result.exit_code == kExitOk || result.exit_code == kExitImageRefused) // it needs another
        return {};
    if (result.report.rom == RomContents::kNew)
        return "nyxus -c " + port + " reset";
    if (result.report.rom == RomContents::kUnverified && sources.manifest.empty())
        return "nyxus -c " + port + " compare -- " + quoted(sources.file);
    return for_one_camera(arguments, port);
}

std::string result_text(const Result& result)
{
    const engine::Report& report = result.report;
    if (result.outcome == Outcome::kUpgraded) {
        return format("upgraded: %.1f KiB in %.1f s, ", static_cast<double>(report.bytes) / 1024,
                      result.seconds) +
               engine::version_change(report.version_before, result.version);
    }
    if (result.outcome == Outcome::kUpToDate || result.outcome == Outcome::kNotStarted)
        return words_of(result.outcome);
    return (result.outcome == Outcome::kFailed ? format("failed (%d): ", result.exit_code) : "") +
           result.message;
}

} // namespace

void label(std::vector<Job>& jobs)
{
    constexpr size_t kLongest = 18;
    for (std::string CameraEntry::*part :
         {&CameraEntry::port_path, &CameraEntry::serial, &CameraEntry::product}) {
        const auto text_of = [&](const Job& job) {
            const std::string& text = job.result.camera.*part;
            return text.empty() ? "-" : text.substr(0, kLongest);
        };
        size_t columns = 0;
        for (const Job& job : jobs)
            columns = std::max(columns, text_of(job).size());
        for (Job& job : jobs)
            job.label += padded(text_of(job), columns) + "  ";
    }
}

TableRow Job::row() const
{
    if (state == State::kWaiting)
        return {.label = label, .text = "waiting"};
    if (state == State::kRunning)
        return {.label = label, .progress = progress, .text = "starting"};
    const Colour colour = has_succeeded()                      ? Colour::kGreen
                          : result.outcome == Outcome::kFailed ? Colour::kRed
                                                               : Colour::kYellow;
    return {.label = label, .text = result_text(result), .colour = colour};
}

std::string state_and_advice(const Job& job, const Arguments& arguments,
                             const UpgradeArguments& wanted)
{
    const std::string next = advice(job.result, arguments, wanted.sources);
    return std::string(state_of(job.result.report.rom)) + (next.empty() ? "" : "; next: " + next);
}

} // namespace tool
