// SPDX-License-Identifier: Apache-2.0
#include "recorder.h"

#include <stdexcept>

namespace bench {

static std::vector<sim::Transfer> trace(SimCamera& camera, const std::function<void()>& operation)
{
    camera.sim().clear_transfers();
    camera.sim().set_tracing(true);
    operation();
    camera.sim().set_tracing(false);
    return camera.sim().transfers();
}

Recording record(SimCamera& camera, const std::function<void()>& operation)
{
    std::vector<uint64_t> begin_us;
    camera.sim().set_fault([&](const sim::Setup&, uint64_t) {
        begin_us.push_back(camera.clock().now_us());
        return sim::Fault::none();
    });
    const uint64_t start_us = camera.clock().now_us();
    const auto transfers = trace(camera, operation);
    const uint64_t end_us = camera.clock().now_us();
    camera.sim().set_fault({});
    if (transfers.size() != begin_us.size())
        throw std::runtime_error("the trace is not complete");

    Recording recording{{}, static_cast<double>(end_us - start_us) * 1e-6};
    uint64_t free_us = start_us;
    for (size_t i = 0; i < transfers.size(); ++i) {
        const sim::Setup setup = sim::Setup::from_wire(transfers[i].setup);
        if (transfers[i].status != 0)
            throw std::runtime_error("a recorded transfer failed");
        recording.steps.push_back({static_cast<uint32_t>(begin_us[i] - free_us), setup.request_type,
                                   setup.request, setup.value, setup.index, setup.length,
                                   setup.is_in() ? std::vector<uint8_t>() : transfers[i].data});
        free_us = begin_us[i] + camera.sim().model().usb_latency_us;
    }
    return recording;
}

uint64_t count_transfers(SimCamera& camera, const std::function<void()>& operation)
{
    uint64_t count = 0;
    camera.sim().set_fault([&](const sim::Setup&, uint64_t) {
        ++count;
        return sim::Fault::none();
    });
    operation();
    camera.sim().set_fault({});
    return count;
}

bool moves_the_same(SimCamera& camera, const std::function<void()>& one,
                    const std::function<void()>& other)
{
    return trace(camera, one) == trace(camera, other);
}

} // namespace bench
