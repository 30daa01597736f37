// SPDX-License-Identifier: Apache-2.0
#include "api/studio.h"

#include "cameras/jpeg.h"
#include "server/resources.h"

#include <algorithm>

namespace studio {

namespace {

constexpr size_t kHeaderBytes = 14; ///< of a picture, behind the index of its camera
constexpr uint64_t kMostDroppedBytes = 16 << 20;
constexpr uint64_t kMostBodyBytes = 1 << 16;
constexpr size_t kMostWatched = 64;
constexpr size_t kMostPages = 32;

void put(uint8_t* to, uint64_t number, size_t bytes)
{
    for (size_t at = 0; at < bytes; ++at)
        to[at] = static_cast<uint8_t>(number >> 8 * at);
}

/// The latest picture on its way to the server's thread: a newer one takes its place.
struct Slot {
    std::mutex mutex;
    Picture picture;
};

uint32_t fourcc_of(const std::string& text)
{
    if (text == "YUY2" || text == "YUYV")
        return NYXUS_FOURCC_YUYV;
    if (text.size() != 4)
        return NYXUS_FOURCC_MJPEG;
    const auto at = [&](size_t place) { return static_cast<unsigned char>(text[place]); };
    return NYXUS_FOURCC(at(0), at(1), at(2), at(3));
}

bool parse_size(const std::string& text, nyxus::VideoFormat& format)
{
    unsigned width = 0;
    unsigned height = 0;
    if (text.size() > 11 || std::sscanf(text.c_str(), "%5ux%5u", &width, &height) != 2)
        return false;
    format.width = width;
    format.height = height;
    return true;
}

} // namespace

Json json_of(const Job& job)
{
    return {{"id", job.id}, {"kind", job.kind}, {"state", job.state}, {"cameras", job.cameras}};
}

Studio::Studio(Server& server_, Access access, Settings settings_)
    : server(server_), settings(std::move(settings_)), access_(std::move(access))
{
    watcher_ = std::jthread([this] {
        (void)watch_.run([this](const nyxus::CameraEvent& event) {
            server.post([this, event] { event.here ? came(event.camera) : gone(event.camera); });
        });
    });
}

Studio::~Studio()
{
    watch_.stop();
    watcher_.join();
    jobs.clear();
    ports.clear();
}

void Studio::answer(Request request, Reply reply)
{
    if (auto refused = access_.refuse(request))
        return reply(std::move(*refused));
    if (request.path.starts_with("/api/") && request.path != "/api/openapi.json")
        return answer_api(*this, request, reply);
    if (request.method != "GET")
        return reply({405, "text/plain", "pages are only read\n"});
    reply(page_file(request, settings.page_folder));
}

std::unique_ptr<Response> Studio::refuse_page(const Request& request)
{
    if (request.origin.empty() && request.authorization.empty())
        return std::make_unique<Response>(
            error_response(403, engine::Reason::kPermissionDenied, "who asks?"));
    if (request.path != "/api/events" || pages_.size() >= kMostPages)
        return std::make_unique<Response>(
            error_response(503, engine::Reason::kBusy, "too many pages, or none"));
    return access_.refuse(request);
}

uint64_t Studio::largest_body(const std::string& path) const
{
    return path == "/api/files" ? kMostDroppedBytes : kMostBodyBytes;
}

void Studio::opened(Page& page)
{
    pages_[&page];
    for (const auto& [port, held] : ports) {
        if (held.is_here) {
            const Json event = {{"event", "camera_came"}, {"camera", json_of(held.camera->info())}};
            page.send(std::make_shared<std::string>(json::printed(event)));
        }
    }
    for (const auto& [id, job] : jobs) {
        const Json event = {{"event", "job"}, {"job", json_of(*job)}};
        page.send(std::make_shared<std::string>(json::printed(event)));
    }
}

void Studio::said(Page& page, const std::string& text)
{
    const Json wanted = json::parsed(text);
    if (!wanted.is_object() || !wanted.contains("watch") || !wanted["watch"].is_array())
        return;
    std::vector<std::string> watched;
    for (const Json& item : wanted["watch"]) {
        if (watched.size() >= kMostWatched)
            break;
        if (!item.is_object() || !item.contains("camera") || !item["camera"].is_string())
            continue;
        const auto port = item["camera"].get<std::string>();
        if (find(port) == nullptr)
            continue;
        nyxus::VideoFormat format{.fourcc = NYXUS_FOURCC_MJPEG};
        if (item.contains("format") && item["format"].is_string())
            format.fourcc = fourcc_of(item["format"].get<std::string>());
        if (item.contains("rate") && item["rate"].is_number_unsigned())
            format.fps =
                static_cast<uint32_t>(std::min(item["rate"].get<uint64_t>(), uint64_t{1000}));
        const bool has_size = item.contains("size") && item["size"].is_string() &&
                              parse_size(item["size"].get<std::string>(), format);
        if (has_size || !formats_.contains(port))
            formats_[port] = format;
        watched.push_back(port);
    }
    const Json event = {{"event", "watching"}, {"cameras", watched}};
    pages_[&page] = std::move(watched);
    page.send(std::make_shared<std::string>(json::printed(event)));
    follow_pages();
}

void Studio::closed(Page& page)
{
    pages_.erase(&page);
    follow_pages();
}

void Studio::follow_pages()
{
    std::set<std::string> watched;
    for (const auto& [page, wanted] : pages_)
        watched.insert(wanted.begin(), wanted.end());
    for (const auto& [port, held] : ports) {
        if (watched.contains(port)) {
            held.camera->watch(formats_[port]);
        } else {
            formats_.erase(port);
            held.camera->watch(std::nullopt);
        }
    }
}

void Studio::show(const std::string& port, const Picture& picture)
{
    for (const auto& [page, watched] : pages_) {
        for (size_t index = 0; index < watched.size(); ++index) {
            if (watched[index] == port)
                page->show(static_cast<uint16_t>(index), picture);
        }
    }
}

void Studio::send(const Json& event)
{
    const auto text = std::make_shared<const std::string>(json::printed(event));
    for (const auto& [page, watched] : pages_)
        page->send(text);
}

void Studio::tell(Json event)
{
    server.post([this, event = std::move(event)] { send(event); });
}

HeldCamera::Listener Studio::listener_of(const std::string& port)
{
    const auto slot = std::make_shared<Slot>();
    return {
        .frame =
            [this, port, slot](const nyxus::Frame& frame) {
                std::vector<uint8_t> bytes = jpeg_of(frame, kHeaderBytes);
                if (bytes.empty())
                    return;
                put(bytes.data(), 0, 2);
                put(bytes.data() + 2, frame.sequence, 4);
                put(bytes.data() + 6, frame.time_us, 8);
                const std::lock_guard lock(slot->mutex);
                const bool waits = slot->picture != nullptr;
                slot->picture = std::make_shared<const std::vector<uint8_t>>(std::move(bytes));
                if (waits)
                    return;
                server.post([this, port, slot] {
                    std::unique_lock taking(slot->mutex);
                    const Picture picture = std::exchange(slot->picture, nullptr);
                    taking.unlock();
                    show(port, picture);
                });
            },
        .streams =
            [this, port](const NyStreamStatus& status) {
                tell({{"event", "stream"},
                      {"camera", port},
                      {"state", "running"},
                      {"frames", status.frames},
                      {"incomplete", status.incomplete},
                      {"late", status.late}});
            },
        .stream_failed =
            [this, port](const nyxus::Status& status) {
                tell({{"event", "stream"},
                      {"camera", port},
                      {"state", "failed"},
                      {"error", json_of(status)}});
            },
        .motion =
            [this, port] {
                tell({{"event", "motion"}, {"camera", port}});
            },
    };
}

void Studio::came(const nyxus::CameraInfo& info)
{
    Port& port = ports[info.port_path];
    port.is_here = true;
    if (!port.camera) {
        port.camera = std::make_unique<HeldCamera>(info, listener_of(info.port_path));
    } else {
        port.camera->set_info(info);
    }
    send({{"event", "camera_came"}, {"camera", json_of(info)}});
}

void Studio::gone(const nyxus::CameraInfo& info)
{
    Port* port = find(info.port_path);
    if (port == nullptr)
        return;
    port->is_here = false;
    (void)port->camera->run_alone([] {}); // which lets go of it
    send({{"event", "camera_gone"}, {"camera", json_of(info)}});
}

Studio::Port* Studio::find(const std::string& port)
{
    const auto found = ports.find(port);
    return found != ports.end() && found->second.is_here ? &found->second : nullptr;
}

Job& Studio::add_job(std::string kind, std::vector<std::string> ports_)
{
    auto job = std::make_unique<Job>();
    job->id = next_id();
    job->kind = std::move(kind);
    job->ports = std::move(ports_);
    for (const std::string& port : job->ports)
        job->cameras[port] = {{"event", nullptr}, {"report", nullptr}};
    Job& added = *job;
    jobs[added.id] = std::move(job);
    return added;
}

void Studio::tell_of(const std::string& id, const std::string& port, const char* key, Json what)
{
    server.post([this, id, port, key, what = std::move(what)] {
        const auto found = jobs.find(id);
        if (found == jobs.end())
            return;
        found->second->cameras[port][key] = what;
        send({{"event", "job"}, {"id", id}, {"camera", port}, {key, what}});
    });
}

void Studio::end_job(const std::string& id)
{
    server.post([this, id] {
        Job& job = *jobs.at(id);
        job.state = job.stop.stop_requested() ? "stopped" : "done";
        for (const Json& camera : job.cameras) {
            const Json& report = camera["report"];
            if (!report.is_object() || (!report["error"].is_null() && report["stopped"] != true))
                job.state = "failed";
        }
        send({{"event", "job"}, {"job", json_of(job)}});
        stop_when_idle();
    });
}

void Studio::end()
{
    is_ending_ = true;
    for (const auto& [id, job] : jobs)
        job->stop.request_stop();
    stop_when_idle();
}

void Studio::stop_when_idle()
{
    const auto runs = [](const auto& entry) { return entry.second->state == "running"; };
    if (is_ending_ && std::ranges::none_of(jobs, runs))
        server.stop();
}

} // namespace studio
