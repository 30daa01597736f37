// SPDX-License-Identifier: Apache-2.0
// What can be asked for under /api, as api/openapi.json describes it.
#include "api/studio.h"
#include "text/numbers.h"
#include "text/printable.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace studio {

namespace {

using engine::Reason;

struct Call {
    Studio& studio;
    const Request& request;
    const Reply& reply;
    std::vector<std::string> names; ///< what stands in the path for {}
    Json body;
};

Response bad_request(const std::string& why)
{
    return error_response(400, Reason::kOutOfRange, why);
}

/// A number of the body; nothing for none, or one beyond `most`.
std::optional<uint64_t> number_in(const Json& body, const char* name, uint64_t most)
{
    if (!body.is_object() || !body.contains(name) || !body[name].is_number_unsigned() ||
        body[name].get<uint64_t>() > most)
        return std::nullopt;
    return body[name].get<uint64_t>();
}

uint64_t number_of(const Request& request, const char* name, uint64_t otherwise)
{
    const auto found = request.query.find(name);
    if (found == request.query.end())
        return otherwise;
    return text::parse_number(found->second).value_or(UINT64_MAX);
}

std::optional<std::vector<uint8_t>> bytes_in(const Json& body)
{
    constexpr size_t kMost = 256;
    if (!body.contains("bytes") || !body["bytes"].is_array() || body["bytes"].size() > kMost)
        return std::nullopt;
    std::vector<uint8_t> bytes;
    for (const Json& byte : body["bytes"]) {
        if (!byte.is_number_unsigned() || byte.get<uint64_t>() > 0xFF)
            return std::nullopt;
        bytes.push_back(byte.get<uint8_t>());
    }
    return bytes;
}

Response octets(nyxus::Bytes bytes)
{
    return {200, "application/octet-stream",
            std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size())};
}

Response part_of(nyxus::Bytes bytes, const Request& request)
{
    constexpr uint64_t kMost = 1 << 16;
    const uint64_t offset = number_of(request, "offset", 0);
    const uint64_t size = number_of(request, "size", kMost);
    if (offset > bytes.size() || size > kMost)
        return bad_request("at most 65536 bytes, from within");
    return octets(bytes.subspan(offset, size));
}

/// Does it on the camera's thread, and answers with what it returns.
void on_camera(const Call& call,
               std::function<Response(HeldCamera& held, engine::Camera& camera)> work)
{
    Studio::Port* port = call.studio.find(call.names[0]);
    if (port == nullptr) {
        return call.reply(
            error_response(404, Reason::kCameraGone, "no camera at port " + call.names[0]));
    }
    HeldCamera& held = *port->camera;
    const bool runs = held.run(
        [&held, reply = call.reply, work = std::move(work)](const HeldCamera::Open& opened) {
            reply(opened ? work(held, **opened) : response_of(opened.status()));
        });
    if (!runs)
        call.reply(error_response(503, Reason::kBusy, "too much waits for this camera already"));
}

template <typename Value>
Json value_or_null(const Value& value)
{
    return value ? Json(*value) : Json();
}

void get_studio(const Call& call)
{
    const char* preloaded = std::getenv("LD_PRELOAD");
    const bool simulated = preloaded != nullptr && std::strstr(preloaded, "nyxus") != nullptr;
    call.reply(response_of(Json{{"version", NYXUS_VERSION},
                                {"read_only", call.studio.settings.read_only},
                                {"simulated", simulated},
                                {"limits", {{"file_bytes", 16 << 20}, {"body_bytes", 1 << 16}}}}));
}

void get_cameras(const Call& call)
{
    Json list = Json::array();
    for (const auto& [name, port] : call.studio.ports) {
        if (!port.is_here)
            continue;
        const nyxus::CameraInfo info = port.camera->info();
        const bool is_ours = port.camera->is_held();
        const nyxus::Status open = is_ours ? nyxus::Status() : nyxus::can_open(info);
        Json camera = json_of(info);
        camera["openable"] = open.ok();
        if (!open.ok())
            camera["reason"] = text::printable(open.message());
        camera["held_by"] = is_ours ? Json("studio") : Json();
        camera["rom"] = json_of(engine::Backups().history(info));
        list.push_back(std::move(camera));
    }
    call.reply(response_of(list));
}

