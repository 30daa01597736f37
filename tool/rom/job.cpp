// SPDX-License-Identifier: Apache-2.0
#include "rom/job.h"

#include "session/follower.h"
#include "terminal/text.h"

#include <algorithm>
#include <cstring>

namespace tool {

namespace {

/// A file in a command line, where it is not to be taken for an option.
std::string quoted(std::string word)
{
    const auto is_plain = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || std::strchr("-_./:+,", c);
    };
    if (word.starts_with('-'))
        word.insert(0, "./");
    if (!word.empty() && std::ranges::all_of(word, is_plain))
        return word;
    std::string text = "'";
    for (const char c : printable(word))
        text += c == '\'' ? "'\\''" : std::string(1, c);
    return text + "'";
}

/// The upgrade of one of the cameras.
std::string single_command(const Arguments& arguments)
{
    const bool has_manifest = !arguments.manifest.empty();
    std::string command = std::string("nyxus upgrade ") + (has_manifest ? "--manifest " : "") +
                          quoted(has_manifest ? arguments.manifest : arguments.file);
    const std::pair<bool, std::string> options[] = {
        {!arguments.sha256.empty(), " --sha256 " + quoted(arguments.sha256)},
        {arguments.allow_downgrade, " --allow-downgrade"},
        {!arguments.mfi_file.empty(), " --mfi " + quoted(arguments.mfi_file)},
        {arguments.eeprom_kib != 0, " --eeprom " + std::to_string(arguments.eeprom_kib)},
        {arguments.skip_backup, " --no-backup"},
        {arguments.skip_verify, " --no-verify"},
        {arguments.force, " --force"},
        {arguments.reset, " --reset"},
        {arguments.wait_s.has_value(), " --wait " + std::to_string(arguments.wait_s.value_or(0))},
    };
    for (const auto& [wanted, words] : options)
        command += wanted ? words : "";
    return command;
}

} // namespace

void label(std::vector<Job>& jobs)
{
    constexpr size_t kLongest = 18;
    for (std::string CameraLabel::*part :
         {&CameraLabel::port, &CameraLabel::serial, &CameraLabel::product}) {
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

TableRow row_of(const Job& job)
{
    if (job.state == Job::State::kWaiting)
        return {.label = job.label, .text = "waiting"};
    if (job.state == Job::State::kRunning)
        return {.label = job.label, .progress = job.progress, .text = "starting"};
    const Colour colour = has_succeeded(job)                       ? Colour::kGreen
                          : job.result.outcome == Outcome::kFailed ? Colour::kRed
                                                                   : Colour::kYellow;
    return {.label = job.label, .text = result_text(job.result), .colour = colour};
}

bool has_succeeded(const Job& job)
{
    return job.result.outcome == Outcome::kUpgraded || job.result.outcome == Outcome::kUpToDate;
}

std::string result_text(const Result& result)
{
    if (result.outcome == Outcome::kUpgraded) {
        return format("upgraded: %.1f KiB in %.1f s, ", static_cast<double>(result.bytes) / 1024,
                      result.seconds) +
               engine::version_change(result.version_before, result.version);
    }
    if (result.outcome == Outcome::kUpToDate || result.outcome == Outcome::kNotStarted)
        return words_of(result.outcome);
    return (result.outcome == Outcome::kFailed ? format("failed (%d): ", result.exit_code) : "") +
           result.message;
}

std::string state_and_advice(const Job& job)
{
    return std::string(state_of(job.result.rom)) +
           (job.advice.empty() ? "" : "; next: " + job.advice);
}

std::string advice(const Result& result, const Arguments& arguments)
{
    const std::string choice = " -c " + result.camera.port;
    if (result.exit_code == kExitOk || result.exit_code == kExitImageRefused) // it needs another
        return {};
    if (result.rom == RomContents::kNew)
        return "nyxus reset" + choice;
    if (result.rom == RomContents::kUnverified && arguments.manifest.empty())
        return "nyxus compare " + quoted(arguments.file) + choice;
    return single_command(arguments) + choice;
}

Summary summarize(const std::vector<Job>& jobs)
{
    Summary summary{.cameras = jobs.size()};
    for (const Job& job : jobs) {
        if (job.state == Job::State::kEnded)
            ++summary.ended[job.result.outcome];
    }
    return summary;
}

std::string text_of(const Summary& summary)
{
    std::string text = format("%zu camera%s in %s", summary.cameras,
                              summary.cameras == 1 ? "" : "s", clock_text(summary.seconds).c_str());
    const char* separator = ": ";
    for (const auto& [outcome, count] : summary.ended) {
        text += separator + format("%zu ", count) + words_of(outcome);
        separator = ", ";
    }
    return text;
}

} // namespace tool
