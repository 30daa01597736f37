// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "server/http.h"

namespace studio {

/// A file of the page, compiled in.
struct Resource {
    const char* path; ///< "/index.html"
    const unsigned char* bytes;
    size_t size;
};
extern const Resource resources[];
extern const size_t resource_count;

/// A file of the page, from the program, or from a folder where one is named.
Response page_file(const Request& request, const std::string& folder);

} // namespace studio