void get_camera(const Call& call)
{
    on_camera(call, [](HeldCamera&, engine::Camera& camera) {
        Json object = json_of(camera);
        object["features"] = {{"flip", camera.flip().ok()},
                              {"mirror", camera.mirror().ok()},
                              {"mjpeg_gain", camera.mjpeg_gain().ok()},
                              {"gpio", camera.gpio().ok()},
                              {"led", camera.led(0).ok()},
                              {"motion", camera.motion_setting().ok()}};
        return response_of(object);
    });
}

void get_formats(const Call& call)
{
    on_camera(call, [](HeldCamera&, engine::Camera& camera) {
        const auto formats = nyxus::list_formats(camera);
        if (!formats)
            return response_of(formats.status());
        Json list = Json::array();
        for (const NyStreamFormat& format : *formats)
            list.push_back(json_of(format));
        return response_of(list);
    });
}

void get_controls(const Call& call)
{
    on_camera(call, [](HeldCamera&, engine::Camera& camera) {
        const auto controls = nyxus::list_controls(camera);
        if (!controls)
            return response_of(controls.status());
        Json list = Json::array();
        for (const NyControl& control : *controls)
            list.push_back(json_of(control));
        return response_of(list);
    });
}

void put_control(const Call& call)
{
    if (!call.body.contains("value") || !call.body["value"].is_number_integer())
        return call.reply(bad_request("\"value\" is a number"));
    on_camera(call, [name = call.names[1], value = call.body["value"].get<int64_t>()](
                        HeldCamera&, engine::Camera& camera) {
        const auto controls = nyxus::list_controls(camera);
        if (!controls)
            return response_of(controls.status());
        const auto found = std::ranges::find_if(
            *controls, [&](const NyControl& control) { return control.name == name; });
        if (found == controls->end())
            return error_response(404, Reason::kNotSupported, "the camera has no such control");
        if (value < found->minimum || value > found->maximum)
            return bad_request("the value is beyond the control's range");
        if (const nyxus::Status set = nyxus::set_control(camera, found->id, value); !set)
            return response_of(set);
        const auto now = nyxus::get_control(camera, found->id);
        return now ? response_of(json_of(*now)) : response_of(now.status());
    });
}

void get_features(const Call& call)
{
    on_camera(call, [](HeldCamera&, engine::Camera& camera) {
        Json object = {{"flip", value_or_null(camera.flip())},
                       {"mirror", value_or_null(camera.mirror())},
                       {"mjpeg_gain", value_or_null(camera.mjpeg_gain())},
                       {"led", value_or_null(camera.led(0))},
                       {"motion", value_or_null(camera.motion_setting())},
                       {"gpio", nullptr}};
        if (const auto pins = camera.gpio()) {
            constexpr const char* kStates[] = {"not driven", "low", "high"};
            object["gpio"] = Json::array();
            for (const nyxus::PinState pin : *pins)
                object["gpio"].push_back(kStates[static_cast<size_t>(pin)]);
        }
        return response_of(object);
    });
}

nyxus::Status set_feature(engine::Camera& camera, const std::string& name, const Json& body)
{
    const auto wrong = [](const char* why) { return nyxus::Status(Reason::kOutOfRange, why); };
    if (name == "flip" || name == "mirror") {
        if (!body.contains("on") || !body["on"].is_boolean())
            return wrong("\"on\" is true or false");
        return name == "flip" ? camera.set_flip(body["on"]) : camera.set_mirror(body["on"]);
    }
    if (name == "mjpeg_gain") {
        const auto value = number_in(body, "value", 63);
        return value ? camera.set_mjpeg_gain(static_cast<uint8_t>(*value))
                     : wrong("\"value\" is a number up to 63");
    }
    if (name == "led") {
        const auto index = number_in(body, "index", 255);
        const auto state = number_in(body, "state", 255);
        return index && state
                   ? camera.set_led(static_cast<uint8_t>(*index), static_cast<uint8_t>(*state))
                   : wrong("\"index\" and \"state\" are bytes");
    }
    if (name == "gpio") {
        const auto pin = number_in(body, "pin", 15);
        return pin && body.contains("high") && body["high"].is_boolean()
                   ? camera.set_gpio(static_cast<uint8_t>(*pin), body["high"])
                   : wrong("\"pin\" is a number up to 15, \"high\" true or false");
    }
    if (name == "motion") {
        const auto bytes = bytes_in(body);
        if (!bytes || bytes->size() != 4)
            return wrong("\"bytes\" are four");
        return camera.set_motion_setting({(*bytes)[0], (*bytes)[1], (*bytes)[2], (*bytes)[3]});
    }
    return {Reason::kNotSupported, "no such feature"};
}

