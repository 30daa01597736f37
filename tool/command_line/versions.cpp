// SPDX-License-Identifier: Apache-2.0
#include "command_line/versions.h"

#include "terminal/json_text.h"
#include "terminal/text.h"

#include <dlfcn.h>
#include <libusb-1.0/libusb.h>
#include <libuvc/libuvc.h>
#include <nyxus/config.h>
#include <filesystem>

namespace tool {

/// The file that holds a function.
template <typename Function>
static std::string file_of(Function* function)
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(function), &info) == 0 || info.dli_fname == nullptr)
        return {};
    std::error_code none;
    return std::filesystem::weakly_canonical(info.dli_fname, none).string();
}

static std::string library_version()
{
    char version[16] = "";
    LIB_NyxusGetVersion(version);
    const std::string text = version;
    return text.substr(0, text.find('\n'));
}

static std::string usb_version()
{
    const libusb_version* version = libusb_get_version();
    return format("%u.%u.%u", version->major, version->minor, version->micro);
}

std::array<LibraryVersion, 3> library_versions()
{
    // libuvc cannot be asked at run time; this is the one that the program was built with.
    return {{{"libNYXUS", library_version(), file_of(LIB_NyxusGetVersion)},
             {"libusb", usb_version(), file_of(libusb_get_version)},
             {"libuvc", LIBUVC_VERSION_STR, file_of(uvc_init)}}};
}

std::string version_text(bool as_json)
{
    if (as_json) {
        Members versions{{"nyxus", NYXUS_VERSION}};
        for (const LibraryVersion& library : library_versions())
            versions.push_back({library.name, library.version});
        return json_text(versions);
    }
    std::string text = "nyxus " NYXUS_VERSION;
    for (const LibraryVersion& library : library_versions())
        text += std::string("\n") + library.name + " " + library.version;
    return text;
}

} // namespace tool
