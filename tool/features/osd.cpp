// SPDX-License-Identifier: Apache-2.0
// The on-screen display.
#include "features/color.h"
#include "features/setting.h"
#include "terminal/failure.h"
#include "terminal/text.h"

#include <nyxus/memory.h>
#include <nyxus/osd.h>
#include <nyxus/registers.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace tool {

namespace {

constexpr uint32_t kLastString = 7;
constexpr uint32_t kLastWindow = 3;
constexpr size_t kTextBytes = 16;
/// A record is written by one transfer and read back by two.
constexpr Cost kRecordChange = {.transfers = 3};

struct OsdOptions {
    std::string time;
    std::optional<uint32_t> column;
    std::optional<uint32_t> row;
    uint32_t index = 0;
    std::optional<std::string> text; ///< "" clears
    std::vector<uint32_t> bytes;
    std::vector<std::string> colors;
};

/// Two switches have a bit in a register. Any camera has the register, but without an on-screen
/// display it does nothing.
template <uint8_t kBit>
int32_t read_bit(NyDevice* device, uint32_t* value)
{
    uint8_t control = 0;
    int32_t status = XU_OsdGetEnable(device, &control);
    if (status >= 0)
        status = XuRegRead(device, REG_OSD_CTRL, 1, &control);
    *value = control & kBit;
    return status;
}
constexpr auto read_datetime_shown = read_bit<0x02>;

void add_switch(Command& parent, Arguments& arguments, const char* name)
{
    constexpr char kWhat[] = "the on-screen display";
    const Cost bit_change = register_change() + Cost{.transfers = 2} + register_read(1);
    // clang-format off
    const Setting settings[] = {
    //   name           summary                                 example  title              in messages  read                          write                    cost
        {"enable",      "Show the on-screen display, or ask",   "on",    "osd",             kWhat,       read_number<XU_OsdGetEnable>, XU_OsdSetEnable,         kRecordChange},
        {"show",        "Show the stamp, or ask",               "on",    "osd_datetime",    kWhat,       read_datetime_shown,          XU_OsdEnableDatetime,    bit_change},
        {"transparent", "Let the picture shine through, or ask", "on",   "osd_transparent", kWhat,       read_bit<0x10>,               XU_OsdEnableTransparent, bit_change},
    };
    // clang-format on
    add_setting(parent, arguments,
                *std::ranges::find(settings, std::string_view(name), &Setting::name));
}

OsdDatetime datetime_of(Session& session)
{
    OsdDatetime record{};
    session.check("reading the date and time", XU_OsdGetDatetime(session.device(), &record));
    return record;
}

std::string iso_time(const OsdDatetime& record)
{
    const uint8_t* d = record.data;
    return format("%04u-%02u-%02uT%02u:%02u:%02u", 2000U + d[0], d[1], d[2], d[3], d[4], d[5]);
}

std::string local_time()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    return {text, std::strftime(text, sizeof text, "%FT%T", &local)};
}

bool exists(unsigned year, unsigned month, unsigned day)
{
    using std::chrono::year_month_day;
    return year_month_day(std::chrono::year(static_cast<int>(year)), std::chrono::month(month),
                          std::chrono::day(day))
        .ok();
}

bool parse_time(const std::string& text, OsdDatetime& record)
{
    unsigned v[6] = {};
    int end = 0;
    const int count = std::sscanf(text.c_str(), "%4u-%2u-%2u%*1[T ]%2u:%2u:%2u%n", &v[0], &v[1],
                                  &v[2], &v[3], &v[4], &v[5], &end);
    constexpr unsigned kFirstYear = 2000;
    constexpr unsigned kLastYear = 2099;
    if (count != 6 || static_cast<size_t>(end) != text.size() || v[0] < kFirstYear ||
        v[0] > kLastYear || !exists(v[0], v[1], v[2]) || v[3] > 23 || v[4] > 59 || v[5] > 59)
        return false;
    v[0] -= kFirstYear;
    std::ranges::transform(v, record.data, [](unsigned x) { return static_cast<uint8_t>(x); });
    return true;
}

