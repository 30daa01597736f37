// SPDX-License-Identifier: Apache-2.0
#include "watch_options.h"

#include "watch/pcap_file.h"

namespace sim {

void add_watch_options(command_line::Command& command, WatchArguments& arguments)
{
    constexpr uint32_t kSmallestSnaplen = 128;
    command.file("--pcap", &arguments.pcap_file,
                 "Capture all USB traffic for Wireshark; '-' is standard output");
    command
        .number("--pcap-snaplen", &arguments.pcap_snaplen, {kSmallestSnaplen, kLargestPcapRecord},
                "Cut each record of the capture at this length")
        .shown_as("BYTES")
        .showing_default();
    command.text_or("--log", "-", &arguments.log_file,
                    "Tell in plain words what the cameras are asked, on standard error or in "
                    "--log=FILE");
    command
        .file("--state-socket", &arguments.state_socket,
              "Listen there for 'nyxus-sim state' and 'do' of other terminals")
        .shown_as("PATH");
    command.flag("--log-all", &arguments.log_all,
                 "Repeated requests in lines of their own instead of a number");
}

} // namespace sim
