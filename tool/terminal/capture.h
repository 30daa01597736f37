// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <string>
#include <vector>

namespace tool {

/**
 * Takes standard output and standard error of the process away from libuvc, libusb and the C++
 * runtime, which know no callbacks: what they print goes to a file in memory. The program itself
 * prints through a Display that was made before.
 *
 * When the process dies by a signal, text that nobody has taken yet still reaches the real standard
 * error. One at a time, used by one thread at a time.
 */
class Capture {
public:
    Capture();
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    /// The lines that were printed since the last call; one that has not ended waits unless `all`.
    std::vector<std::string> take_lines(bool all);
    /// All but the last 2 KiB are of no interest any more.
    void keep_the_last();

private:
    files::Descriptor out_;
    files::Descriptor err_;
    files::Descriptor memory_;
};

} // namespace tool
