// SPDX-License-Identifier: Apache-2.0
#include "follower.h"

#include "last_words.h"
#include "programming.h"

namespace tool {

using engine::Phase;
using engine::RomContents;
using Kind = engine::Event::Kind;

namespace {

constexpr char kFinishing[] =
    "nyxus: interrupted: the ROM is completed first, which takes a few seconds; a second interrupt "
    "stops at once\n";
constexpr char kStoppedInTheMiddle[] =
    "the ROM is incomplete; run the upgrade again, or 'nyxus recover', before the camera is reset "
    "or "
    "unplugged";
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
    switch (rom) {
        case RomContents::kUnchanged:
            return "nothing was written";
        case RomContents::kUnverified:
            return "the ROM was written but not read back; 'nyxus compare FILE' does that, and "
                   "'nyxus reset' starts the new firmware";
        case RomContents::kIncomplete:
            return "the ROM is incomplete now, run the upgrade again";
        case RomContents::kNew:
        case RomContents::kErased:
            break;
    }
    return "";
}

const char* consequence_of_erasing(RomContents rom)
{
    switch (rom) {
        case RomContents::kUnverified:
            return "the ROM was erased, but nobody has looked whether it is empty";
        case RomContents::kIncomplete:
            return "the ROM is partly erased; erase or upgrade it again";
        default:
            return consequence_of(rom);
    }
}

engine::Caller Follower::caller()
{
    return {[this](const engine::Event& event) { hear(event); }, stop_.get_token()};
}

void Follower::hear(const engine::Event& event)
{
    console_.sign_of_life();
    Display& display = console_.display();
    switch (event.kind) {
        case Kind::kOutlook:
            prepare_for_interrupts(event);
            break;
        case Kind::kReservedArea:
            display.note(reserved_area_remark(event.certain, arguments_));
            break;
        case Kind::kBackup:
            display.note("backup of the ROM: " + event.text);
            break;
        case Kind::kLost:
            display.warn("nyxus: " + event.status.text(advice_after(event.rom)));
            break;
        case Kind::kRetries:
            display.note("once more: " + event.text);
            break;
        case Kind::kStopPostponed: // the interrupt has been answered
            break;
        default:
            follow_phase(event);
    }
    if (last_words::interrupt_came())
        stop_.request_stop();
}

void Follower::follow_phase(const engine::Event& event)
{
    Display& display = console_.display();
    if (is_patient(event.phase))
        console_.set_patient(event.kind == Kind::kBegins);
    if (!is_shown(event.phase))
        return;
    if (event.kind == Kind::kBegins) {
        display.begin(to_text(event.phase), event.total);
    } else if (event.kind == Kind::kAdvances) {
        display.advance(event.done);
    } else if (event.kind == Kind::kEnds) {
        display.end();
    } else {
        display.abandon();
    }
}

void Follower::prepare_for_interrupts(const engine::Event& event)
{
    const bool in_the_middle = event.stop_waits && consequence_ == consequence_of;
    last_words::set_consequence(in_the_middle ? kStoppedInTheMiddle : consequence_(event.rom),
                                to_text(event.rom));
    if (event.stop_waits) {
        last_words::postpone_interrupts(kFinishing);
    } else if (last_words::stop_postponing()) {
        stop_.request_stop();
    }
}

} // namespace tool
