// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/types.h>

#include "lines.h"
#include "protocol.h"

namespace nyxus::engine {

/// A helper program while it runs: its standard input is the socket on which both sides talk, its
/// descriptor 3 the images. A terminal's interrupts do not reach it.
class Helper {
public:
    /// Starts it and gives it its order.
    static Result<Helper> start(const std::string& program, const BatchCamera& camera,
                                const BatchOptions& options, const Backups& backups);

    LineReader& talk() { return talk_; }
    /// What it prints.
    LineReader& said() { return said_; }
    void ask_to_stop();
    void kill() const;
    /// By a signal, so that it does nothing until it is continued.
    bool is_stopped() const;
    /// waitpid()'s status once it has ended; nothing of it is left then.
    std::optional<int> ended() const;

private:
    Helper(files::Descriptor talk, files::Descriptor said, pid_t pid)
        : talk_(std::move(talk)), said_(std::move(said)), pid_(pid)
    {
    }

    LineReader talk_;
    LineReader said_;
    pid_t pid_;
};

/// The one that belongs to this library.
std::string installed_helper();

} // namespace nyxus::engine