void put_feature(const Call& call)
{
    on_camera(call, [name = call.names[1], body = call.body](HeldCamera&, engine::Camera& camera) {
        const nyxus::Status set = set_feature(camera, name, body);
        return set ? response_of(Json::object()) : response_of(set);
    });
}

/// Reads or writes registers or the I2C device.
void access_memory(const Call& call, bool is_i2c, bool writes)
{
    const auto address = number_in(call.body, "address", is_i2c ? 0x1FF : 0xFFFF);
    const size_t most = is_i2c ? 8 : 256;
    const auto count = number_in(call.body, "count", most);
    auto bytes =
        writes ? bytes_in(call.body) : std::optional(std::vector<uint8_t>(count.value_or(0)));
    if (!address || !bytes || bytes->empty() || bytes->size() > most)
        return call.reply(bad_request("an \"address\", and \"count\" or \"bytes\""));
    on_camera(call, [=, at = static_cast<uint16_t>(*address), moved = std::move(*bytes)](
                        HeldCamera&, engine::Camera& camera) mutable {
        const nyxus::Status done =
            is_i2c   ? writes ? camera.write_i2c(at, moved) : camera.read_i2c(at, moved)
              : writes ? camera.write_registers(at, moved)
                     : camera.read_registers(at, moved);
        return done ? response_of(Json{{"address", at}, {"bytes", moved}}) : response_of(done);
    });
}

struct Region {
    const char* name;
    uint32_t address;
    uint32_t bytes;
};

void get_rom_map(const Call& call)
{
    on_camera(call, [](HeldCamera& held, engine::Camera& camera) {
        const auto rom = held.rom(camera);
        if (!rom)
            return response_of(rom.status());
        constexpr uint32_t kHeader = engine::Firmware::kHeaderBytes;
        constexpr Region kRegions[] = {
            {"header", 0, kHeader},
            {"body", kHeader, NYXUS_MFI_ROM_ADDR - kHeader},
            {"mfi", NYXUS_MFI_ROM_ADDR, 0x1000},
            {"free", NYXUS_MFI_ROM_ADDR + 0x1000,
             uint32_t{SPI_RESERVED_ADDR} - uint32_t{NYXUS_MFI_ROM_ADDR} - 0x1000},
            {"reserved", SPI_RESERVED_ADDR, 256},
            {"free", SPI_RESERVED_ADDR + 256, UINT32_MAX}};
        const nyxus::Bytes bytes = **rom;
        Json regions = Json::array();
        for (const Region& region : kRegions) {
            const nyxus::Bytes part = bytes.subspan(region.address, region.bytes);
            if (part.empty())
                continue;
            const auto used = part.size() - static_cast<size_t>(std::ranges::count(part, 0xFF));
            const bool is_other = used > 0 && std::strcmp(region.name, "free") == 0;
            regions.push_back({{"region", is_other ? "other" : region.name},
                               {"address", region.address},
                               {"bytes", part.size()},
                               {"used_bytes", used}});
        }
        const engine::ImageFacts facts = engine::inspect_contents(**rom);
        return response_of(
            Json{{"part_bytes", engine::part_bytes(camera)},
                 {"readable_bytes", engine::readable_bytes(camera)},
                 {"holds", engine::is_blank(**rom) ? "blank" : to_text(facts.contents)},
                 {"regions", std::move(regions)}});
    });
}

void get_rom_bytes(const Call& call)
{
    on_camera(call, [request = call.request](HeldCamera& held, engine::Camera& camera) {
        const auto rom = held.rom(camera);
        return rom ? part_of(**rom, request) : response_of(rom.status());
    });
}

