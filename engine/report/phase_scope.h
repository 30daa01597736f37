// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nyxus/engine/events.hpp>

namespace nyxus::engine {

inline void tell(const Caller& caller, const Event& event)
{
    if (caller.tell)
        caller.tell(event);
}

inline Status stopped()
{
    return {Reason::kStopped, "stopped"};
}

/// Tells of a phase: that it begins and, when the scope is left before end(), that it is abandoned.
class PhaseScope {
public:
    PhaseScope(const Caller& caller, Phase phase, uint64_t total = 0, std::string subject = {});
    ~PhaseScope();
    PhaseScope(const PhaseScope&) = delete;
    PhaseScope& operator=(const PhaseScope&) = delete;

    void advance(uint64_t bytes);
    void end();

private:
    void tell_as(Event::Kind kind);

    const Caller& caller_;
    Event event_;
    int64_t begun_us_;
    bool over_ = false;
};

} // namespace nyxus::engine
