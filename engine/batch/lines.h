// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "files/descriptor.h"

namespace nyxus::engine {

/// Lines that come through a descriptor.
class LineReader {
public:
    explicit LineReader(files::Descriptor from = {}) : from_(std::move(from)) {}

    /// -1 once the other side has closed it.
    int fd() const { return from_.get(); }
    /// What there is by now; one that does not block returns nothing when there is nothing. The
    /// last line may lack its end.
    std::vector<std::string> read_lines();

private:
    files::Descriptor from_;
    std::string rest_;
};

} // namespace nyxus::engine
