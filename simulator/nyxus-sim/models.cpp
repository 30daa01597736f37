// SPDX-License-Identifier: Apache-2.0
#include "cameras/shipped.h"
#include "commands.h"

#include <algorithm>
#include <cstdio>

namespace sim {

int list_models()
{
    size_t width = 0;
    for (const CameraModel& model : models())
        width = std::max(width, model.name.size());
    for (const CameraModel& model : models()) {
        std::printf("%-*s  %s\n", static_cast<int>(width), model.name.c_str(),
                    model.description.c_str());
    }
    return 0;
}

} // namespace sim
