// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "terminal/console.h"

#include <nyxus/engine/events.hpp>
#include <vector>

namespace tool {

namespace engine = nyxus::engine;

/// What an end means for the camera when its ROM holds this, and what to do then; "" for nothing.
const char* consequence_of(engine::RomContents rom);
/// "the ROM is unchanged"
const char* state_of(engine::RomContents rom);

/// What is seen of an upgrade.
inline const std::vector<engine::Phase> kUpgradePhases = {
    engine::Phase::kReading, engine::Phase::kReadingAgain, engine::Phase::kErasing,
    engine::Phase::kProgramming, engine::Phase::kVerifying};

/// The others take no time that anybody would notice.
bool is_shown(engine::Phase phase);

/// What people are told of it; "" for nothing.
std::string words_of(const engine::Event& event);

/// Shows what the engine tells, and brings an interrupt to it where it may not end the program at
/// once. It outlives the engine's work.
class Follower {
public:
    explicit Follower(Console& console) : console_(console) {}

    /// See Progress::expect().
    void expect(const std::vector<engine::Phase>& phases, uint64_t image_bytes = 0)
    {
        progress_.expect(phases, image_bytes);
    }
    engine::Caller caller();

private:
    void hear(const engine::Event& event);
    void follow_phase(const engine::Event& event);
    void prepare_for_interrupts(const engine::Event& event);

    Console& console_;
    std::string backup_; ///< the file; "" while there is none
    Progress progress_;
    std::stop_source stop_;
};

} // namespace tool
