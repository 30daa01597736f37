// SPDX-License-Identifier: Apache-2.0
#include "install_plan.h"

#include "backup.h"
#include "dry_run.h"
#include "image_file.h"
#include "install.h"
#include "result.h"
#include "text.h"

#include <nyxus/production.h>

namespace tool {

namespace {

struct Step {
    std::string name; ///< "write firmware"
    uint32_t address;
    uint32_t bytes; ///< 0 where that means nothing
    Cost cost;
};

/// In the order in which they are done.
std::vector<Step> steps_of(Camera& camera, const Arguments& arguments, bool with_mfi)
{
    std::vector<Step> steps;
    const auto write = [&](const char* name, uint32_t address, size_t size) {
        steps.push_back({name, address, static_cast<uint32_t>(size), rom_write(camera, size)});
    };
    const auto read = [&](const char* name, uint32_t address, size_t size) {
        steps.push_back({name, address, static_cast<uint32_t>(size), whole_read(camera, size)});
    };
    if (!arguments.skip_backup)
        read("back up", 0, replaced_bytes(camera));
    steps.push_back({"unlock", 0, 0, rom_unlock(camera)});
    if (camera.is_spi())
        steps.push_back({"erase", 0, 0, rom_erase(camera)});
    if (with_mfi)
        write("write MFi image", NYXUS_MFI_ROM_ADDR, mfi().size());
    write("write firmware", 0, firmware().size());
    steps.push_back({"lock", 0, 0, rom_lock(camera)});
    if (!arguments.skip_verify) {
        for (const Part& part : parts_to_install(with_mfi))
            read("read back", part.address, part.bytes.size());
    }
    if (arguments.reset)
        steps.push_back({"restart", 0, 0, register_write(1)});
    return steps;
}

std::string line_of(const Step& step)
{
    return "  " + step.name +
           (step.bytes == 0 ? "" : format(": %u bytes from 0x%04X", step.bytes, step.address));
}

Members json_of(const Step& step)
{
    if (step.bytes == 0)
        return {{"step", step.name}};
    return {{"step", step.name}, {"address", step.address}, {"bytes", step.bytes}};
}

} // namespace

void print_install_plan(Console& console, const Arguments& arguments, Camera& camera, bool with_mfi,
                        std::span<const uint8_t> before)
{
    std::string text = "to be done with " + camera.name() + ":";
    Value::List steps;
    Cost cost;
    for (const Step& step : steps_of(camera, arguments, with_mfi)) {
        text += "\n" + line_of(step);
        steps.emplace_back(json_of(step));
        cost += step.cost;
    }
    Members values = json_of(label_of(camera));
    values.push_back({"steps", steps});
    if (const auto remark = reserved_area_remark(camera, before, arguments); !remark.empty()) {
        text += "\n" + remark;
        values.push_back({"remark", remark});
    }
    print_dry_run(console, arguments, camera, text, values, cost,
                  camera.is_spi() ? kFlashTime : "");
}

void print_nothing_to_do(Console& console, const Arguments& arguments, Camera& camera,
                         const std::string& why)
{
    Members values = json_of(label_of(camera));
    values.push_back({"steps", Value::List()});
    values.push_back({"message", why});
    const std::string line = arguments.all ? camera.name() + ": " + why : why;
    print_dry_run(console, arguments, camera, line, values, {});
}

} // namespace tool
