// SPDX-License-Identifier: Apache-2.0
// Makes the seed corpora of the camera targets from what the simulated cameras really say, and of
// the others from their images and from a USB/IP host's messages: fuzz_seeds FOLDER
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "cameras/shipped.h"
#include "chip/firmware_image.h"
#include "operations.h"
#include "support/camera_script.h"
#include "support/open_cameras.h"
#include "tests/usbip_peer.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr size_t kMostBytes = 1500;
constexpr size_t kCallsPerSeed = 12;

class Folder {
public:
    Folder(const std::filesystem::path& corpora, const std::string& target)
        : path_(corpora / target)
    {
        std::filesystem::create_directories(path_);
    }

    void put(const std::string& name, const Bytes& bytes) const
    {
        std::ofstream(path_ / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
    }

private:
    std::filesystem::path path_;
};

void append(Bytes& bytes, const Bytes& more)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
}

/// The answers to these transfers as a script, as many as fit.
Bytes answers(const std::vector<sim::Transfer>& transfers)
{
    Bytes script;
    for (const sim::Transfer& transfer : transfers)
        if (script.size() < kMostBytes)
            fuzz::put_reply(script, transfer);
    return script;
}

/// The same transfers as a host makes them.
Bytes requests(const std::vector<sim::Transfer>& transfers)
{
    Bytes script;
    for (const sim::Transfer& transfer : transfers) {
        if (script.size() >= kMostBytes)
            break;
        script.insert(script.end(), transfer.setup.begin(), transfer.setup.end());
        if (!sim::Setup::from_wire(transfer.setup).is_in())
            append(script, transfer.data);
    }
    return script;
}

/// Bytes as a peer's pieces.
void put_piece(Bytes& script, const Bytes& bytes)
{
    for (size_t at = 0; at < bytes.size(); at += 256) {
        const size_t count = std::min<size_t>(bytes.size() - at, 256);
        script.push_back(static_cast<uint8_t>(count - 1));
        script.insert(script.end(), bytes.begin() + static_cast<ptrdiff_t>(at),
                      bytes.begin() + static_cast<ptrdiff_t>(at + count));
    }
}

Bytes encode(size_t operation, const fuzz::Numbers& n)
{
    return {static_cast<uint8_t>(operation), static_cast<uint8_t>(n.a),
            static_cast<uint8_t>(n.a >> 8),  static_cast<uint8_t>(n.b),
            static_cast<uint8_t>(n.b >> 8),  n.c};
}

/// Calls a dozen functions, starting with the given one, on a healthy camera.
void record_calls(const Folder& calls, const Folder& hosts, NyDevice* device,
                  sim::PluggedCamera& camera, uint8_t model, size_t first)
{
    const auto operations = fuzz::operations();
    const size_t end = std::min(operations.size(), first + kCallsPerSeed);
    constexpr fuzz::Numbers kNumbers = {0x0042, 0x0012, 1};
    constexpr uint8_t kTracedAfterHonestProbe = 3;
    Bytes script = {model, kTracedAfterHonestProbe, static_cast<uint8_t>(end - first)};
    camera.clear_transfers();
    for (size_t i = first; i < end; ++i) {
        append(script, encode(i, kNumbers));
        const std::string name = operations[i].name;
        const bool restarts = name == "XU_ChipReset" || name == "DEV_SoftReset";
        if (!restarts)
            operations[i].run(device, kNumbers);
    }
    const std::vector<sim::Transfer> transfers = camera.transfers();
    append(script, answers(transfers));
    const std::string name = "calls-" + std::to_string(first);
    calls.put(name, script);
    Bytes requested = {model};
    append(requested, requests(transfers));
    hosts.put(name, requested);
}

