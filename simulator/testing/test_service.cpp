// SPDX-License-Identifier: Apache-2.0
#include "testing/test_service.h"

#include "cameras/shipped.h"
#include "chip/firmware_image.h"
#include "faults/fault_file.h"
#include "json/json.h"
#include "text/hex.h"

#include <algorithm>
#include <stdexcept>

namespace sim {

namespace {

/// What a request says; a member of another type is told by its name.
template <typename Value>
Value member(const json::Json& request, const char* name)
{
    try {
        return request.at(name).get<Value>();
    } catch (const json::Json::exception&) {
        throw std::runtime_error(std::string("'") + name + "' is missing, or of the wrong type");
    }
}

} // namespace

const TestService::Command TestService::kCommands[] = {
    {"plug", &TestService::plug},
    {"remove", &TestService::remove},
    {"replug", &TestService::replug},
    {"reset", &TestService::reset},
    {"faults", &TestService::plan_faults},
    {"strikes", &TestService::tell_strikes},
    {"transfers", &TestService::tell_transfers},
    {"forget-transfers", &TestService::forget_transfers},
    {"read-rom", &TestService::read_rom},
    {"write-rom", &TestService::write_rom},
    {"image", &TestService::make_image},
    {"settle", &TestService::settle},
    {"time", &TestService::tell_time},
    {"advance", &TestService::advance},
};

std::string TestService::answer(const std::string& line)
{
    try {
        const Json request = json::parsed(line);
        const std::string name = request.is_object() ? request.value("command", "") : "";
        const auto* const command = std::ranges::find(kCommands, name, &Command::name);
        if (command == std::end(kCommands))
            return house_.state_service.answer(line);
        Json reply = {{"ok", true}};
        (this->*command->run)(request, reply);
        return json::printed(reply);
    } catch (const std::exception& error) {
        return json::printed({{"ok", false}, {"error", error.what()}});
    }
}

PluggedCamera& TestService::camera_of(const Json& request) const
{
    const auto serial = member<std::string>(request, "camera");
    const auto camera = std::ranges::find(house_.cameras, serial, &PluggedCamera::serial);
    if (camera == house_.cameras.end())
        throw std::runtime_error("there is no camera '" + serial + "' on the simulated bus");
    return **camera;
}

void TestService::plug(const Json& request, Json& reply)
{
    const Camera camera = house_.plug(member<std::string>(request, "description"));
    reply["serial"] = camera.plugged->serial();
    if (camera.faults.empty())
        return;
    plans_[camera.plugged->serial()] = camera.faults;
    set_faults();
}

// What is left of it holds no port, so that a suite may plug in as many as it likes.
void TestService::take_out(PluggedCamera& camera)
{
    house_.bed.retire(camera);
    std::erase(house_.cameras, &camera);
    plans_.erase(camera.serial());
}

void TestService::remove(const Json& request, Json&)
{
    take_out(camera_of(request));
    set_faults();
}

void TestService::replug(const Json& request, Json&)
{
    PluggedCamera& camera = camera_of(request);
    if (camera.is_plugged())
        house_.bed.unplug(camera);
    house_.bed.replug(camera);
}

void TestService::reset(const Json&, Json&)
{
    plans_.clear();
    set_faults();
    house_.bed.settle();
    while (!house_.cameras.empty())
        take_out(*house_.cameras.back());
}

void TestService::plan_faults(const Json& request, Json&)
{
    const auto toml = member<std::string>(request, "toml");
    FaultPlan plan = toml.empty() ? FaultPlan() : parse_faults(toml, "faults");
    const std::string serial = request.contains("camera") ? camera_of(request).serial() : "";
    for (PlannedFault& fault : plan) {
        Trigger& when = fault.when;
        if (when.position > house_.cameras.size())
            throw std::runtime_error(fault.text + " is about a camera that is not plugged in");
        // The bed counts those that have gone, too.
        if (const unsigned position = std::exchange(when.position, 0); position > 0)
            when.serial = house_.cameras[position - 1]->serial();
        if (!serial.empty() && !when.serial.empty() && when.serial != serial)
            throw std::runtime_error(fault.text + " is about another camera");
        if (!serial.empty())
            when.serial = serial;
    }
    const auto before = plans_;
    plans_[serial] = std::move(plan);
    try {
        set_faults();
    } catch (const std::invalid_argument&) {
        plans_ = before;
        set_faults();
        throw;
    }
}

void TestService::set_faults()
{
    FaultPlan all;
    for (const auto& [serial, plan] : plans_)
        all.insert(all.end(), plan.begin(), plan.end());
    house_.bed.set_faults(all);
    plan_ = std::move(all);
}

void TestService::tell_strikes(const Json&, Json& reply)
{
    house_.bed.settle();
    const std::vector<uint64_t> strikes = house_.bed.fault_strikes();
    reply["faults"] = Json::array();
    for (size_t i = 0; i < plan_.size(); ++i) {
        const uint64_t times = i < strikes.size() ? strikes[i] : 0;
        reply["faults"].push_back({{"fault", plan_[i].text}, {"strikes", times}});
    }
}

void TestService::tell_transfers(const Json& request, Json& reply)
{
    reply["transfers"] = Json::array();
    for (const Transfer& transfer : camera_of(request).transfers()) {
        const Setup setup = Setup::from_wire(transfer.setup);
        reply["transfers"].push_back({setup.request_type, setup.request, setup.value, setup.index,
                                      setup.length, text::hex(transfer.data), transfer.status});
    }
}

void TestService::forget_transfers(const Json& request, Json&)
{
    camera_of(request).clear_transfers();
}

void TestService::read_rom(const Json& request, Json& reply)
{
    reply["bytes"] = text::hex(camera_of(request).controller()->rom);
}

void TestService::write_rom(const Json& request, Json&)
{
    const auto bytes = text::bytes_from_hex(member<std::string>(request, "bytes"));
    const auto address = member<size_t>(request, "address");
    const auto controller = camera_of(request).controller();
    const std::span<uint8_t> rom = controller->rom;
    if (!bytes)
        throw std::runtime_error("'bytes' are no hexadecimal digits");
    if (address > rom.size() || bytes->size() > rom.size() - address)
        throw std::runtime_error("the ROM has " + std::to_string(rom.size()) + " bytes");
    std::ranges::copy(*bytes, rom.begin() + static_cast<ptrdiff_t>(address));
}

void TestService::make_image(const Json& request, Json& reply)
{
    const auto name = member<std::string>(request, "model");
    const CameraModel* model = find_model(name);
    if (model == nullptr)
        throw std::runtime_error("there is no camera model '" + name + "'");
    ImageRequest image = factory_image_request(*model);
    image.version = member<uint16_t>(request, "version");
    reply["bytes"] = text::hex(make_firmware_image(image));
}

void TestService::settle(const Json&, Json&)
{
    house_.bed.settle();
}

void TestService::tell_time(const Json&, Json& reply)
{
    reply["is_virtual"] = house_.clock != nullptr;
    if (house_.clock != nullptr)
        reply["now_us"] = house_.clock->now_us();
}

void TestService::advance(const Json& request, Json&)
{
    if (house_.clock == nullptr)
        throw std::runtime_error("time is real on this bus, and passes by itself");
    house_.clock->advance_us(member<uint64_t>(request, "us"));
    house_.bed.settle();
}

} // namespace sim