void get_differences(const Call& call)
{
    std::vector<uint8_t> other;
    const Json against = call.body.value("against", Json::object());
    if (!against.is_object())
        return call.reply(bad_request("\"against\" is a file or a backup"));
    if (against.contains("file") && against["file"].is_string()) {
        const auto file = call.studio.files.find(against["file"].get<std::string>());
        if (file == call.studio.files.end())
            return call.reply(error_response(404, Reason::kFile, "no such file"));
        other = file->second.bytes;
    } else if (against.contains("backup") && against["backup"].is_string()) {
        const engine::Backups store;
        const auto all = store.list(); // never a path
        const auto name = against["backup"].get<std::string>();
        if (!all)
            return call.reply(response_of(all.status()));
        const auto found = std::ranges::find(*all, name, &engine::Backup::name);
        if (found == all->end())
            return call.reply(error_response(404, Reason::kNoBackup, "no such backup"));
        const auto bytes = store.read(*found);
        if (!bytes)
            return call.reply(response_of(bytes.status()));
        other = *bytes;
    } else {
        return call.reply(bad_request("\"against\" is a file or a backup"));
    }
    on_camera(call, [other = std::move(other)](HeldCamera& held, engine::Camera& camera) {
        constexpr size_t kMostRanges = 1000;
        const auto rom = held.rom(camera);
        if (!rom)
            return response_of(rom.status());
        const std::vector<uint8_t>& mine = **rom;
        const size_t size = std::min(mine.size(), other.size());
        size_t count = 0;
        Json ranges = Json::array();
        for (size_t at = 0; at < size;) {
            size_t end = at;
            while (end < size && mine[end] != other[end])
                ++end;
            if (end > at && ranges.size() < kMostRanges)
                ranges.push_back({{"address", at}, {"bytes", end - at}});
            count += end - at;
            at = end + 1;
        }
        return response_of(
            Json{{"compared_bytes", size}, {"count", count}, {"ranges", std::move(ranges)}});
    });
}

void restart_camera(const Call& call)
{
    on_camera(call, [](HeldCamera& held, engine::Camera& camera) {
        held.forget_rom();
        const nyxus::Status done = camera.restart();
        return done ? response_of(Json::object(), 202) : response_of(done);
    });
}

void post_file(const Call& call)
{
    constexpr size_t kMostFiles = 16;
    if (call.request.body.empty())
        return call.reply(bad_request("the file is empty"));
    auto& files = call.studio.files;
    if (files.size() >= kMostFiles) {
        const auto oldest = std::ranges::min_element(
            files, {}, [](const auto& entry) { return std::stoull(entry.first); });
        std::erase_if(call.studio.plans,
                      [&](const auto& plan) { return plan.second.file == oldest->first; });
        files.erase(oldest);
    }
    const std::string id = call.studio.next_id();
    const std::string& body = call.request.body;
    DroppedFile file;
    file.bytes.assign(body.begin(), body.end());
    file.facts = engine::inspect_contents(file.bytes);
    const Json facts = json_of(file.facts);
    files[id] = std::move(file);
    call.reply(response_of(Json{{"id", id}, {"kind", facts["contents"]}, {"facts", facts}}, 201));
}

void get_file_fit(const Call& call)
{
    const auto file = call.studio.files.find(call.names[1]);
    if (file == call.studio.files.end())
        return call.reply(error_response(404, Reason::kFile, "no such file"));
    on_camera(call, [facts = file->second.facts](HeldCamera&, engine::Camera& camera) {
        const engine::Status fits = engine::check_image(camera, facts);
        return response_of(Json{{"fits", fits.ok()}, {"why", text::printable(fits.message())}});
    });
}

void get_file_bytes(const Call& call)
{
    const auto file = call.studio.files.find(call.names[0]);
    call.reply(file == call.studio.files.end() ? error_response(404, Reason::kFile, "no such file")
                                               : part_of(file->second.bytes, call.request));
}

