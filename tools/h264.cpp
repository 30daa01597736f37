// SPDX-License-Identifier: Apache-2.0
// The H.264 encoder.
#include "failure.h"
#include "feature.h"
#include "text.h"

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

struct H264Options {
    bool published_order = false;
    std::optional<uint32_t> layer; ///< without: 0, the only one
    std::string mode;
    std::optional<uint32_t> peak;
    std::optional<uint32_t> average;
    std::optional<uint32_t> frame_types;
    std::optional<uint32_t> least;
    std::optional<uint32_t> most;
    std::optional<uint32_t> period;
    std::optional<uint32_t> stream_format;
    std::string frame;
};
using SharedH264 = std::shared_ptr<H264Options>;

const std::vector<std::string> kModes = {"cbr", "vbr", "constant-qp"};     // from 1
const std::vector<std::string> kFrames = {"i", "idr", "idr-with-headers"}; // from 0

uint8_t place_in(const std::vector<std::string>& names, const std::string& name)
{
    return static_cast<uint8_t>(std::ranges::find(names, name) - names.begin());
}

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

/// For orders, which nothing has been read before.
int32_t checked(Session& session, int32_t status)
{
    check(session, "talking to the encoder", status);
    return status;
}

template <size_t Size>
std::array<uint8_t, Size> with_layer(const H264Options& options)
{
    std::array<uint8_t, Size> payload{};
    const uint32_t layer = options.layer.value_or(0);
    payload[0] = static_cast<uint8_t>(layer);
    payload[1] = static_cast<uint8_t>(layer >> 8);
    return payload;
}

/// A setting as it is read, which is of a layer that the camera chooses.
std::string of_layer(const std::string& setting, unsigned layer, const H264Options& options)
{
    return layer == options.layer.value_or(0) ? setting : setting + format(" (layer %u)", layer);
}

template <size_t Size>
unsigned layer_in(const std::array<uint8_t, Size>& payload)
{
    return payload[0] | static_cast<unsigned>(payload[1]) << 8;
}

std::string mode_of(Session& session, const H264Options& options)
{
    std::array<uint8_t, 3> payload{};
    check(session, "reading the rate control",
          H264GetRateCtrlMode(session.device(), payload.data()));
    const uint8_t mode = payload[2];
    return of_layer(mode >= 1 && mode <= kModes.size() ? kModes[mode - 1U] : format("0x%02X", mode),
                    layer_in(payload), options);
}

void run_rate_control(Session& session, const H264Options& options)
{
    if (options.mode.empty())
        return session.print({{"rate_control", mode_of(session, options)}});
    auto payload = with_layer<3>(options);
    payload[2] = static_cast<uint8_t>(1 + place_in(kModes, options.mode));
    session.make({.name = "rate_control",
                  .read = [&] { return mode_of(session, options); },
                  .wanted = options.mode,
                  .doing = "setting the rate control",
                  .write = [&] { return H264SetRateCtrlMode(session.device(), payload.data()); },
                  .cost = kControlChange});
}

H264BitrateLayers bitrate_of(Session& session)
{
    H264BitrateLayers layers{};
    check(session, "reading the bitrate", H264GetBitrate(session.device(), &layers));
    return layers;
}

std::string bitrate_text(const H264BitrateLayers& layers, const H264Options& options)
{
    return of_layer(
        format("peak %u, average %u bit/s", layers.dwPeakBitrate, layers.dwAverageBitrate),
        layers.wLayerID, options);
}

void run_bitrate(Session& session, const H264Options& options)
{
    if (!options.peak) {
        const H264BitrateLayers now = bitrate_of(session);
        return session.print({{"layer", now.wLayerID},
                              {"peak_bit_per_s", now.dwPeakBitrate},
                              {"average_bit_per_s", now.dwAverageBitrate}});
    }
    const H264BitrateLayers wanted = {.wLayerID = static_cast<uint16_t>(options.layer.value_or(0)),
                                      .dwPeakBitrate = *options.peak,
                                      .dwAverageBitrate = *options.average};
    session.make({.name = "bitrate",
                  .read = [&] { return bitrate_text(bitrate_of(session), options); },
                  .wanted = bitrate_text(wanted, options),
                  .doing = "setting the bitrate",
                  .write = [&] { return H264SetBitrate(session.device(), &wanted); },
                  .cost = kControlChange});
}

