// SPDX-License-Identifier: Apache-2.0
#include "session/follower.h"

#include "rom/programming.h"

namespace tool {

using engine::Phase;
using engine::RomContents;
using Kind = engine::Event::Kind;

namespace {

constexpr char kFinishing[] =
    "nyxus: interrupted: the ROM is completed first, which takes a few seconds; a second interrupt "
    "stops at once";

/// What the ROM holds; and what an end of the work means then, and what to do.
struct RomWords {
    const char* state;
    const char* consequence;
};

// clang-format off
constexpr RomWords kRomWords[] = {
    {"the ROM is unchanged",
     "nothing was written"},
    {"the ROM holds the new firmware",
     ""},
    {"the ROM was written, but not read back",
     "the ROM was written but not read back; 'nyxus compare FILE' does that, and 'nyxus reset' starts what it holds"},
    {"the ROM is incomplete",
     "the ROM is incomplete now, run the command again"},
    {"the ROM is blank",
     ""},
    {"nobody knows what the ROM holds",
     "nobody knows what the ROM holds now, run the command again"},
};
// clang-format on
static_assert(std::size(kRomWords) == static_cast<size_t>(RomContents::kUnknown) + 1);

/// In these nothing is asked of the camera, and they have a limit of their own.
bool is_patient(Phase phase)
{
    return phase == Phase::kWaiting || phase == Phase::kRestarting;
}

} // namespace

bool is_shown(Phase phase)
{
    return phase != Phase::kUnlocking && phase != Phase::kLocking;
}

const char* consequence_of(RomContents rom)
{
    return kRomWords[static_cast<size_t>(rom)].consequence;
}

const char* state_of(RomContents rom)
{
    return kRomWords[static_cast<size_t>(rom)].state;
}

engine::Caller Follower::caller()
{
    return {[this](const engine::Event& event) { hear(event); }, stop_.get_token()};
}

std::string words_of(const engine::Event& event)
{
    switch (event.kind) {
        case Kind::kReadAgain:
            return "read once more: " + event.status.text();
        case Kind::kKept:
            return "kept: " + event.text;
        case Kind::kNotKept:
            return "lost: " + event.text;
        case Kind::kInstalls:
            return event.text;
        case Kind::kBackup:
            return "backup of the ROM: " + event.text;
        case Kind::kLost:
            return event.status.text(advice_after(event.rom));
        case Kind::kRetries:
            return "once more: " + event.text;
        case Kind::kStopPostponed:
            return "interrupted: the ROM is completed first";
        default:
            return "";
    }
}

void Follower::hear(const engine::Event& event)
{
    console_.sign_of_life();
    if (event.kind == Kind::kOutlook)
        return prepare_for_interrupts(event);
    if (event.kind <= Kind::kAbandoned)
        return follow_phase(event);
    if (event.kind == Kind::kBackup)
        backup_ = event.text;
    if (event.kind == Kind::kLost) {
        console_.display().warn("nyxus: " + words_of(event));
    } else if (event.kind != Kind::kStopPostponed) { // the interrupt has been answered
        if (const std::string words = words_of(event); !words.empty())
            console_.display().note(words);
    }
}

void Follower::follow_phase(const engine::Event& event)
{
    Display& display = console_.display();
    if (is_patient(event.phase))
        console_.set_patient(event.kind == Kind::kBegins);
    if (!is_shown(event.phase) || display.is_quiet())
        return;
    const bool has_lines = !display.is_live() && !display.tells_events();
    if (event.kind == Kind::kBegins) {
        progress_.begin(event.phase, event.total);
        if (has_lines)
            display.say(progress_.phase() + " ...");
    } else if (event.kind == Kind::kAdvances) {
        progress_.advance(event.done);
    } else if (event.kind == Kind::kEnds) {
        progress_.end();
    }
    const bool goes_on = event.kind == Kind::kBegins || event.kind == Kind::kAdvances;
    display.show(goes_on ? std::vector<TableRow>{{.progress = progress_}}
                         : std::vector<TableRow>());
    if (event.kind == Kind::kEnds && display.tells_events()) {
        display.put_event(progress_.json_line());
    } else if (event.kind == Kind::kEnds) {
        display.say(progress_.summary());
    }
}

void Follower::prepare_for_interrupts(const engine::Event& event)
{
    const bool is_incomplete = event.rom == RomContents::kIncomplete;
    const std::string meaning =
        std::string(consequence_of(event.rom)) + (is_incomplete ? way_back(backup_) : "") +
        (event.stop_waits ? ", before the camera is reset or unplugged" : "");
    console_.set_outlook(meaning, event.rom);
    if (event.stop_waits) {
        console_.postpone_interrupts(kFinishing, stop_);
    } else {
        console_.stop_postponing();
    }
}

} // namespace tool
