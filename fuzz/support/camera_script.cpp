// SPDX-License-Identifier: Apache-2.0
#include "support/camera_script.h"

#include <algorithm>
#include <cerrno>

namespace fuzz {

sim::Fault CameraScript::answer(const sim::Setup& setup)
{
    if (++transfers_ > kMostTransfers)
        return sim::Fault::submit_error(ENODEV);
    const sim::Fault fault = input_.empty() ? sim::Fault::none() : reply(setup);
    const bool reaches_the_model =
        fault.kind == sim::Fault::Kind::kNone || fault.kind == sim::Fault::Kind::kShort;
    if (reaches_the_model && !setup.is_in())
        return sim::Fault::answer(std::vector<uint8_t>(setup.length)); // taken, to no effect
    return fault;
}

sim::Fault CameraScript::reply(const sim::Setup& setup)
{
    switch (static_cast<Reply>(input_.byte() % kReplyKinds)) {
        case Reply::kOfModel:
            return sim::Fault::none();
        case Reply::kBytes: {
            const uint8_t count = input_.byte();
            return sim::Fault::answer(input_.bytes(count));
        }
        case Reply::kFill:
            return sim::Fault::answer(std::vector<uint8_t>(setup.length, input_.byte()));
        case Reply::kWord:
            return sim::Fault::answer(input_.bytes(2));
        case Reply::kShort:
            return sim::Fault::short_answer(input_.byte());
        case Reply::kStall:
            return sim::Fault::stall();
        case Reply::kIoError:
            return sim::Fault::io_error();
        case Reply::kTimeout:
            return sim::Fault::timeout();
        case Reply::kGone:
            break;
    }
    return sim::Fault::submit_error(ENODEV);
}

void put_reply(std::vector<uint8_t>& script, const sim::Transfer& transfer)
{
    const auto put = [&](Reply reply) { script.push_back(static_cast<uint8_t>(reply)); };
    const sim::Setup setup = sim::Setup::from_wire(transfer.setup);
    if (transfer.status != 0)
        return put(Reply::kStall);
    if (!setup.is_in())
        return put(Reply::kOfModel);
    if (setup.length == 2 && transfer.data.size() == 2) {
        put(Reply::kWord);
    } else {
        put(Reply::kBytes);
        script.push_back(static_cast<uint8_t>(std::min<size_t>(transfer.data.size(), UINT8_MAX)));
    }
    script.insert(script.end(), transfer.data.begin(),
                  transfer.data.begin() +
                      static_cast<ptrdiff_t>(std::min<size_t>(transfer.data.size(), UINT8_MAX)));
}

} // namespace fuzz
