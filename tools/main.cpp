// SPDX-License-Identifier: Apache-2.0
#include "arguments.h"
#include "camera.h"
#include "console.h"
#include "failure.h"
#include "json_text.h"

#include <cstdio>

namespace {

using namespace tool;

ExitCode run_reporting_failures(const Arguments& arguments)
{
    Console console(arguments.verbosity, arguments.patience_s);
    try {
        prepare_library(arguments.verbosity);
        if (arguments.quiet || arguments.json)
            console.display().be_quiet(); // until events are told
        const ExitCode code = arguments.run(console, arguments);
        console.drain();
        return code;
    } catch (const Failure& failure) {
        console.drain();
        console.display().abandon();
        if (arguments.json && !console.display().tells_events())
            console.display().say(json_error(failure));
        console.display().warn("nyxus: " + failure.text());
        return failure.code();
    }
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const ParsedArguments parsed = parse_arguments(argc, argv);
        return parsed.finished ? parsed.exit_code : run_reporting_failures(parsed.arguments);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "nyxus: %s\n", failure.what());
        return kExitFailure;
    }
}
