// SPDX-License-Identifier: Apache-2.0
#include "server/resources.h"

#include "files/read.h"
#include "text/format.h"

#include <algorithm>
#include <span>
#include <system_error>

namespace studio {

namespace {

constexpr size_t kMostFileBytes = 4 << 20;

std::string type_of(const std::string& path)
{
    constexpr std::pair<const char*, const char*> kTypes[] = {
        {".html", "text/html; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".mjs", "text/javascript; charset=utf-8"},
        {".json", "application/json"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
    };
    for (const auto& [ending, type] : kTypes) {
        if (path.ends_with(ending))
            return type;
    }
    return "text/plain; charset=utf-8";
}

/// FNV-1a: to know a file again, not to trust it.
std::string tag_of(const std::string& body)
{
    uint64_t hash = 0xCBF29CE484222325;
    for (const char byte : body)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    return text::format("\"%016llx\"", static_cast<unsigned long long>(hash));
}

bool load(const std::string& path, const std::string& folder, std::string& body)
{
    const std::span<const Resource> all(resources, resource_count);
    if (!folder.empty() && !path.starts_with("/api/") && path.find("..") == std::string::npos) {
        try {
            body = files::read_text(folder + path, kMostFileBytes);
            return true;
        } catch (const std::system_error&) {
            return false;
        }
    }
    const auto found =
        std::ranges::find_if(all, [&](const Resource& resource) { return resource.path == path; });
    if (found == all.end())
        return false;
    body.assign(reinterpret_cast<const char*>(found->bytes), found->size);
    return true;
}

} // namespace

Response page_file(const Request& request, const std::string& folder)
{
    const std::string path = request.path == "/" ? "/index.html" : request.path;
    Response response;
    if (!load(path, folder, response.body))
        return {404, "text/plain", "no such page\n"};
    const std::string tag = tag_of(response.body);
    response.headers = {{"ETag", tag}};
    response.type = type_of(path);
    if (request.if_none_match == tag) {
        response.status = 304;
        response.body.clear();
    }
    return response;
}

} // namespace studio
