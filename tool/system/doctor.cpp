// SPDX-License-Identifier: Apache-2.0
#include "command_line/command_line.h"
#include "command_line/versions.h"
#include "commands.h"
#include "system/doctor_checks.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

#include <algorithm>
#include <iterator>

namespace tool {

namespace {

using State = Finding::State;

constexpr size_t kStateColumns = 9;
constexpr size_t kCheckColumns = 13;

std::vector<Finding> examine(const std::string& choice)
{
    std::vector<Finding> findings = {check_libraries(), check_bus(), check_udev_rule(),
                                     check_usb_memory()};
    std::ranges::move(check_cameras(choice), std::back_inserter(findings));
    return findings;
}

/// 0 when all is well; else what the first problem means.
ExitCode verdict(const std::vector<Finding>& findings)
{
    const auto problem = std::ranges::find(findings, State::kProblem, &Finding::state);
    if (problem != findings.end())
        return problem->code;
    const auto warning = std::ranges::find(findings, State::kWarning, &Finding::state);
    return warning != findings.end() ? kExitFailure : kExitOk;
}

Members json_finding(const Finding& finding)
{
    Members object = {
        {"check", finding.check}, {"state", state_name(finding.state)}, {"what", finding.what}};
    if (!finding.remedy.empty())
        object.push_back({"remedy", finding.remedy});
    return object;
}

void print_json(Console& console, const std::vector<Finding>& findings, ExitCode code)
{
    Value::List checks;
    std::ranges::transform(findings, std::back_inserter(checks), json_finding);
    Members libraries;
    for (const LibraryVersion& library : library_versions()) {
        libraries.push_back(
            {library.name, Members{{"version", library.version}, {"file", library.file}}});
    }
    console.display().say(json_text(
        Members{{"well", code == kExitOk}, {"libraries", libraries}, {"checks", checks}}));
}

void print_text(Console& console, const std::vector<Finding>& findings, ExitCode code)
{
    Display& display = console.display();
    for (const Finding& finding : findings) {
        const Colour colour = finding.state >= State::kWarning ? Colour::kRed : Colour::kGreen;
        display.say(display.coloured(padded(state_name(finding.state), kStateColumns), colour) +
                    padded(finding.check, kCheckColumns) + finding.what);
        if (!finding.remedy.empty()) {
            display.say(std::string(kStateColumns, ' ') + padded("what to do", kCheckColumns) +
                        finding.remedy);
        }
    }
    if (code == kExitOk)
        display.say("all is well");
}

ExitCode run_doctor(Console& console, const Arguments& arguments)
{
    const std::vector<Finding> findings = examine(arguments.camera);
    const ExitCode code = verdict(findings);
    console.drain();
    if (arguments.json) {
        print_json(console, findings, code);
    } else {
        print_text(console, findings, code);
    }
    return code;
}

} // namespace

void add_doctor_command(Command& app, Arguments& arguments)
{
    Command& command =
        add_command(app, "doctor", "Find out why a camera cannot be used, and what to do", "");
    set_run(command, arguments, run_doctor);
}

} // namespace tool