void record_cameras(const std::filesystem::path& corpora)
{
    const Folder probes(corpora, "hostile_probe");
    const Folder calls(corpora, "hostile_camera");
    const Folder hosts(corpora, "hostile_host");
    fuzz::Cameras cameras;
    std::vector<NyDevice*> devices;
    for (uint8_t model = 0; model < fuzz::kModelCount; ++model) {
        devices.push_back(DEV_CreateObjectUsb(cameras.usb_device(model)));
        const std::string name = "probe-" + std::string(fuzz::kModels[model]);
        const std::vector<sim::Transfer> transfers = cameras.sim(model).transfers();
        Bytes probe = {model, 1};
        append(probe, answers(transfers));
        probes.put(name, probe);
        probe.insert(probe.begin() + 2, 0); // no calls
        calls.put(name, probe);
        Bytes requested = {model};
        append(requested, requests(transfers));
        hosts.put(name, requested);
    }
    size_t model = 0;
    for (size_t first = 0; first < fuzz::operations().size(); first += kCallsPerSeed) {
        record_calls(calls, hosts, devices[model], cameras.sim(model), static_cast<uint8_t>(model),
                     first);
        model = (model + 1) % fuzz::kModelCount;
    }
}

/// A list, an import with some transfers, and streams of a bulk and an isochronous camera.
void make_peers(const std::filesystem::path& corpora)
{
    using sim::usbip::Peer;
    const Folder folder(corpora, "usbip_peer");
    Bytes list = {0, 0};
    put_piece(list, Peer::operation(sim::usbip::kListRequest));
    folder.put("list", list);

    const sim::Setup commit = {0x21, sim::kSetCur, 0x0200, 1, 26};
    const sim::Setup brightness = {0xA1, sim::kGetCur, 0x0200, 0x0200, 2};
    const sim::Setup start = {0x01, 11, 1, 1, 0};
    for (const uint8_t model : {uint8_t{0}, uint8_t{6}}) {
        Peer peer;
        Bytes stream = {model, 0};
        put_piece(stream, Peer::import("1-1"));
        put_piece(stream, peer.control({0x80, 6, 0x0200, 0, 512}));
        put_piece(stream, peer.control(brightness));
        put_piece(stream, peer.control(commit, Bytes(26, 1)));
        put_piece(stream, peer.control(start));
        put_piece(stream, model == 0 ? peer.read(1, 8192) : peer.read_packets(1, 4, 1024));
        put_piece(stream, peer.read(3, 16));
        put_piece(stream, peer.unlink(5));
        folder.put(model == 0 ? "bulk" : "isochronous", stream);
    }
}

void make_images(const std::filesystem::path& corpora)
{
    const Folder folder(corpora, "images");
    const std::string serial = "VELKA_0009_LINK";
    const Bytes mfi = sim::make_mfi_image(7, serial);
    for (const uint8_t task : {uint8_t{1}, uint8_t{2}}) {
        Bytes seed = {task, static_cast<uint8_t>(serial.size())};
        seed.insert(seed.end(), serial.begin(), serial.end());
        append(seed, mfi);
        folder.put("mfi-" + std::to_string(task), seed);
    }
    sim::ImageRequest request = sim::factory_image_request(*sim::find_model("rowan-spi"));
    request.image_bytes = 0x100;
    Bytes firmware = sim::make_firmware_image(request);
    firmware.insert(firmware.end(), 16, 0xFF);
    for (const uint8_t task : {uint8_t{15}, uint8_t{19}}) {
        Bytes seed = {task};
        append(seed, mfi);
        folder.put("mfi-" + std::to_string(task), seed);
    }
    for (const uint8_t task : {uint8_t{0}, uint8_t{3}, uint8_t{7}, uint8_t{11}, uint8_t{15}}) {
        Bytes seed = {task};
        append(seed, firmware);
        folder.put("firmware-" + std::to_string(task), seed);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fputs("usage: fuzz_seeds FOLDER\n", stderr);
        return 2;
    }
    const std::filesystem::path corpora = std::filesystem::absolute(argv[1]);
    std::filesystem::current_path(
        std::filesystem::temp_directory_path()); // MP_FwCompare leaves a file
    record_cameras(corpora);
    make_images(corpora);
    make_peers(corpora);
    return 0;
}
