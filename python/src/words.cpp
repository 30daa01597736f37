// SPDX-License-Identifier: Apache-2.0
#include "words.h"

namespace nyxus::python {

void add_words(py::module_& module)
{
    using engine::Event;
    add_words<RomState>(module, "RomState", {"firmware", "blank", "unknown"});
    // Numbers of C++ that begin at 1: see the casts.
    add_words<RateControl>(module, "RateControl", {"none", "cbr", "vbr", "constant-qp"});
    add_words<FrameType>(module, "FrameType", {"i", "idr", "idr-with-headers"});
    add_words<engine::Use>(module, "Use", {"anything", "transfers"});
    add_words<Event::Kind>(
        module, "EventKind",
        {"begins", "advances", "ends", "abandoned", "outlook", "stop-postponed", "read-again",
         "kept", "not-kept", "backup", "lost", "retries", "installs", "chosen"});
    add_words(module, "Phase", engine::Phase::kRestarting);
    add_words(module, "RomContents", engine::RomContents::kUnknown);
    add_words(module, "Keep", engine::Keep::kWhole);
    // Some share their words for people.
    add_words<engine::Action>(module, "Action",
                              {"read", "read-again", "back-up", "unlock", "erase", "write-mfi",
                               "write-firmware", "write-kept", "write-header", "lock", "read-back",
                               "read-back-mfi", "read-back-kept", "restart"});
    add_words(module, "Started", engine::Started::kUnknown);
    add_words(module, "RomRecord", engine::RomRecord::kElsewhere);
    add_words(module, "ImageContents", engine::ImageFacts::Contents::kMfi);
}

} // namespace nyxus::python