std::string refuse_time(const std::string& text)
{
    OsdDatetime ignored{};
    return text == "now" || parse_time(text, ignored)
               ? ""
               : "'" + text +
                     "' is no time from 2000-01-01T00:00:00 to "
                     "2099-12-31T23:59:59";
}

void show_datetime(Session& session)
{
    const OsdDatetime record = datetime_of(session);
    uint32_t shown_now = 0;
    session.check("reading the on-screen display",
                  read_datetime_shown(session.device(), &shown_now));
    session.print({{"datetime", iso_time(record)},
                   {"column", record.data[6]},
                   {"row", record.data[7]},
                   {"shown", on_or_off(shown_now != 0)}});
}

void set_datetime(Session& session, const OsdOptions& options)
{
    OsdDatetime record = datetime_of(session);
    parse_time(options.time == "now" ? local_time() : options.time, record);
    record.data[6] = static_cast<uint8_t>(options.column.value_or(record.data[6]));
    record.data[7] = static_cast<uint8_t>(options.row.value_or(record.data[7]));
    session.make({.name = "datetime",
                  .read = [&] { return iso_time(datetime_of(session)); },
                  .wanted = iso_time(record),
                  .doing = "setting the date and time",
                  .write = [&] { return XU_OsdSetDatetime(session.device(), &record); },
                  .cost = kRecordChange});
}

std::string string_of(Session& session, uint32_t index)
{
    char text[kTextBytes] = {};
    session.check("reading the text", XU_OsdGetString(session.device(), static_cast<uint8_t>(index),
                                                      reinterpret_cast<uint8_t*>(text)));
    return printable_field(text, sizeof text);
}

void run_string(Session& session, const OsdOptions& options)
{
    const auto index = static_cast<uint8_t>(options.index);
    uint8_t text[kTextBytes] = {};
    std::ranges::copy(options.text.value_or(""), text);
    session.make({.name = format("string_%u", options.index),
                  .read = [&] { return string_of(session, index); },
                  .wanted = options.text ? *options.text : Value(),
                  .doing = "setting the text",
                  .write = [&] { return XU_OsdSetString(session.device(), index, text); },
                  .cost = kRecordChange});
}

/// Records of nine bytes that are read and written as a whole.
template <typename Record>
void run_record(Session& session, const char* name, int32_t (*get)(NyDevice*, Record*),
                int32_t (*set)(NyDevice*, const Record*), const std::vector<uint8_t>& wanted,
                Value (*value)(const std::vector<uint8_t>&))
{
    const std::string doing = std::string("the on-screen ") + name;
    const auto bytes_of = [](const Record& record) {
        return std::vector<uint8_t>(std::begin(record.data), std::end(record.data));
    };
    const auto read = [&] {
        Record record{};
        session.check("reading " + doing, get(session.device(), &record));
        return bytes_of(record);
    };
    Record record{};
    std::ranges::copy(wanted, record.data);
    session.make({.name = name,
                  .read = [&] { return value(read()); },
                  .wanted = wanted.empty() ? Value() : value(bytes_of(record)),
                  .doing = "setting " + doing,
                  .write = [&] { return set(session.device(), &record); },
                  .cost = kRecordChange});
}

Value window_value(const std::vector<uint8_t>& record)
{
    return record;
}

/// Of text, its background and windows.
Value colors_value(const std::vector<uint8_t>& record)
{
    Members members;
    std::string text;
    for (const char* part : {"text", "background", "windows"}) {
        const auto at = record.begin() + 3 * std::ssize(members);
        const Value color = value_of(Color{at[0], at[1], at[2]});
        text += (text.empty() ? "" : ", ") + std::string(part) + " " + color.text();
        members.push_back({part, color});
    }
    return Value::shown_as(text, members);
}

