// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "api/json_of.h"
#include "cameras/held_camera.h"
#include "server/access.h"

#include <set>

namespace studio {

struct Settings {
    bool read_only = false;
    std::string page_folder; ///< "": the page is compiled in
};

/// A file that somebody has dropped on the page.
struct DroppedFile {
    std::vector<uint8_t> bytes;
    engine::ImageFacts facts;
};

/// What an upgrade would do, as it was shown; what is confirmed.
struct PlannedUpgrade {
    std::string file;
    std::vector<std::string> cameras;
};

/// Work on cameras that no closed page cuts off.
struct Job {
    std::string id;
    std::string kind;
    std::string state = "running"; ///< then "done", "failed" or "stopped"
    std::vector<std::string> ports;
    Json cameras = Json::object(); ///< by port: the last event, and the report
    std::stop_source stop;
    std::vector<engine::ChipImages> images;
    std::jthread thread;
};

/// What the API and the pages share. All on the server's thread but where it says otherwise.
class Studio final : public Application {
public:
    Studio(Server& server, Access access, Settings settings);
    ~Studio() override;

    void answer(Request request, Reply reply) override;
    std::unique_ptr<Response> refuse_page(const Request& request) override;
    uint64_t largest_body(const std::string& path) const override;
    void opened(Page& page) override;
    void said(Page& page, const std::string& text) override;
    void closed(Page& page) override;

    /// Stops jobs at a safe point, then the server.
    void end();
    /// Every page hears of it; from any thread.
    void tell(Json event);

    struct Port {
        bool is_here = true;
        std::unique_ptr<HeldCamera> camera;
    };
    Port* find(const std::string& port);
    Job& add_job(std::string kind, std::vector<std::string> ports);
    /// A job's camera has something to tell; from any thread.
    void tell_of(const std::string& job, const std::string& port, const char* key, Json what);
    /// From any thread; the last thing that a job does.
    void end_job(const std::string& job);
    std::string next_id() { return std::to_string(++last_id_); }

    Server& server;
    const Settings settings;
    std::map<std::string, Port> ports;
    std::map<std::string, DroppedFile> files;
    std::map<std::string, PlannedUpgrade> plans;
    std::map<std::string, std::unique_ptr<Job>> jobs;

private:
    void came(const nyxus::CameraInfo& info);
    void gone(const nyxus::CameraInfo& info);
    HeldCamera::Listener listener_of(const std::string& port);
    void show(const std::string& port, const Picture& picture);
    void send(const Json& event);
    void follow_pages();
    void stop_when_idle();

    Access access_;
    std::map<Page*, std::vector<std::string>> pages_; ///< and which cameras they watch
    std::map<std::string, nyxus::VideoFormat> formats_;
    uint64_t last_id_ = 0;
    bool is_ending_ = false;
    nyxus::CameraWatch watch_;
    std::jthread watcher_;
};

Json json_of(const Job& job);

/// Answers what stands under /api.
void answer_api(Studio& studio, const Request& request, const Reply& reply);

/// Begins work that has been confirmed.
Response begin_job(Studio& studio, const Json& wanted);

} // namespace studio