Json plan_json(engine::Camera& camera, const engine::Images& images,
               const std::vector<uint8_t>& rom)
{
    const engine::Plan plan = engine::plan_upgrade(camera, images, {}, rom);
    engine::Cost cost;
    Json steps = Json::array();
    for (const engine::Step& step : plan.steps) {
        cost += engine::cost_of(camera, step);
        steps.push_back(json_of(step));
    }
    const auto list = [](const std::vector<engine::Part>& parts) {
        Json array = Json::array();
        for (const engine::Part& part : parts)
            array.push_back(json_of(part));
        return array;
    };
    return {{"camera", camera.info().port_path},
            {"from", text::printable(camera.version())},
            {"to", text::printable(images.version())},
            {"up_to_date", engine::is_up_to_date(plan, rom)},
            {"kept", list(plan.kept)},
            {"replaced", list(plan.replaced)},
            {"lost", list(plan.lost)},
            {"unreachable", list(plan.unreachable)},
            {"steps", std::move(steps)},
            {"transfers", cost.transfers},
            {"pauses_s", cost.pauses_s},
            {"error", nullptr}};
}

/// Cameras plan side by side; the last one answers.
struct Planning {
    std::mutex mutex;
    size_t missing = 0;
    Json plans = Json::array();
};

void post_plan(const Call& call)
{
    constexpr size_t kMostPlans = 64;
    const Json& body = call.body;
    if (!body.contains("file") || !body["file"].is_string() || !body.contains("cameras") ||
        !body["cameras"].is_array() || body["cameras"].empty())
        return call.reply(bad_request("a \"file\", and \"cameras\""));
    const auto file = call.studio.files.find(body["file"].get<std::string>());
    if (file == call.studio.files.end() || !file->second.facts.firmware)
        return call.reply(error_response(404, Reason::kFile, "no such file, or no firmware in it"));
    const auto trust = engine::find_trust(engine::TrustFolders::usual());
    const engine::Status trusted = trust ? trust->check_bare_image("the image") : trust.status();
    if (!trusted)
        return call.reply(response_of(trusted));
    std::vector<std::string> names;
    for (const Json& name : body["cameras"]) {
        const std::string port = name.is_string() ? name.get<std::string>() : "";
        if (call.studio.find(port) == nullptr)
            return call.reply(
                error_response(404, Reason::kCameraGone, "no camera at port " + port));
        if (std::ranges::find(names, port) == names.end())
            names.push_back(port);
    }
    if (call.studio.plans.size() >= kMostPlans)
        call.studio.plans.erase(call.studio.plans.begin());
    const std::string id = call.studio.next_id();
    call.studio.plans[id] = {file->first, names};
    const auto planning = std::make_shared<Planning>();
    planning->missing = names.size();
    for (const std::string& name : names) {
        HeldCamera& held = *call.studio.find(name)->camera;
        const auto add = [planning, id, reply = call.reply](Json plan) {
            const std::lock_guard lock(planning->mutex);
            planning->plans.push_back(std::move(plan));
            if (--planning->missing == 0)
                reply(response_of(Json{{"id", id}, {"cameras", planning->plans}}, 201));
        };
        const auto failed = [add, name](const nyxus::Status& status) {
            add({{"camera", name}, {"error", json_of(status)}});
        };
        const bool runs =
            held.run([&held, add, failed, images = engine::Images{*file->second.facts.firmware}](
                         const HeldCamera::Open& opened) {
                if (!opened)
                    return failed(opened.status());
                engine::Camera& camera = **opened;
                if (const engine::Status fits = engine::check_images(camera, images); !fits)
                    return failed(fits);
                const auto rom = held.rom(camera);
                rom ? add(plan_json(camera, images, **rom)) : failed(rom.status());
            });
        if (!runs)
            failed(nyxus::Status(Reason::kBusy, "too much waits for this camera already"));
    }
}

void get_jobs(const Call& call)
{
    Json list = Json::array();
    for (const auto& [id, job] : call.studio.jobs)
        list.push_back(json_of(*job));
    call.reply(response_of(list));
}

void with_job(const Call& call, const std::function<void(Job&)>& act)
{
    const auto job = call.studio.jobs.find(call.names[0]);
    if (job == call.studio.jobs.end())
        return call.reply(error_response(404, Reason::kOther, "no such job"));
    act(*job->second);
    call.reply(response_of(json_of(*job->second)));
}

