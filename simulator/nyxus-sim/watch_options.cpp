// SPDX-License-Identifier: Apache-2.0
#include "watch_options.h"

#include "text/numbers.h"
#include "watch/pcap_file.h"

namespace sim {

void add_watch_options(CLI::App* command, WatchArguments& arguments)
{
    constexpr uint32_t kSmallestSnaplen = 128;
    command
        ->add_option("--pcap", arguments.pcap_file,
                     "Capture all USB traffic for Wireshark; '-' is standard output")
        ->type_name("FILE");
    command
        ->add_option("--pcap-snaplen", arguments.pcap_snaplen,
                     "Cut each record of the capture at this length")
        ->transform(text::without_leading_zeros, "")
        ->type_name("BYTES")
        ->check(CLI::Range(kSmallestSnaplen, kLargestPcapRecord))
        ->capture_default_str();
    command->add_flag("--log{-}", arguments.log_file,
                      "Tell in plain words what the cameras are asked, on standard error or in "
                      "--log=FILE");
    command
        ->add_option("--state-socket", arguments.state_socket,
                     "Listen there for 'nyxus-sim state' and 'do' of other terminals")
        ->type_name("PATH");
    command->add_flag("--log-all", arguments.log_all,
                      "Repeated requests in lines of their own instead of a number");
}

} // namespace sim
