// SPDX-License-Identifier: Apache-2.0
// What a status, an exit code or an error line means. Needs no camera.
#include "features/feature.h"
#include "system/error_lookup.h"
#include "terminal/failure.h"
#include "terminal/json_text.h"
#include "terminal/text.h"

#include <cstdlib>
#include <string_view>

namespace tool {

namespace {

struct ExplainOptions {
    std::vector<std::string> words;
    bool all = false;
    bool markdown = false;
};

/// The absolute value, as the headers and the trace show it.
std::string hex_of(const Explanation& entry)
{
    return format("0x%04X", static_cast<unsigned>(std::abs(entry.number)));
}

std::string title_of(const Explanation& entry)
{
    if (entry.exit_code)
        return format("exit code %d: ", entry.number) + entry.name;
    const std::string hex = entry.number == 0 ? "" : ", " + hex_of(entry);
    return std::to_string(entry.number) + hex + ": " + entry.name;
}

/// "Origin      text", broken into lines of a terminal's width.
std::string paragraph(const std::string& label, std::string_view text)
{
    constexpr size_t kIndent = 12;
    constexpr size_t kWidth = 88;
    return padded("  " + label, kIndent) + text::wrapped(text, kIndent, kWidth);
}

std::string entry_text(const Explanation& entry)
{
    std::string result = title_of(entry);
    const std::pair<const char*, std::string> parts[] = {{"Origin", entry.origin},
                                                         {"Called", entry.text},
                                                         {"Meaning", entry.row->meaning},
                                                         {"Causes", entry.row->causes},
                                                         {"Do this", entry.row->advice}};
    for (const auto& [label, text] : parts) {
        if (!text.empty())
            result += "\n" + paragraph(label, text);
    }
    return result;
}

Value::List messages_of(const Explanation& entry)
{
    Value::List list;
    for (const char* message : entry.row->messages) {
        if (message != nullptr)
            list.emplace_back(message);
    }
    return list;
}

Members json_of_entry(const Explanation& entry)
{
    return {{entry.exit_code ? "exit_code" : "status", entry.number},
            {"hex", hex_of(entry)},
            {"name", entry.name},
            {"origin", entry.origin},
            {"text", entry.text},
            {"messages", messages_of(entry)},
            {"meaning", entry.row->meaning},
            {"causes", entry.row->causes},
            {"advice", entry.row->advice}};
}

std::string markdown_of(const Explanation& entry)
{
    std::string result = "### " + title_of(entry) + "\n\n";
    if (!entry.text.empty())
        result += "\"" + entry.text + "\". ";
    result += std::string(entry.row->meaning) + "\n\n";
    for (const char* message : entry.row->messages)
        result += message == nullptr ? "" : std::string("    ") + message + "\n";
    if (entry.row->messages.front() != nullptr)
        result += "\n";
    for (const auto& [label, text] :
         {std::pair("Causes", entry.row->causes), {"Do this", entry.row->advice}})
        result += *text == '\0' ? "" : format("* **%s:** %s\n", label, text);
    return result;
}

/// The sections of docs/errors.md below its introduction, one for each origin.
std::string markdown_page(std::vector<Explanation> entries)
{
    std::string result;
    while (!entries.empty()) {
        const std::string origin = entries.front().origin;
        result += "## From: " + origin + "\n\n";
        for (const Explanation& entry : entries) {
            if (entry.origin == origin)
                result += markdown_of(entry) + "\n";
        }
        std::erase_if(entries, [&](const Explanation& entry) { return entry.origin == origin; });
    }
    while (result.ends_with("\n"))
        result.pop_back();
    return result;
}

/// Each of the words, or else all of them as a line.
std::vector<Explanation> find_explanations(const std::vector<std::string>& words)
{
    std::vector<Explanation> result;
    std::string line;
    bool explains_each = true;
    for (const std::string& word : words) {
        const std::vector<Explanation> found = explain(word);
        explains_each = explains_each && !found.empty();
        result.insert(result.end(), found.begin(), found.end());
        line += (line.empty() ? "" : " ") + word;
    }
    if (!explains_each)
        result = explain(line);
    if (result.empty()) {
        throw Failure(kExitUsage, in_quotes(line) +
                                      " is no status, exit code or message of this version; "
                                      "'nyxus explain --all' lists them");
    }
    return result;
}

ExitCode run_explain(Console& console, const Arguments& arguments, const ExplainOptions& options)
{
    if (options.words.empty() && !options.all) {
        throw Failure(kExitUsage,
                      "nothing to explain; give a status such as -16393, an exit code, a "
                      "name or an error line, or '--all'");
    }
    const auto entries = options.all ? all_explanations() : find_explanations(options.words);
    if (arguments.json) {
        Value::List list;
        for (const Explanation& entry : entries)
            list.push_back(json_of_entry(entry));
        console.display().say(json_text(list));
    } else if (options.markdown) {
        console.display().say(markdown_page(entries));
    } else {
        std::string text;
        for (const Explanation& entry : entries)
            text += (text.empty() ? "" : "\n\n") + entry_text(entry);
        console.display().say(text);
    }
    return kExitOk;
}

} // namespace

void add_explain_command(Command& app, Arguments& arguments)
{
    Command& command =
        add_command(app, "explain", "Explain a status, an exit code or an error line", "-16393");
    ExplainOptions& options = set_run(command, arguments, run_explain);
    command.text("CODE", &options.words,
                 "Status (-16393, 0x4009), name (NYXUS_E_BUSY, EACCES), 'exit 9', or an error "
                 "line in quotes");
    command.flag("--all", &options.all, "Explain everything");
    command.flag("--markdown", &options.markdown, "Print Markdown");
}

} // namespace tool
