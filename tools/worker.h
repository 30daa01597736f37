// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/pipe.h"

#include <sys/types.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tool {

/// The read end of a pipe that carries lines.
class LineStream {
public:
    explicit LineStream(files::Descriptor pipe) : pipe_(std::move(pipe)) {}

    /// -1 once the writer has closed it.
    int fd() const { return pipe_.get(); }
    /// What has come by now; waits if there is nothing. The last line may lack its end.
    std::vector<std::string> read_lines();

private:
    files::Descriptor pipe_;
    std::string rest_;
};

/// This program, run once more as a child. Its input is empty, its output and errors come as lines.
/// Interrupts from the terminal do not reach it, and it outlives its parent. SIGCHLD must not be
/// ignored, or nobody learns how it ended.
class Worker {
public:
    /// Throws a Failure when it cannot be started.
    explicit Worker(const std::vector<std::string>& arguments);

    LineStream& out() { return out_; }
    LineStream& err() { return err_; }
    void send(int signal) const;
    /// waitpid()'s status once it has ended.
    std::optional<int> ended();

private:
    Worker(const std::vector<std::string>& arguments, files::Pipe out, files::Pipe err);

    LineStream out_;
    LineStream err_;
    pid_t pid_ = -1;
};

} // namespace tool
