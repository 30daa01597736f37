// SPDX-License-Identifier: Apache-2.0
#include "api/studio.h"

#include <future>
#include <latch>

namespace studio {

namespace {

/// A batch's events, told to the pages.
class Teller final : public engine::BatchListener {
public:
    Teller(Studio& studio, std::string job, std::vector<std::string> ports)
        : studio_(studio), job_(std::move(job)), ports_(std::move(ports))
    {
    }

    void started(size_t) override {}
    void tell(size_t camera, const engine::Event& event) override
    {
        studio_.tell_of(job_, ports_[camera], "progress", json_of(event));
    }
    void said(size_t, const std::string&) override {}
    void ended(size_t camera, const engine::BatchReport& report) override
    {
        studio_.tell_of(job_, ports_[camera], "report", json_of(report));
    }
    void tick() override {}

private:
    Studio& studio_;
    std::string job_;
    std::vector<std::string> ports_;
};

/// Takes the cameras from those who watch them until the batch has ended, since each is then
/// opened by a process of its own.
void upgrade_all(Studio& studio, Job& job)
{
    auto all_free = std::make_shared<std::latch>(static_cast<ptrdiff_t>(job.ports.size()));
    auto ended = std::make_shared<std::promise<void>>();
    const std::shared_future<void> end = ended->get_future().share();
    std::vector<engine::BatchCamera> cameras;
    for (const std::string& port : job.ports) {
        cameras.push_back({port, &job.images});
        if (!studio.ports.at(port).camera->run_alone([all_free, end] {
                all_free->count_down();
                end.wait();
            }))
            all_free->count_down(); // too busy: the batch says so
    }
    job.thread = std::jthread([&studio, &job, cameras, all_free, ended] {
        all_free->wait();
        Teller teller(studio, job.id, job.ports);
        engine::BatchOptions options;
        options.restart = true;
        engine::run_batch(cameras, options, engine::Backups(), teller,
                          {.soon = job.stop.get_token(), .at_once = {}});
        ended->set_value();
        studio.end_job(job.id);
    });
}

Response begin_upgrade(Studio& studio, const Json& wanted)
{
    const auto plan = studio.plans.find(wanted.value("plan", ""));
    if (plan == studio.plans.end())
        return error_response(404, engine::Reason::kFile, "no such plan");
    const auto file = studio.files.find(plan->second.file);
    for (const std::string& port : plan->second.cameras) {
        if (studio.find(port) == nullptr)
            return error_response(404, engine::Reason::kCameraGone, "no camera at port " + port);
    }
    Job& job = studio.add_job("upgrade", plan->second.cameras);
    job.images.push_back({"", {*file->second.facts.firmware}});
    studio.plans.erase(plan);
    upgrade_all(studio, job);
    return response_of(Json{{"id", job.id}}, 202);
}

engine::Report recover(engine::Camera& camera, const engine::Caller& caller, bool although_healthy)
{
    const engine::Backups backups;
    const auto recovery = engine::find_recovery(camera, backups, "", although_healthy);
    if (!recovery) {
        engine::Report report;
        report.status = recovery.status();
        return report;
    }
    return engine::upgrade(camera, recovery->images, {.always = true, .operation = "recover"},
                           backups, caller);
}

/// On the camera's own thread.
Response begin_on_one(Studio& studio, const std::string& kind, const Json& wanted)
{
    const std::string port = wanted.value("camera", "");
    Studio::Port* held = studio.find(port);
    if (held == nullptr)
        return error_response(404, engine::Reason::kCameraGone, "no camera at port " + port);
    Job& job = studio.add_job(kind, {port});
    const bool healthy = wanted.value("although_healthy", false);
    HeldCamera& camera = *held->camera;
    const bool runs = camera.run([&studio, &camera, id = job.id, stop = job.stop.get_token(), port,
                                  kind, healthy](const HeldCamera::Open& opened) {
        engine::Report report;
        const engine::Caller caller = {[&](const engine::Event& event) {
                                           studio.tell_of(id, port, "progress", json_of(event));
                                       },
                                       stop};
        if (!opened) {
            report.status = opened.status();
        } else {
            camera.forget_rom();
            report = kind == "erase" ? engine::erase(**opened, engine::Backups(), caller)
                                     : recover(**opened, caller, healthy);
        }
        studio.tell_of(id, port, "report", json_of(report));
        studio.end_job(id);
    });
    if (!runs) {
        studio.jobs.erase(job.id);
        return error_response(503, engine::Reason::kBusy, "too much waits for this camera already");
    }
    return response_of(Json{{"id", job.id}}, 202);
}

} // namespace

Response begin_job(Studio& studio, const Json& wanted)
{
    constexpr size_t kMostJobs = 256;
    if (!wanted.value("confirmed", false))
        return error_response(409, engine::Reason::kOther, "nobody has confirmed this");
    if (studio.jobs.size() >= kMostJobs)
        return error_response(503, engine::Reason::kBusy, "too many jobs");
    const std::string kind = wanted.value("kind", "");
    if (kind == "upgrade")
        return begin_upgrade(studio, wanted);
    if (kind == "recover" || kind == "erase")
        return begin_on_one(studio, kind, wanted);
    return error_response(400, engine::Reason::kOutOfRange, "a job upgrades, recovers or erases");
}

} // namespace studio
