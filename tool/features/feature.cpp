// SPDX-License-Identifier: Apache-2.0
#include "features/feature.h"

#include "session/choose.h"
#include "session/run.h"
#include "session/whole_file.h"
#include "terminal/failure.h"
#include "terminal/hexadecimal.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

#include <nyxus/error.h>
#include <algorithm>
#include <utility>

namespace tool {

std::string shown(const Value& value)
{
    if (!value.text().empty())
        return value.text();
    if (const auto* text = std::get_if<std::string>(&value.content()))
        return printable(*text);
    if (const auto* bytes = std::get_if<Value::Bytes>(&value.content()))
        return bytes_text(*bytes);
    return json_line(value);
}

namespace {

std::string words_of(std::string name)
{
    std::ranges::replace(name, '_', ' ');
    return name;
}

/// "flip: off -> on"; of several settings a line each.
std::string change_text(const std::string& name, const Value& before, const Value& after)
{
    const auto* members = std::get_if<Members>(&after.content());
    if (members == nullptr || !after.text().empty()) {
        return words_of(name) + ": " + (before.is_nothing() ? "?" : shown(before)) + " -> " +
               shown(after);
    }
    std::string lines;
    for (size_t i = 0; i < members->size(); ++i) {
        const auto& [member, value] = (*members)[i];
        lines += (i == 0 ? "" : "\n") +
                 change_text(member, std::get<Members>(before.content()).at(i).value, value);
    }
    return lines;
}

} // namespace

void Session::print(const Members& values)
{
    console.drain();
    if (arguments.json) {
        say_json(console, arguments, values);
    } else {
        for (const auto& [name, value] : values)
            console.display().say(words_of(name) + ": " + shown(value));
    }
    end_unless_heard();
}

void Session::print_event(const char* event, const Members& values)
{
    if (!arguments.json)
        return print(values);
    Members line = values;
    line.insert(line.begin(), {"event", event});
    console.drain();
    console.display().say(json_line(line));
    end_unless_heard();
}

void Session::end_unless_heard()
{
    if (const std::string complaint = console.display().output_complaint(); !complaint.empty())
        throw Failure(kExitFailure, complaint);
}

void Session::write(const std::string& file, std::span<const uint8_t> bytes)
{
    if (file != "-")
        return write_file(file, bytes);
    console.display().pass_on(bytes);
    (void)console.display().give_output_away();
}

void Session::make(const Change& change)
{
    if (change.wanted.is_nothing())
        return print({{change.name, change.read()}});
    const bool asks = !(arguments.dry_run && change.reading_writes);
    const Value before = asks ? change.read() : Value();
    const auto values = [&](const Value& after) {
        return Members{{change.name, after}, {"before", before}};
    };
    if (arguments.dry_run) {
        return print_dry_run(console, arguments, camera,
                             change_text(change.name, before, change.wanted), values(change.wanted),
                             change.cost);
    }
    check(change.doing, change.write());
    const Value after = change.read_back ? change.read() : change.wanted;
    console.drain();
    if (arguments.json)
        return say_json(console, arguments, values(after));
    console.display().say(change_text(change.name, before, after));
}

void Session::order(const std::string& name, const Value& what, const std::string& doing,
                    const std::function<int32_t()>& write, const Cost& cost,
                    const std::string& more)
{
    if (arguments.dry_run) {
        return print_dry_run(console, arguments, camera, words_of(name) + ": " + shown(what),
                             {{name, what}}, cost, more);
    }
    check(doing, write());
    print({{name, what}});
}

void Session::check(const std::string& doing, int32_t status) const
{
    if (status == NYXUS_E_INVALID) {
        throw Failure(kExitNotSupported,
                      doing + ": " + camera.name() + " has no such control in its firmware");
    }
    if (status < 0)
        throw library_failure(doing, status);
}

void set_action(Command& command, Arguments& arguments, SessionAction action,
                std::function<void()> check_first)
{
    set_run(
        command, arguments,
        [action = std::move(action), check_first = std::move(check_first)](
            Console& console, const Arguments& chosen) {
            check_first();
            Session session{console, chosen, open_chosen(console, chosen, engine::Use::kAnything)};
            action(session);
            return kExitOk;
        });
}

void set_writing_action(Command& command, Arguments& arguments, SessionAction action,
                        std::function<void()> check_first)
{
    add_dry_run(command, arguments);
    add_all(command, arguments);
    set_action(command, arguments, std::move(action), std::move(check_first));
}

Cost backup_cost(Session& session)
{
    if (session.arguments.skip_backup)
        return {};
    return engine::whole_read_twice(session.camera, engine::replaced_bytes(session.camera));
}

Members lines_of(std::span<const uint8_t> bytes, uint32_t address, int digits)
{
    constexpr size_t kBytesPerLine = 16;
    Members lines;
    for (size_t done = 0; done < bytes.size(); done += kBytesPerLine) {
        const auto line = bytes.subspan(done, std::min(kBytesPerLine, bytes.size() - done));
        lines.push_back(
            {format("0x%0*zX", digits, address + done), Value::Bytes(line.begin(), line.end())});
    }
    return lines;
}

std::vector<uint8_t> to_bytes(const std::vector<uint32_t>& values)
{
    std::vector<uint8_t> bytes(values.size());
    std::ranges::transform(values, bytes.begin(),
                           [](uint32_t value) { return static_cast<uint8_t>(value); });
    return bytes;
}

} // namespace tool