void get_backups(const Call& call)
{
    const auto all = engine::Backups().list();
    if (!all)
        return call.reply(response_of(all.status()));
    Json list = Json::array();
    for (const engine::Backup& backup : *all)
        list.push_back(json_of(backup));
    call.reply(response_of(list));
}

struct Route {
    const char* method;
    const char* path; ///< {}: anything but a slash
    void (*answer)(const Call& call);
};

// clang-format off
constexpr Route routes[] = {
    {"GET",  "/api/studio",                        get_studio},
    {"GET",  "/api/cameras",                       get_cameras},
    {"GET",  "/api/cameras/{}",                    get_camera},
    {"GET",  "/api/cameras/{}/formats",            get_formats},
    {"GET",  "/api/cameras/{}/controls",           get_controls},
    {"PUT",  "/api/cameras/{}/controls/{}",        put_control},
    {"GET",  "/api/cameras/{}/features",           get_features},
    {"PUT",  "/api/cameras/{}/features/{}",        put_feature},
    {"POST", "/api/cameras/{}/registers/read",     [](const Call& call) { access_memory(call, false, false); }},
    {"POST", "/api/cameras/{}/registers/write",    [](const Call& call) { access_memory(call, false, true); }},
    {"POST", "/api/cameras/{}/i2c/read",           [](const Call& call) { access_memory(call, true, false); }},
    {"POST", "/api/cameras/{}/i2c/write",          [](const Call& call) { access_memory(call, true, true); }},
    {"GET",  "/api/cameras/{}/rom/map",            get_rom_map},
    {"GET",  "/api/cameras/{}/rom/bytes",          get_rom_bytes},
    {"POST", "/api/cameras/{}/rom/differences",    get_differences},
    {"GET",  "/api/cameras/{}/fits/{}",            get_file_fit},
    {"POST", "/api/cameras/{}/restart",            restart_camera},
    {"POST", "/api/files",                         post_file},
    {"GET",  "/api/files/{}/bytes",                get_file_bytes},
    {"POST", "/api/plans",                         post_plan},
    {"GET",  "/api/jobs",                          get_jobs},
    {"POST", "/api/jobs",                          [](const Call& call) { call.reply(begin_job(call.studio, call.body)); }},
    {"GET",  "/api/jobs/{}",                       [](const Call& call) { with_job(call, [](Job&) {}); }},
    {"POST", "/api/jobs/{}/stop",                  [](const Call& call) { with_job(call, [](Job& job) { job.stop.request_stop(); }); }},
    {"GET",  "/api/backups",                       get_backups},
};
// clang-format on

/// Whether the path is the route's, and the names in it.
bool matches(std::string_view route, std::string_view path, std::vector<std::string>& names)
{
    names.clear();
    while (!route.empty() && !path.empty()) {
        if (route.starts_with("{}")) {
            const size_t end = std::min(path.find('/'), path.size());
            names.emplace_back(path.substr(0, end));
            route.remove_prefix(2);
            path.remove_prefix(end);
        } else if (route.front() != path.front()) {
            return false;
        } else {
            route.remove_prefix(1);
            path.remove_prefix(1);
        }
    }
    return route.empty() && path.empty();
}

} // namespace

void answer_api(Studio& studio, const Request& request, const Reply& reply)
{
    Call call{studio, request, reply, {}, Json::object()};
    bool is_known = false;
    for (const Route& route : routes) {
        if (!matches(route.path, request.path, call.names))
            continue;
        is_known = true;
        if (request.method != route.method)
            continue;
        if (!request.body.empty() && request.path != "/api/files") {
            call.body = json::parsed(request.body);
            if (!call.body.is_object())
                return reply(bad_request("the body is no JSON object"));
        }
        try {
            return route.answer(call);
        } catch (const Json::exception&) { // a member of another type than it should have
            return reply(bad_request("a member has the wrong type"));
        }
    }
    reply(is_known ? error_response(405, Reason::kNotSupported, "not by this method")
                   : error_response(404, Reason::kNotSupported, "no such address"));
}

} // namespace studio
