// SPDX-License-Identifier: Apache-2.0
#include "gate.h"

#include <nyxus/nyxus.hpp>

namespace gate {

static Finding inspect(const nyxus::CameraInfo& info, const std::set<std::string>& known_serials)
{
    Finding finding{info.serial, Verdict::kUnknown, ""};
    if (known_serials.count(finding.serial) == 0)
        return finding;
    auto camera = nyxus::Camera::open(info);
    if (!camera)
        return {finding.serial, Verdict::kBroken, camera.status().message()};
    finding.verdict =
        camera->firmware_version() < kOldestFirmware ? Verdict::kOutdated : Verdict::kFit;
    return finding;
}

std::vector<Finding> inspect(const std::set<std::string>& known_serials)
{
    std::vector<Finding> findings;
    const auto cameras = nyxus::list_cameras();
    if (!cameras)
        return {{"", Verdict::kBroken, cameras.status().message()}};
    for (const nyxus::CameraInfo& info : *cameras)
        findings.push_back(inspect(info, known_serials));
    return findings;
}

std::string report(const std::vector<Finding>& findings)
{
    static const char* const kWords[] = {"fit", "unknown", "outdated", "broken"};
    std::string text;
    for (const Finding& finding : findings) {
        text += finding.serial + ": " + kWords[static_cast<int>(finding.verdict)];
        text += finding.reason.empty() ? "\n" : ", " + finding.reason + "\n";
    }
    return text;
}

} // namespace gate
