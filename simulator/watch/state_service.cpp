// SPDX-License-Identifier: Apache-2.0
#include "watch/state_service.h"

#include "faults/fault_file.h"
#include "json/json.h"
#include "watch/camera_state.h"

#include <algorithm>
#include <stdexcept>

namespace sim {

namespace {

using json::Json;

/// What is wrong with a request.
struct BadRequest : std::runtime_error {
    using std::runtime_error::runtime_error;
};

Json parse_request(const std::string& text)
{
    Json request = json::parsed(text);
    if (request.is_discarded())
        throw BadRequest("the request is no JSON");
    if (!request.is_object())
        throw BadRequest("a request is a JSON object");
    return request;
}

/// `fallback` when it is not there; its type is that of the member.
template <typename Type>
Type member(const Json& request, const char* name, Type fallback, const char* what)
{
    const auto found = request.find(name);
    if (found == request.end())
        return fallback;
    if (found->type() != Json(fallback).type())
        throw BadRequest(std::string("'") + name + "' is " + what);
    return found->get<Type>();
}

std::string text_member(const Json& request, const char* name)
{
    return member(request, name, std::string(), "a text");
}

bool flag_member(const Json& request, const char* name)
{
    return member(request, name, false, "true or false");
}

uint16_t number(const Json& value, const char* name, uint16_t most)
{
    if (!value.is_number_unsigned() || value.get<uint64_t>() > most) {
        throw BadRequest(std::string("'") + name + "' is a number from 0 to " +
                         std::to_string(most));
    }
    return value.get<uint16_t>();
}

uint16_t number_member(const Json& request, const char* name, uint16_t most)
{
    if (!request.contains(name))
        throw BadRequest(std::string("'") + name + "' is missing");
    return number(request[name], name, most);
}

std::optional<RegisterRange> range_member(const Json& request)
{
    const auto member = request.find("registers");
    if (member == request.end())
        return std::nullopt;
    constexpr uint16_t kLast = 0xFFFF;
    if (!member->is_array() || member->size() != 2)
        throw BadRequest("'registers' are the first and the last one");
    const RegisterRange range{number((*member)[0], "registers", kLast),
                              number((*member)[1], "registers", kLast)};
    if (range.first > range.last)
        throw BadRequest("the first register comes before the last");
    return range;
}

PluggedCamera* find_camera(const std::vector<PluggedCamera*>& cameras, const std::string& name)
{
    const auto by_serial = std::ranges::find(cameras, name, &PluggedCamera::serial);
    if (by_serial != cameras.end())
        return *by_serial;
    for (size_t i = 0; i < cameras.size(); ++i) {
        if (std::to_string(i + 1) == name)
            return cameras[i];
    }
    std::string serials;
    for (const PluggedCamera* camera : cameras)
        serials += " " + camera->serial();
    throw BadRequest("there is no camera '" + name + "'; there are" + serials);
}

PluggedCamera& camera_of(const std::vector<PluggedCamera*>& cameras, const Json& request)
{
    const std::string name = text_member(request, "camera");
    if (!name.empty())
        return *find_camera(cameras, name);
    if (cameras.size() != 1)
        throw BadRequest("which camera? There are " + std::to_string(cameras.size()));
    return *cameras.front();
}

void require_plugged(const PluggedCamera& camera, bool wanted)
{
    if (camera.is_plugged() != wanted) {
        throw BadRequest(wanted ? "the camera is not plugged in"
                                : "the camera is plugged in already");
    }
}

struct Act {
    const char* name;
    void (*run)(TestBed& bed, PluggedCamera& camera, const Json& request);
};
constexpr Act kActs[] = {
    {"motion-alarm", [](TestBed&, PluggedCamera& camera,
                        const Json&) { camera.controller()->raise_motion_alarm(); }},
    {"touch",
     [](TestBed&, PluggedCamera& camera, const Json& request) {
         camera.controller()->set_touch(
             static_cast<uint8_t>(number_member(request, "value", 0xFF)));
     }},
    {"unplug",
     [](TestBed& bed, PluggedCamera& camera, const Json& request) {
         require_plugged(camera, true);
         bed.unplug(camera, flag_member(request, "silent") ? Announce::kNo : Announce::kYes);
     }},
    {"replug",
     [](TestBed& bed, PluggedCamera& camera, const Json& request) {
         require_plugged(camera, false);
         std::optional<unsigned> port;
         if (request.contains("port"))
             port = number_member(request, "port", 0xFF);
         bed.replug(camera, port);
     }},
    {"register",
     [](TestBed&, PluggedCamera& camera, const Json& request) {
         const uint16_t address = number_member(request, "address", 0xFFFF);
         const auto value = static_cast<uint8_t>(number_member(request, "value", 0xFF));
         camera.controller()->set_reg(address, value);
     }},
};

Json state_of(const std::vector<PluggedCamera*>& cameras, const Json& request)
{
    const std::optional<RegisterRange> registers = range_member(request);
    const bool with_rom = flag_member(request, "rom");
    std::vector<PluggedCamera*> wanted = cameras;
    if (const std::string name = text_member(request, "camera"); !name.empty())
        wanted = {find_camera(cameras, name)};
    Json states = Json::array();
    for (PluggedCamera* camera : wanted)
        states.push_back(camera_state(*camera, registers, with_rom));
    return {{"ok", true}, {"cameras", states}};
}

} // namespace

Json StateService::answer_to(const std::string& text)
{
    const Json request = parse_request(text);
    const std::string command = text_member(request, "command");
    if (command == "state")
        return state_of(cameras_, request);
    act(command, request);
    return {{"ok", true}};
}

void StateService::act(const std::string& name, const Json& request)
{
    if (name == "fault")
        return add_faults(request);
    if (name == "clear") {
        on_act_("", name);
        return bed_.set_faults({});
    }
    const auto* const act = std::ranges::find(kActs, name, &Act::name);
    if (act == std::end(kActs))
        throw BadRequest("there is no command '" + name + "'");
    PluggedCamera& camera = camera_of(cameras_, request);
    on_act_(camera.serial(), name);
    act->run(bed_, camera, request);
}

void StateService::add_faults(const Json& request)
{
    FaultPlan plan = parse_faults(text_member(request, "faults"), "do fault");
    const std::string camera = text_member(request, "camera");
    if (!camera.empty()) {
        const auto place = std::ranges::find(cameras_, find_camera(cameras_, camera));
        for (PlannedFault& fault : plan)
            fault.when.position = static_cast<unsigned>(place - cameras_.begin()) + 1;
    }
    for (PlannedFault& fault : plan)
        fault.text += " of 'do fault'";
    on_act_(camera, "fault");
    bed_.add_faults(plan);
}

std::string StateService::answer(const std::string& request)
{
    Json reply;
    try {
        reply = answer_to(request);
    } catch (const std::exception& error) {
        reply = {{"ok", false}, {"error", error.what()}};
    }
    return json::printed(reply);
}

} // namespace sim
