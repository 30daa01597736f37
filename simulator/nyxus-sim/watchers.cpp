// SPDX-License-Identifier: Apache-2.0
#include "watchers.h"

namespace sim {

Watchers::Watchers(const WatchArguments& arguments, Clock& clock, bool is_real_time)
{
    const RecordTime time(clock, is_real_time);
    if (!arguments.pcap_file.empty()) {
        pcap_.emplace(arguments.pcap_file, arguments.pcap_snaplen, time);
    }
}

void Watchers::watch(PluggedCamera& camera)
{
    if (pcap_) {
        camera.add_observer(captures_.emplace_back(*pcap_));
    }
}

bool Watchers::report()
{
    return !pcap_ || pcap_->report();
}

} // namespace sim
