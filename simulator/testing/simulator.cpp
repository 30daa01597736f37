// SPDX-License-Identifier: Apache-2.0
#include <nyxus/simulator.hpp>

#include "enter.h"
#include "json/json.h"
#include "nyxus-sim/state_client.h"
#include "text/hex.h"

#include <algorithm>
#include <atomic>
#include <iterator>

namespace nyxus::simulator {

namespace {

using json::Json;

std::atomic<bool> bus_exists{false};

// A request is a line of 4096 characters at most.
constexpr std::size_t kRomChunk = 1536;

Json ask(const Json& request)
{
    try {
        return sim::ask_simulation("", request);
    } catch (const std::exception& error) {
        throw Error(error.what());
    }
}

Json ask(const char* command)
{
    return ask(Json{{"command", command}});
}

Json ask(const char* command, const std::string& camera)
{
    return ask(Json{{"command", command}, {"camera", camera}});
}

std::vector<std::uint8_t> bytes_of(const Json& text)
{
    return text::bytes_from_hex(text.get<std::string>()).value_or(std::vector<std::uint8_t>());
}

void reset()
{
    (void)ask("reset");
}

} // namespace

void Camera::act(const char* command) const
{
    (void)ask(command, serial_);
}

void Camera::unplug() const
{
    act("unplug");
}

void Camera::unplug_silently() const
{
    (void)ask({{"command", "unplug"}, {"camera", serial_}, {"silent", true}});
}

void Camera::replug() const
{
    act("replug");
}

void Camera::remove() const
{
    act("remove");
}

State Camera::state() const
{
    const Json all = ask("state", serial_).at("cameras").at(0);
    State state;
    state.model = all.at("model").get<std::string>();
    state.is_plugged = all.at("plugged").get<bool>();
    state.bus = all.at("bus").get<unsigned>();
    state.port = all.at("port").get<unsigned>();
    state.address = all.at("address").get<unsigned>();
    const Json& firmware = all.at("firmware");
    state.runs_external_firmware = firmware.at("runs") == "external";
    state.firmware_version = static_cast<std::uint16_t>(
        std::stoul(firmware.at("version").get<std::string>(), nullptr, 16));
    state.is_streaming = all.at("stream").at("streaming").get<bool>();
    state.frames_sent = all.at("stream").at("frames_sent").get<std::uint64_t>();
    state.json = json::printed(all, 2);
    return state;
}

std::vector<std::uint8_t> Camera::rom() const
{
    return bytes_of(ask("read-rom", serial_).at("bytes"));
}

void Camera::set_rom(const std::vector<std::uint8_t>& bytes, std::size_t address) const
{
    for (std::size_t done = 0; done < bytes.size(); done += kRomChunk) {
        const std::size_t count = std::min(kRomChunk, bytes.size() - done);
        (void)ask({{"command", "write-rom"},
                   {"camera", serial_},
                   {"address", address + done},
                   {"bytes", text::hex({bytes.data() + done, count})}});
    }
}

std::vector<Transfer> Camera::transfers() const
{
    std::vector<Transfer> transfers;
    const Json reply = ask("transfers", serial_);
    for (const Json& row : reply.at("transfers")) {
        Transfer transfer;
        transfer.request_type = row.at(0).get<std::uint8_t>();
        transfer.request = row.at(1).get<std::uint8_t>();
        transfer.value = row.at(2).get<std::uint16_t>();
        transfer.index = row.at(3).get<std::uint16_t>();
        transfer.length = row.at(4).get<std::uint16_t>();
        transfer.data = bytes_of(row.at(5));
        transfer.status = row.at(6).get<int>();
        transfers.push_back(std::move(transfer));
    }
    return transfers;
}

void Camera::forget_transfers() const
{
    act("forget-transfers");
}

void Camera::set_faults(const std::string& toml) const
{
    (void)ask({{"command", "faults"}, {"camera", serial_}, {"toml", toml}});
}

void Camera::raise_motion_alarm() const
{
    act("motion-alarm");
}

void Camera::touch(std::uint8_t state) const
{
    (void)ask({{"command", "touch"}, {"camera", serial_}, {"value", state}});
}

void Camera::set_register(std::uint16_t address, std::uint8_t value) const
{
    (void)ask(
        {{"command", "register"}, {"camera", serial_}, {"address", address}, {"value", value}});
}

Bus::Bus()
{
    if (const std::string reason = why_outside(); !reason.empty())
        throw Error("no simulated bus: " + reason);
    try {
        (void)ask("time");
    } catch (const Error& error) {
        throw Error(std::string("the simulation around this program is not for tests, start it by "
                                "'nyxus-sim run --test-bus': ") +
                    error.what());
    }
    if (bus_exists.exchange(true))
        throw Error("there is another Bus in this process");
    try {
        reset();
    } catch (...) {
        bus_exists = false;
        throw;
    }
}

// A simulation that has gone has taken its cameras along.
Bus::~Bus()
{
    try {
        reset();
    } catch (const Error&) {
    }
    bus_exists = false;
}

Camera Bus::plug(const std::string& description) const
{
    const Json reply = ask({{"command", "plug"}, {"description", description}});
    return Camera(reply.at("serial").get<std::string>());
}

void Bus::set_faults(const std::string& toml) const
{
    (void)ask({{"command", "faults"}, {"toml", toml}});
}

std::vector<Fault> Bus::faults() const
{
    std::vector<Fault> faults;
    const Json reply = ask("strikes");
    std::transform(reply.at("faults").begin(), reply.at("faults").end(), std::back_inserter(faults),
                   [](const Json& fault) {
                       return Fault{fault.at("fault").get<std::string>(),
                                    fault.at("strikes").get<std::uint64_t>()};
                   });
    return faults;
}

void Bus::settle() const
{
    (void)ask("settle");
}

std::vector<std::uint8_t> Bus::image(const std::string& model, std::uint16_t version) const
{
    return bytes_of(
        ask({{"command", "image"}, {"model", model}, {"version", version}}).at("bytes"));
}

bool Bus::has_virtual_time() const
{
    return ask("time").at("is_virtual").get<bool>();
}

std::chrono::microseconds Bus::now() const
{
    const Json time = ask("time");
    if (!time.contains("now_us"))
        throw Error("time is real on this bus");
    return std::chrono::microseconds(time.at("now_us").get<std::int64_t>());
}

void Bus::advance(std::chrono::microseconds time) const
{
    (void)ask({{"command", "advance"}, {"us", time.count()}});
}

} // namespace nyxus::simulator
