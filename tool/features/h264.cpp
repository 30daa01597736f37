// SPDX-License-Identifier: Apache-2.0
// The H.264 encoder.
#include "features/setting.h"
#include "terminal/failure.h"
#include "terminal/text.h"

#include <nyxus/h264.h>
#include <algorithm>
#include <array>

namespace tool {

namespace {

constexpr Cost kControlWrite = {.transfers = 1};
constexpr Cost kControlChange = {.transfers = 2}; // and reading it back
constexpr uint32_t kMost16 = 0xFFFF;
constexpr uint32_t kMost32 = 0xFFFFFFFF;
constexpr uint32_t kMostQp = 51;
constexpr uint32_t kMostFrameTypes = 7; // bits: I, P, B

const command_line::Words kModes = {"cbr", "vbr", "constant-qp"};     // from 1
const command_line::Words kFrames = {"i", "idr", "idr-with-headers"}; // from 0

/// A layer, and what is set for it.
using Numbers = std::array<uint32_t, 4>;

struct H264Options {
    bool published_order = false;
    std::optional<uint32_t> layer; ///< without: 0, the only one
    std::array<std::optional<uint32_t>, 3> numbers;
    std::string word; ///< a mode or a type of frame

    bool is_set() const { return numbers[0] || !word.empty(); }
    Numbers wanted(const command_line::Words& words, uint32_t first) const
    {
        const auto place = std::ranges::find(words, word) - words.begin();
        return {layer.value_or(0), numbers[0].value_or(first + static_cast<uint32_t>(place)),
                numbers[1].value_or(0), numbers[2].value_or(0)};
    }
};
using SharedH264 = std::shared_ptr<H264Options>;

template <auto kGet>
int32_t get_bytes(NyDevice* device, Numbers& numbers)
{
    std::array<uint8_t, 5> payload{};
    const int32_t status = kGet(device, payload.data());
    numbers = {payload[0] | uint32_t{payload[1]} << 8, payload[2], payload[3], payload[4]};
    return status;
}

template <auto kSet>
int32_t set_bytes(NyDevice* device, const Numbers& numbers)
{
    std::array<uint8_t, 5> payload{static_cast<uint8_t>(numbers[0]),
                                   static_cast<uint8_t>(numbers[0] >> 8)};
    std::transform(numbers.begin() + 1, numbers.end(), payload.begin() + 2,
                   [](uint32_t number) { return static_cast<uint8_t>(number); });
    return kSet(device, payload.data());
}

int32_t get_bitrate(NyDevice* device, Numbers& numbers)
{
    H264BitrateLayers layers{};
    const int32_t status = H264GetBitrate(device, &layers);
    numbers = {layers.wLayerID, layers.dwPeakBitrate, layers.dwAverageBitrate};
    return status;
}

int32_t set_bitrate(NyDevice* device, const Numbers& numbers)
{
    const H264BitrateLayers layers{.wLayerID = static_cast<uint16_t>(numbers[0]),
                                   .dwPeakBitrate = numbers[1],
                                   .dwAverageBitrate = numbers[2]};
    return H264SetBitrate(device, &layers);
}

Value mode_value(const Numbers& numbers)
{
    const uint32_t mode = numbers[1];
    return mode >= 1 && mode <= kModes.size() ? Value(kModes[mode - 1]) : Value(mode);
}

Value bitrate_value(const Numbers& numbers)
{
    return Value::shown_as(format("peak %u, average %u bit/s", numbers[1], numbers[2]),
                           Members{{"layer", numbers[0]},
                                   {"peak_bit_per_s", numbers[1]},
                                   {"average_bit_per_s", numbers[2]}});
}

Value qp_value(const Numbers& numbers)
{
    return Value::shown_as(
        format("frame types %u, %u to %u", numbers[1], numbers[2], numbers[3]),
        Members{{"frame_types", numbers[1]}, {"least_qp", numbers[2]}, {"most_qp", numbers[3]}});
}

/// One of the numbers, on the command line.
struct Field {
    const char* argument;
    const char* help;
    uint32_t least;
    uint32_t most;
};

/// A setting that each layer has of its own: a mode, or numbers.
struct Control {
    const char* name;
    const char* summary;
    const char* example;
    const char* title;
    const char* what; ///< in messages
    int32_t (*get)(NyDevice*, Numbers&);
    int32_t (*set)(NyDevice*, const Numbers&);
    Value (*value)(const Numbers&);
    std::vector<Field> fields;
};

// clang-format off
const Control kRateControl =
    {"rate-control", "Set how the bitrate is kept, or ask",  "vbr",             "rate_control", "rate control", get_bytes<H264GetRateCtrlMode>, set_bytes<H264SetRateCtrlMode>, mode_value, {}};
const Control kBitrate =
    {"bitrate",      "Set peak and average bitrate, or ask", "4000000 2000000", "bitrate",      "bitrate",      get_bitrate,                    set_bitrate,                    bitrate_value,
     {{"PEAK",    "bit/s; without: ask", 1, kMost32},
      {"AVERAGE", "bit/s",               1, kMost32}}};
const Control kQp =
    {"qp",           "Set the bounds of QP, or ask",         "7 20 40",         "qp",           "QP steps",     get_bytes<H264GetQpSteps>,      set_bytes<H264SetQpSteps>,      qp_value,
     {{"TYPES", "Sum of 1 = I, 2 = P, 4 = B frames; without: ask", 1, kMostFrameTypes},
      {"LEAST", "Least QP", 0, kMostQp},
      {"MOST",  "Most QP",  0, kMostQp}}};
// clang-format on

void check(Session& session, const std::string& doing, int32_t status)
{
    constexpr int32_t kStalled = -(0x4000 + 9); // a rejected request
    if (status == kStalled) {
        throw Failure(kExitNotSupported,
                      doing + ": " + session.camera.name() +
                          " has no such H.264 control; older firmware needs --published-order");
    }
    session.check(doing, status);
}

/// As it is read, which is of a layer that the camera chooses.
Value setting_value(const Control& control, const Numbers& numbers, const H264Options& options)
{
    Value value = control.value(numbers);
    const unsigned layer = numbers[0];
    if (layer == options.layer.value_or(0))
        return value;
    const std::string text = shown(value) + format(" (layer %u)", layer);
    return Value::shown_as(text, std::move(value));
}

void run_control(Session& session, const Control& control, const H264Options& options)
{
    const auto read = [&] {
        Numbers numbers{};
        check(session, std::string("reading the ") + control.what,
              control.get(session.device(), numbers));
        return numbers;
    };
    const Numbers wanted = options.wanted(kModes, 1);
    session.make({.name = control.title,
                  .read = [&] { return setting_value(control, read(), options); },
                  .wanted = options.is_set() ? setting_value(control, wanted, options) : Value(),
                  .doing = std::string("setting the ") + control.what,
                  .write = [&] { return control.set(session.device(), wanted); },
                  .cost = kControlChange});
}

/// Nothing has been read before, so that a camera may not know it.
void order(Session& session, const std::string& name, const std::string& what,
           const std::string& doing, const std::function<int32_t()>& write)
{
    const auto write_checked = [&] {
        const int32_t status = write();
        check(session, "talking to the encoder", status);
        return status;
    };
    session.order(name, what, doing, write_checked, kControlWrite);
}

void run_next_frame(Session& session, const H264Options& options)
{
    const auto write = [&] {
        return set_bytes<H264SetNextFrameType>(session.device(), options.wanted(kFrames, 0));
    };
    order(session, "next_frame", options.word, "asking for a frame", write);
}

void run_version(Session& session)
{
    std::array<uint8_t, 2> version{};
    check(session, "reading the version", H264GetVersion(session.device(), version.data()));
    session.print({{"version", format("%u.%02X", version[1], version[0])}});
}

/// Takes over for all of the encoder's commands. Only what each layer has of its own is set for
/// one; reading takes none.
void begin(const H264Options& options, bool sets_a_layer)
{
    nyxus_h264_standard_order = options.published_order ? 0 : 1;
    if (options.layer && !sets_a_layer) {
        throw Failure(kExitUsage,
                      "--layer is for a setting of a layer that is made; "
                      "the camera chooses which layer it tells of");
    }
}

void add_control(Command& h264, Arguments& arguments, const Control& control,
                 const SharedH264& options)
{
    Command& command = add_command(h264, control.name, control.summary, control.example);
    if (control.fields.empty()) {
        add_choice(command, "MODE", &options->word, kModes,
                   "cbr, vbr or constant-qp; without: ask");
    }
    Option* before = nullptr;
    for (size_t i = 0; i < control.fields.size(); ++i) {
        const Field& field = control.fields[i];
        Option& option = add_number(command, field.argument, &options->numbers[i], field.least,
                                    field.most, field.help);
        if (before != nullptr)
            before->needing(option);
        before = &option;
    }
    set_writing_action(
        command, arguments,
        [&control, options](Session& session) { run_control(session, control, *options); },
        [options] {
            const auto& [types, least, most] = options->numbers;
            if (most && *least > *most)
                throw Failure(kExitUsage, "the least QP is above the most one");
            begin(*options, options->is_set());
        });
}

void add_numbers(Command& h264, Arguments& arguments, const SharedH264& options)
{
    const Form frames{.argument = "FRAMES", .help = "Frames; without: ask", .range = {1, kMost16}};
    const Form stream_format{.argument = "FORMAT", .help = "Format; without: ask", .range = {0, 1}};
    const auto set_format = [](NyDevice* device, int32_t value) {
        return H264SetFormat(device, static_cast<uint8_t>(value));
    };
    // clang-format off
    const Setting settings[] = {
        {"iframe-period", "Set the frames between I-frames, or ask", "30", "iframe_period", "the I-frame period", read_number<H264GetIFramePeriod, uint16_t>,
         write_number<H264SetIFramePeriod, uint16_t>, register_write(4) + register_read(4),    frames},
        {"format",        "Set the stream format, or ask",           "1",  "format",        "the format",         read_number<H264GetFormat>,
         set_format,                                  register_change() + register_read(2),    stream_format},
    };
    // clang-format on
    for (const Setting& setting : settings)
        add_setting(h264, arguments, setting, [options] { begin(*options, false); });
}

void add_orders(Command& h264, Arguments& arguments, const SharedH264& options)
{
    Command& frame = add_command(h264, "next-frame", "Ask for a frame of a type", "idr");
    add_choice(frame, "TYPE", &options->word, kFrames, "i, idr or idr-with-headers").required();
    set_writing_action(
        frame, arguments, [options](Session& session) { run_next_frame(session, *options); },
        [options] { begin(*options, true); });
    const auto reset = [options](Session& session) {
        order(session, "encoder", "reset", "resetting the encoder",
              [&] { return set_bytes<H264Reset>(session.device(), {options->layer.value_or(0)}); });
    };
    set_writing_action(add_command(h264, "reset", "Reset the encoder", ""), arguments, reset,
                       [options] { begin(*options, true); });
    set_action(add_command(h264, "version", "Show the version of the payload layout", ""),
               arguments, run_version, [options] { begin(*options, false); });
}

} // namespace

void add_h264_command(Command& app, Arguments& arguments)
{
    const auto options = std::make_shared<H264Options>();
    Command& h264 = add_command(app, "h264", "The H.264 encoder", "bitrate 4000000 2000000");
    h264.needing_command();
    h264.flag("--published-order", &options->published_order,
              "For firmware that expects length and request the other way round");
    add_number(h264, "--layer", &options->layer, 0, kMost16,
               "Layer of the stream whose setting is made");
    for (const Control* control : {&kRateControl, &kBitrate, &kQp})
        add_control(h264, arguments, *control, options);
    add_numbers(h264, arguments, options);
    add_orders(h264, arguments, options);
}

} // namespace tool