std::vector<uint8_t> color_record(const std::vector<std::string>& colors)
{
    std::vector<uint8_t> record;
    for (const std::string& text : colors)
        std::ranges::copy(parse_color(text).value(), std::back_inserter(record));
    return record;
}

/// The display has a picture of each printable character of ASCII, and of no other.
std::string refuse_text(const std::string& text)
{
    if (text.size() > kTextBytes)
        return format("the text has %zu bytes; 0 to %zu fit", text.size(), kTextBytes);
    const bool is_shown = std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
    return is_shown ? "" : "the text has characters beside printable ASCII";
}

using SharedOsd = std::shared_ptr<OsdOptions>;

void add_datetime(Command& osd, Arguments& arguments, const SharedOsd& options)
{
    Command& command = add_command(osd, "datetime", "The date-time stamp: show it, set it, or ask",
                                   "set 2026-05-01T12:00:00");
    set_action(command, arguments, show_datetime);
    add_switch(command, arguments, "show");

    Command& set = add_command(command, "set", "Set the camera's clock", "now");
    set.text("TIME", &options->time, "As 2026-05-01T12:00:00, or now")
        .required()
        .refused(refuse_time);
    for (const auto& [name, value] :
         {std::pair("--column", &options->column), std::pair("--row", &options->row)}) {
        set.number(name, value, kByteRange, "Place of the stamp (0 to 255)").shown_as("CELLS");
    }
    set_writing_action(set, arguments,
                       [options](Session& session) { set_datetime(session, *options); });
}

void add_string(Command& osd, Arguments& arguments, const SharedOsd& options)
{
    Command& command = add_command(osd, "string", "Set a line of text, or ask", "0 'Front door'");
    add_number(command, "INDEX", &options->index, 0, kLastString, "Line").required();
    command.text("TEXT", &options->text, "At most 16 characters").refused(refuse_text);
    set_writing_action(command, arguments,
                       [options](Session& session) { run_string(session, *options); });
}

void add_records(Command& osd, Arguments& arguments, const SharedOsd& options)
{
    Command& window =
        add_command(osd, "window", "Set a window, or show the latest one", "0 2 3 10 4 1");
    window
        .number("VALUES", &options->bytes, kByteRange,
                "Index (0 to 3), column, row, width, height in cells of 16x16 pixels, 1 = shown")
        .times(6, 6);
    set_writing_action(
        window, arguments,
        [options](Session& session) {
            run_record<OsdWindow>(session, "window", XU_OsdGetWindow, XU_OsdSetWindow,
                                  to_bytes(options->bytes), window_value);
        },
        [options] {
            if (!options->bytes.empty() && options->bytes[0] > kLastWindow) {
                throw Failure(kExitUsage, format("window %u does not exist; 0 to %u do",
                                                 options->bytes[0], kLastWindow));
            }
        });

    Command& color = add_command(osd, "color", "Set the colours, or ask", "white black C00000");
    color
        .text("COLORS", &options->colors,
              "Of text, its background and windows: names, RRGGBB, or Y,Cb,Cr")
        .refused(refuse_color)
        .times(3, 3);
    set_writing_action(color, arguments, [options](Session& session) {
        run_record<OsdColor>(session, "color", XU_OsdGetColor, XU_OsdSetColor,
                             color_record(options->colors), colors_value);
    });
}

} // namespace

void add_osd_command(Command& app, Arguments& arguments)
{
    const auto options = std::make_shared<OsdOptions>();
    Command& osd = add_command(app, "osd", "Text, date and windows over the video", "enable on");
    osd.needing_command();
    add_switch(osd, arguments, "enable");
    add_datetime(osd, arguments, options);
    add_string(osd, arguments, options);
    add_records(osd, arguments, options);
    add_switch(osd, arguments, "transparent");
    Command& reset = add_command(osd, "reset", "Clear everything", "");
    set_writing_action(reset, arguments, [](Session& session) {
        session.order("osd", "reset", "resetting the on-screen display",
                      [&] { return XU_OsdReset(session.device()); }, {.transfers = 1});
    });
}

} // namespace tool
