// SPDX-License-Identifier: Apache-2.0
#include "phase_scope.h"

#include "clock.h"

namespace nyxus::engine {

PhaseScope::PhaseScope(const Caller& caller, Phase phase, uint64_t total, std::string subject)
    : caller_(caller),
      event_{.phase = phase, .total = total, .text = std::move(subject)},
      begun_us_(now_us())
{
    tell_as(Event::Kind::kBegins);
}

PhaseScope::~PhaseScope()
{
    if (!over_)
        tell_as(Event::Kind::kAbandoned);
}

void PhaseScope::advance(uint64_t bytes)
{
    event_.done += bytes;
    tell_as(Event::Kind::kAdvances);
}

void PhaseScope::end()
{
    over_ = true;
    tell_as(Event::Kind::kEnds);
}

void PhaseScope::tell_as(Event::Kind kind)
{
    event_.kind = kind;
    event_.seconds = static_cast<double>(now_us() - begun_us_) / 1e6;
    tell(caller_, event_);
}

} // namespace nyxus::engine
