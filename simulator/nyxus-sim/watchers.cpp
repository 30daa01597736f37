// SPDX-License-Identifier: Apache-2.0
#include "watchers.h"

namespace sim {

Watchers::Watchers(const WatchArguments& arguments, Clock& clock, bool is_real_time)
    : log_all_(arguments.log_all)
{
    const RecordTime time(clock, is_real_time);
    if (!arguments.pcap_file.empty())
        pcap_.emplace(arguments.pcap_file, arguments.pcap_snaplen, time);
    if (!arguments.log_file.empty())
        log_.emplace(arguments.log_file, clock);
}

void Watchers::watch(PluggedCamera& camera, const std::string& name)
{
    if (pcap_)
        observe(camera, captures_.emplace_back(*pcap_));
    if (log_)
        observe(camera, camera_logs_.emplace_back(*log_, name, !log_all_));
}

void Watchers::observe(PluggedCamera& camera, UsbObserver& observer)
{
    camera.add_observer(observer);
    observed_.emplace_back(&camera, &observer);
}

void Watchers::note(const std::string& name, const std::string& text)
{
    if (log_)
        log_->add(name, text);
}

bool Watchers::finish()
{
    for (const auto& [camera, observer] : observed_)
        camera->usb()->observers().remove(*observer);
    observed_.clear();
    for (CameraLog& log : camera_logs_)
        log.finish();
    const bool captured = !pcap_ || pcap_->report();
    const bool logged = !log_ || log_->report();
    return captured && logged;
}

} // namespace sim