std::array<uint8_t, 5> qp_of(Session& session)
{
    std::array<uint8_t, 5> payload{};
    check(session, "reading the QP steps", H264GetQpSteps(session.device(), payload.data()));
    return payload;
}

std::string qp_text(const std::array<uint8_t, 5>& payload, const H264Options& options)
{
    return of_layer(format("frame types %u, %u to %u", payload[2], payload[3], payload[4]),
                    layer_in(payload), options);
}

void run_qp(Session& session, const H264Options& options)
{
    if (!options.most) {
        const std::array<uint8_t, 5> now = qp_of(session);
        return session.print({{"frame_types", now[2]}, {"least_qp", now[3]}, {"most_qp", now[4]}});
    }
    auto payload = with_layer<5>(options);
    payload[2] = static_cast<uint8_t>(*options.frame_types);
    payload[3] = static_cast<uint8_t>(*options.least);
    payload[4] = static_cast<uint8_t>(*options.most);
    session.make({.name = "qp",
                  .read = [&] { return qp_text(qp_of(session), options); },
                  .wanted = qp_text(payload, options),
                  .doing = "setting the QP steps",
                  .write = [&] { return H264SetQpSteps(session.device(), payload.data()); },
                  .cost = kControlChange});
}

uint16_t period_of(Session& session)
{
    uint16_t period = 0;
    session.check("reading the I-frame period", H264GetIFramePeriod(session.device(), &period));
    return period;
}

void run_period(Session& session, const H264Options& options)
{
    if (!options.period)
        return session.print({{"iframe_period", period_of(session)}});
    const auto period = static_cast<uint16_t>(*options.period);
    session.make({.name = "iframe_period",
                  .read = [&] { return period_of(session); },
                  .wanted = period,
                  .doing = "setting the I-frame period",
                  .write = [&] { return H264SetIFramePeriod(session.device(), &period); },
                  .cost = register_write(4) + register_read(4)});
}

uint8_t format_of(Session& session)
{
    uint8_t stream_format = 0;
    session.check("reading the format", H264GetFormat(session.device(), &stream_format));
    return stream_format;
}

void run_format(Session& session, const H264Options& options)
{
    if (!options.stream_format)
        return session.print({{"format", format_of(session)}});
    const auto wanted = static_cast<uint8_t>(*options.stream_format);
    session.make({.name = "format",
                  .read = [&] { return format_of(session); },
                  .wanted = wanted,
                  .doing = "setting the format",
                  .write = [&] { return H264SetFormat(session.device(), wanted); },
                  .cost = register_change() + register_read(2)});
}

void run_next_frame(Session& session, const H264Options& options)
{
    auto payload = with_layer<4>(options);
    payload[2] = place_in(kFrames, options.frame);
    session.order(
        "next_frame", options.frame, "asking for a frame",
        [&] { return checked(session, H264SetNextFrameType(session.device(), payload.data())); },
        kControlWrite);
}

void run_reset(Session& session, const H264Options& options)
{
    const auto payload = with_layer<2>(options);
    session.order(
        "encoder", "reset", "resetting the encoder",
        [&] { return checked(session, H264Reset(session.device(), payload.data())); },
        kControlWrite);
}

void run_version(Session& session, const H264Options&)
{
    std::array<uint8_t, 2> version{};
    check(session, "reading the version", H264GetVersion(session.device(), version.data()));
    session.print({{"version", format("%u.%02X", version[1], version[0])}});
}

void check_qp_order(const H264Options& options)
{
    if (options.least && options.most && *options.least > *options.most)
        throw Failure(kExitUsage, "the least QP is above the most one");
}

/// Whether something is set that each layer has of its own. Reading takes no layer.
bool sets_a_layer(std::string_view command, const H264Options& options)
{
    return !options.mode.empty() || options.peak || options.most || !options.frame.empty() ||
           command == "reset";
}

