// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Upgrading several cameras at once, each in a process of its own: what one of them does to the
 * libraries below, which can abort or hang, disturbs no other one. No terminal is needed.
 */
#ifndef NYXUS_ENGINE_BATCH_HPP
#define NYXUS_ENGINE_BATCH_HPP

#include <nyxus/engine/manifest.hpp>
#include <nyxus/engine/upgrade.hpp>

namespace nyxus::engine {

/// One camera of a batch.
struct BatchCamera {
    std::string port;                      ///< CameraInfo::port_path
    const std::vector<ChipImages>* images; ///< see choose_images(); borrowed until all have ended
};

struct BatchOptions {
    UpgradeOptions upgrade = {};
    unsigned queue_depth = Camera::kQueueDepth; ///< of the cameras
    uint32_t eeprom_bytes = 0;                  ///< see Camera::require_rom()
    bool restart = false;         ///< restart(), check_started() and check_reports() afterwards
    bool allow_downgrade = false; ///< see choose_images()
    unsigned plug_wait_s = 0;     ///< for a camera that is not there when its turn comes
    unsigned silence_s = 60;      ///< without an event; then its camera is given up
    unsigned at_once = 0;         ///< so many cameras at a time; 0: all
    int trace_level = 0;          ///< NyTraceVerbose_level(): what `said` hears
    std::string helper = {};      ///< the program; "": the installed one
};

/// How a camera of a batch ended. Where its process has ended without a report, `status` says so,
/// and `rom` is what it has announced for this case (Event::Kind::kOutlook); kUnknown of one that
/// was stopped (SIGSTOP) until it was killed, or that the kernel holds.
struct BatchReport : Report {
    bool started = false;               ///< false: the batch was stopped before its turn
    std::vector<std::string> said = {}; ///< without a report: what was printed last
};

/// Hears of a batch on the thread that leads it; a camera goes by its index. Returns soon.
class BatchListener {
public:
    virtual ~BatchListener() = default;
    virtual void started(size_t camera) = 0;
    virtual void tell(size_t camera, const Event& event) = 0;
    /// What the libraries have printed, line by line.
    virtual void said(size_t camera, const std::string& line) = 0;
    virtual void ended(size_t camera, const BatchReport& report) = 0;
    /// About ten times a second.
    virtual void tick() = 0;
};

/// How a batch is stopped. The first way starts no more cameras and lets each come to a safe point,
/// as Caller::stop does; the second one ends their processes.
struct BatchStop {
    std::stop_token soon = {};
    std::stop_token at_once = {};
};

/**
 * Upgrades the cameras and returns when all have ended. A process that cannot be ended, since the
 * kernel holds it, is left behind. SIGCHLD must not be ignored, or nobody learns how a process
 * ended. Blocks for minutes. Thread-safe.
 */
NYXUS_ENGINE_API void run_batch(const std::vector<BatchCamera>& cameras,
                                const BatchOptions& options, const Backups& backups,
                                BatchListener& listener, const BatchStop& stop = {});

} // namespace nyxus::engine

#endif
