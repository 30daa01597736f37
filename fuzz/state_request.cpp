// SPDX-License-Identifier: Apache-2.0
// Feeds the state service of running cameras with any requests: questions and acts. Each gets one
// line of JSON.
//
// Input: the requests, one a line.
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "bus/bed.h"
#include "cameras/shipped.h"
#include "watch/state_service.h"

namespace {

constexpr unsigned kMostRequests = 16;

class Bench {
public:
    void run(std::istringstream requests)
    {
        std::string request;
        for (unsigned i = 0; i < kMostRequests && std::getline(requests, request); ++i) {
            const auto reply = nlohmann::json::parse(service_.answer(request));
            if (reply.at("ok").is_boolean() != true || reply.at("ok") == reply.contains("error"))
                std::abort();
        }
        for (sim::PluggedCamera* camera : cameras_)
            if (!camera->is_plugged())
                bed_.replug(*camera);
    }

private:
    sim::VirtualClock clock_;
    sim::TestBed bed_{clock_};
    std::vector<sim::PluggedCamera*> cameras_ = {
        &bed_.plug(*sim::find_model("rowan-spi"), {.serial = "A1"}),
        &bed_.plug(*sim::find_model("fi2-board"), {.serial = "B2"})};
    sim::StateService service_{bed_, cameras_, [](const std::string&, const std::string&) {}};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static auto& bench = *new Bench;
    bench.run(std::istringstream(std::string(data, data + size)));
    return 0;
}