struct Row {
    const char* name;
    const char* summary;
    const char* example;
    void (*run)(Session&, const H264Options&);
    void (*add_options)(Command&, H264Options&);
    bool writes = true;
};

void add_nothing(Command&, H264Options&) {}

void add_mode(Command& command, H264Options& o)
{
    add_choice(command, "MODE", &o.mode, kModes, "cbr, vbr or constant-qp; without: ask");
}

void add_rates(Command& command, H264Options& o)
{
    Option& peak = add_number(command, "PEAK", &o.peak, 1, kMost32, "bit/s; without: ask");
    peak.needing(add_number(command, "AVERAGE", &o.average, 1, kMost32, "bit/s"));
}

void add_qp(Command& command, H264Options& o)
{
    Option& types = add_number(command, "TYPES", &o.frame_types, 1, kMostFrameTypes,
                               "Sum of 1 = I, 2 = P, 4 = B frames; without: ask");
    Option& least = add_number(command, "LEAST", &o.least, 0, kMostQp, "Least QP");
    types.needing(least);
    least.needing(add_number(command, "MOST", &o.most, 0, kMostQp, "Most QP"));
}

void add_period(Command& command, H264Options& o)
{
    add_number(command, "FRAMES", &o.period, 1, kMost16, "Frames; without: ask");
}

void add_format(Command& command, H264Options& o)
{
    add_number(command, "FORMAT", &o.stream_format, 0, 1, "Format; without: ask");
}

void add_frame(Command& command, H264Options& o)
{
    add_choice(command, "TYPE", &o.frame, kFrames, "i, idr or idr-with-headers").required();
}

// clang-format off
constexpr Row kRows[] = {
//   name             summary                                     example                                function          options
    {"rate-control",  "Set how the bitrate is kept, or ask",      "nyxus h264 rate-control vbr",         run_rate_control, add_mode},
    {"bitrate",       "Set peak and average bitrate, or ask",     "nyxus h264 bitrate 4000000 2000000",  run_bitrate,      add_rates},
    {"qp",            "Set the bounds of QP, or ask",             "nyxus h264 qp 7 20 40",               run_qp,           add_qp},
    {"iframe-period", "Set the frames between I-frames, or ask",  "nyxus h264 iframe-period 30",         run_period,       add_period},
    {"format",        "Set the stream format, or ask",            "nyxus h264 format 1",                 run_format,       add_format},
    {"next-frame",    "Ask for a frame of a type",                "nyxus h264 next-frame idr",           run_next_frame,   add_frame},
    {"reset",         "Reset the encoder",                        "nyxus h264 reset",                    run_reset,        add_nothing},
    {"version",       "Show the version of the payload layout",   "nyxus h264 version",                  run_version,      add_nothing, false},
};
// clang-format on

} // namespace

void add_h264_command(Command& app, Arguments& arguments)
{
    const auto options = std::make_shared<H264Options>();
    Command& h264 =
        add_command(app, "h264", "The H.264 encoder", "nyxus h264 bitrate 4000000 2000000");
    h264.needing_command();
    h264.flag("--published-order", &options->published_order,
              "For firmware that expects length and request the other way round");
    add_number(h264, "--layer", &options->layer, 0, kMost16,
               "Layer of the stream whose setting is made");
    for (const Row& row : kRows) {
        Command& command = add_command(h264, row.name, row.summary, row.example);
        row.add_options(command, *options);
        const auto set = row.writes ? set_writing_action : set_action;
        set(
            command, arguments,
            [&row, options](Session& session) {
                nyxus_h264_standard_order = options->published_order ? 0 : 1;
                row.run(session, *options);
            },
            [&row, options] {
                check_qp_order(*options);
                if (options->layer && !sets_a_layer(row.name, *options)) {
                    throw Failure(kExitUsage,
                                  "--layer is for a setting of a layer that is made; "
                                  "the camera chooses which layer it tells of");
                }
            });
    }
}

} // namespace tool
