// SPDX-License-Identifier: Apache-2.0
// The names in front of trace lines: users look them up in the headers.
#include <gtest/gtest.h>

#include <dlfcn.h>
#include <cstring>
#include <memory>
#include <regex>
#include <set>
#include <string>

#include "faults/fault_file.h"
#include "support/all_functions.h"
#include "support/camera.h"

namespace {

constexpr uint32_t kEverything = 0xFFFFFFFF;
constexpr unsigned kDeepestFailure = 9;

/// In front of "(): " or "(0x...): " behind a time stamp.
std::set<std::string> names_in(const std::string& printed)
{
    static const std::regex kPrefix(R"(\[ *\d+\. *\d+\] *([^ (]+)\([^)]*\): )");
    std::set<std::string> names;
    for (std::sregex_iterator line(printed.begin(), printed.end(), kPrefix), end; line != end;
         ++line)
        names.insert((*line)[1]);
    return names;
}

bool is_exported(const std::string& name)
{
    void* library = dlopen("libNYXUS.so.2", RTLD_NOW | RTLD_NOLOAD);
    void* symbol = dlsym(library, name.c_str()); // of the libraries below it, too
    dlclose(library);
    Dl_info found = {};
    return symbol != nullptr && dladdr(symbol, &found) != 0 &&
           std::strstr(found.dli_fname, "libNYXUS.so.2") != nullptr;
}

/// Functions that move 64 KiB, which is slow, or after which the camera is another one.
const std::set<std::string> kOnceOnly = {"XU_ExtRomEraseDWORD", "XU_ChipReset", "DEV_SoftReset"};

/// With every line traced; LIB_NyxusSetConfig() is one of the functions.
void call(const Function& function, const Host& host)
{
    const NyConfig all_lines = {kEverything, 1, 1, 1};
    LIB_NyxusSetConfig(&all_lines);
    (void)function.call(host);
    LIB_NyxusSetConfig(&all_lines);
}

void call_with_null(const Function& function, NyDevice* device)
{
    for (const int position : function.pointers)
        call(function, {device, position});
}

/// Once with success, then with each of its first requests refused.
void call_with_failures(const Function& function, Camera& camera)
{
    call(function, {camera.device()});
    if (!function.uses_camera || kOnceOnly.contains(function.name))
        return;
    for (unsigned nth = 0; nth < kDeepestFailure; ++nth) {
        auto seen = std::make_shared<unsigned>(0);
        camera.sim().set_fault([=](const sim::Setup&, uint64_t) {
            return (*seen)++ == nth ? sim::Fault::stall() : sim::Fault::none();
        });
        call(function, {camera.device()});
    }
    camera.heal();
}

/// Those that return nothing.
void call_the_others(Camera& camera)
{
    init_uvc_video(nullptr);
    stopVideoStream(nullptr);
    get_libusb_handle(nullptr);
    NyPrintBuf(0, nullptr, 1, false);
    XU_SetWriteCycleTime(5);
    print_xu_table(camera.device()->xu_table, camera.device()->xu_table_count);
    (void)MP_FwLoad("no such file");
    nyxus_fw_bin_size = 0; // what a comparison runs over
    camera.remove();
    nyxus_driver_type = 0;
    (void)camera.create();
    nyxus_driver_type = 1;
}

/// Probes of which every request is refused in turn.
void probe_with_failures(Camera& camera)
{
    for (unsigned nth = 0; nth < 40; ++nth) {
        auto seen = std::make_shared<unsigned>(0);
        camera.sim().set_fault([=](const sim::Setup& setup, uint64_t) {
            return setup.type() == 1 && (*seen)++ == nth ? sim::Fault::stall() : sim::Fault::none();
        });
        (void)camera.create();
        camera.remove();
    }
    camera.heal();
}

/// A probe whose camera goes: the interface cannot be released either.
void probe_a_camera_that_goes(Camera& camera)
{
    camera.bed().set_faults(
        sim::parse_faults(R"(fault = [{when = {selector = 13}, do = "unplug"}])", "plan"));
    (void)camera.create();
}

} // namespace

TEST(PrintedNames, AreThoseOfExportedFunctions)
{
    for (const std::string_view model : {models::kRowan, models::kCedar, models::kLarch}) {
        Camera camera{model};
        ny_trace_param = kEverything; // what any mask prints
        probe_with_failures(camera);
        call_the_others(camera);
        for (const Function& function : all_functions) {
            call_with_null(function, camera.device());
            if (std::string_view(function.name).ends_with("Reset"))
                continue;
            call_with_failures(function, camera);
        }
        EXPECT_LT(XU_ChipReset(nullptr), 0);
        camera.bed().unplug(camera.sim());
        for (const Function& function : all_functions)
            call(function, {camera.device()});
        camera.remove();
        Camera another{model};
        probe_a_camera_that_goes(another);
        ny_trace_param = 0;

        const std::set<std::string> names = names_in(camera.printed() + another.printed());
        EXPECT_GT(names.size(), 40U) << model;
        for (const std::string& name : names)
            EXPECT_TRUE(is_exported(name)) << model << ": " << name;
    }
}
