// SPDX-License-Identifier: Apache-2.0
#include "command_line/arguments.h"
#include "session/run.h"
#include "terminal/console.h"
#include "terminal/text.h"

#include <nyxus/trace.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <nyxus/engine/kernel_driver.hpp>

namespace {

using namespace tool;

/// A success that nobody could read of is none.
ExitCode noticing_lost_output(Display& display)
{
    const std::string complaint = display.output_complaint();
    if (complaint.empty())
        return kExitOk;
    display.warn("nyxus: " + complaint);
    return kExitFailure;
}

/// The same for what is printed without a display, such as help.
int noticing_lost_output(int code)
{
    std::cout.flush();
    if (std::cout && std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return code;
    std::fprintf(stderr, "nyxus: cannot write to standard output: %s\n", std::strerror(errno));
    return code == kExitOk ? kExitFailure : code;
}

ExitCode run(const Arguments& arguments)
{
    Console console(arguments.verbosity, arguments.patience_s);
    NyTraceVerbose_level(std::min(arguments.verbosity, 3));
    if (arguments.quiet || arguments.json)
        console.display().be_quiet(); // until events are told
    for (const std::string& line : nyxus::engine::put_left_cameras_back())
        console.display().warn("nyxus: " + line);
    const ExitCode code = run_command(console, arguments);
    return code == kExitOk ? noticing_lost_output(console.display()) : code;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const ParsedArguments parsed = parse_arguments(argc, argv);
        return parsed.exit_code ? noticing_lost_output(*parsed.exit_code) : run(parsed.arguments);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "nyxus: %s\n", text::printable_lines(failure.what()).c_str());
        return kExitFailure;
    }
}
