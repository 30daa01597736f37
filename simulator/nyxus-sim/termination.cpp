// SPDX-License-Identifier: Apache-2.0
#include "termination.h"

namespace sim {

Termination::Termination()
{
    sigemptyset(&awaited_);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&awaited_, signal);
    pthread_sigmask(SIG_BLOCK, &awaited_, &original_);
}

Termination::~Termination()
{
    pthread_sigmask(SIG_SETMASK, &original_, nullptr);
}

void Termination::wait(const std::function<bool()>& is_over) const
{
    constexpr timespec kPause{0, 200'000'000};
    while (!is_over() && sigtimedwait(&awaited_, nullptr, &kPause) < 0) {
    }
}

} // namespace sim
