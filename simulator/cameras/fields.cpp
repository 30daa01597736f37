// SPDX-License-Identifier: Apache-2.0
#include "cameras/fields.h"

#include "faults/fault_fields.h"

#include <algorithm>

namespace sim {

namespace {

constexpr int64_t kLongestUs = 10'000'000;
constexpr int64_t kLargestFlash = 16 << 20;
constexpr int64_t kLargestEeprom = 64 << 10;
constexpr int64_t kSmallestImage = 0x80;
constexpr int64_t kLargestImage = 0x8000;
constexpr uint8_t kShortBlockErase = 0x52; // this opcode erases 32 KiB, all others 64 KiB

constexpr std::string_view kXuPrefix[] = {"XU", "FF"};
constexpr std::string_view kVideo[] = {"bulk", "isochronous"};
constexpr std::string_view kWriteProtectWays[] = {"control", "gpio0"};

int64_t number(const Value& value)
{
    return std::get<int64_t>(value);
}

void set_xu_version(CameraModel& model, const Value& value)
{
    model.has_xu_version = true;
    model.xu_version = static_cast<uint16_t>(number(value));
}

void set_xu_prefix(CameraModel& model, const Value& value)
{
    model.selects_every_block = std::get<std::string>(value) == kXuPrefix[1];
}

void set_video(CameraModel& model, const Value& value)
{
    model.streams_isochronously = std::get<std::string>(value) == kVideo[1];
}

void set_first_frame(CameraModel& model, const Value& value)
{
    model.first_frame_ms = static_cast<uint32_t>(number(value));
}

void set_pixels(FrameFormat& format, const Value& value)
{
    const auto* const name = std::ranges::find(kPixelFormatNames, std::get<std::string>(value));
    format.pixels = static_cast<PixelFormat>(name - std::begin(kPixelFormatNames));
}

void set_sizes(FrameFormat& format, const Value& value)
{
    format.sizes = std::get<std::vector<FrameSize>>(value);
}

void set_write_protect(CameraModel& model, const Value& value)
{
    const bool gpio0 = std::get<std::string>(value) == kWriteProtectWays[1];
    const bool spi = model.rom_kind == RomKind::kSpiFlash;
    model.gpio0_is_wp = gpio0 && spi;
    model.gpio0_protects_eeprom = gpio0 && !spi;
}

Value default_write_protect(const CameraModel& model)
{
    const bool older =
        !model.has_xu_version || !model.has_memory_extension || model.selects_every_block;
    return std::string(kWriteProtectWays[older && model.rom_kind == RomKind::kSpiFlash ? 1 : 0]);
}

Value default_size_byte(const CameraModel& model)
{
    constexpr std::string_view kLarch[] = {"LE", "LD", "LS", "LP"};
    const auto signature = std::string_view(model.internal_version).substr(0, 2);
    return int64_t{std::ranges::find(kLarch, signature) != std::end(kLarch) ? 22 : 6};
}

void set_size_byte(CameraModel& model, const Value& value)
{
    model.size_at_alternative_byte = number(value) == 22;
}

void set_id(FlashPart& part, const Value& value)
{
    store<&FlashPart::id>(part, value);
    part.id_length = static_cast<uint8_t>(std::get<std::vector<uint8_t>>(value).size());
}

Value default_info_param(const FlashPart& part)
{
    switch (part.read_id_command) {
        case 0x15:
        case 0xAB:
            return 0x24;
        case 0x90:
            return 0x2C;
        default:
            return 0x31;
    }
}

Value default_block_bytes(const FlashPart& part)
{
    const int64_t block = part.block_erase_command == kShortBlockErase ? 0x8000 : 0x10000;
    return std::min<int64_t>(block, part.size_bytes);
}

Value bytes(std::initializer_list<uint8_t> list)
{
    return std::vector<uint8_t>(list);
}

constexpr size_t kLongestUsbText = 126;
constexpr Number kByte{0, 0xFF, Digits::kHex};
constexpr Number kWord16{0, 0xFFFF, Digits::kHex};
constexpr Number kTime{0, kLongestUs};

} // namespace

// clang-format off
std::span<const Field<CameraModel>> camera_fields()
{
    using M = CameraModel;
    static const Field<M> fields[] = {
        {"name", Word{40}, Computed<M>{"the file's name without .toml",
            [](const M& m) -> Value { return m.name; }},
         "Name on the command line.", store<&M::name>},
        {"description", Text{0, 120}, Value(""),
         "One line for 'nyxus-sim models'.", store<&M::description>},
        {"internal_version", Text{2, 11}, Required{},
         "Version text of the firmware in the chip. It holds the chip's signature, by which hosts "
         "tell the chip: LE LD LS LP FI F2 WI HA RO1 RO2 CD CB. Its first two characters also sign "
         "the firmware images that the chip boots.", store<&M::internal_version>},
        {"bond", kByte, Value(0),
         "Bond variant of the chip, in the device status of extension unit 0x0003: CB chips come "
         "as 0 to 3.",
         store<&M::bond>},
        {"xu_version", kWord16, Absent{"no version record: older firmware"},
         "Version of the extension unit, which decides the set of controls: 0x0002, 0x0003, "
         "0x0100, 0x0101. Any other has the controls of older firmware.", set_xu_version},
        {"memory_extension", Truth{}, Computed<M>{"true if xu_version is there, else false",
            [](const M& m) -> Value { return m.has_xu_version; }},
         "The version record announces 32-byte ROM transfers. Without it the firmware is an older "
         "one, whatever its xu_version says.", store<&M::has_memory_extension>},
        {"xu_prefix", Choice{kXuPrefix}, Value("XU"),
         "First letters of the version record. FF: an older firmware, whose hosts select the 64 KiB "
         "block of each ROM access first.", set_xu_prefix},
        {"usb_vendor_id", kWord16, Value(kVendorId),
         "USB vendor ID. The NYXUS library opens cameras of 0x1162 only.", store<&M::usb_vendor_id>},
        {"usb_product_id", kWord16, Value(0x0600),
         "USB product ID.", store<&M::usb_product_id>},
        {"usb_manufacturer", Text{1, kLongestUsbText}, Value(kManufacturer),
         "USB text of the maker.", store<&M::usb_manufacturer>},
        {"usb_product", Text{1, kLongestUsbText}, Computed<M>{"the name",
            [](const M& m) -> Value { return m.name; }},
         "USB text of the product.", store<&M::usb_product>},
        // A host controller tells of completed transfers once per microframe of 125 us (EHCI 1.0,
        // interrupt threshold, as Linux sets it); a host that waits for one before it submits the
        // next gets no more than that. On the wire the setup, data and status stages take 4 us
        // (USB 2.0, 5.5.4: 31 transfers of 64 bytes fit into a microframe), and the controller
        // comes back after 10 us to each of the last two that the camera is not ready for (EHCI
        // 1.0, 4.8.4). What a camera's firmware adds is not known.
        {"usb_latency_us", Number{0, 1'000'000}, Value(125),
         "Time that a control transfer takes, in microseconds, when nothing is queued before it.",
         store<&M::usb_latency_us>},
        {"usb_wire_us", Number{0, 1'000'000}, Value(25),
         "What of that time passes on the wire, in microseconds: queued transfers follow each other "
         "at this distance. The rest of usb_latency_us is the host's, which turns around.",
         store<&M::usb_wire_us>},
        {"video", Choice{kVideo}, Value("bulk"),
         "How the picture travels.", set_video},
        {"iso_packet_bytes", NumberList{16, 64, 3072}, Value(std::vector<uint32_t>{1024, 3072}),
         "What the alternate settings 1, 2, ... of an isochronous camera carry in each microframe of "
         "125 us, headers of 12 bytes included: one packet of up to 1024 bytes, or two or three "
         "equal ones.", store<&M::iso_packet_bytes>},
        {"bulk_payload_bytes", Number{512, 0x100'0000}, Absent{"a whole frame"},
         "Largest bulk payload, with its header of 12 bytes.", store<&M::bulk_payload_bytes>},
        {"first_frame_ms", Number{0, 10'000},
         Absent{"300, or less: when '--usbfs-memory' is used up"},
         "Time from a host's commit to the first frame.", set_first_frame},
        {"format", Tables{4}, Absent{"YUYV at 320x240, 640x480 and 1280x720"},
         "What the camera streams: a table [[format]] for each.", nullptr},
        {"picture", Table{}, Absent{"a test pattern with the number of the frame"},
         "A table [picture]: what the sensor sees.", nullptr},
        {"controls", Table{}, Absent{"brightness from 0 to 255, at first 128"},
         "Standard controls of the picture.", nullptr},
        {"h264_any_order", Truth{}, Value(false),
         "The H.264 unit also answers queries whose length and request are swapped.",
         store<&M::tolerates_swapped_h264>},
        {"flash", PartOrTable{"flash"}, Absent{"none; then there is an 'eeprom'"},
         "The ROM is an SPI flash: the name of a part ('nyxus-sim describe --flash-parts'), or a "
         "table [flash].", nullptr},
        {"eeprom", PartOrTable{"eeprom"}, Absent{"none; then there is a 'flash'"},
         "The ROM is an I2C EEPROM: the name of a part ('nyxus-sim describe --eeprom-parts'), or a "
         "table [eeprom].", nullptr},
        {"write_protect", Choice{kWriteProtectWays}, Computed<M>{
            "\"gpio0\" for the flash of older firmware, else \"control\"", default_write_protect},
         "What drives the ROM's protection pin: the write-protect control, or GPIO 0. With "
         "\"gpio0\" a flash minds nothing but GPIO 0, which releases it when high; an EEPROM needs "
         "both, the control and a low GPIO 0.", set_write_protect},
        {"size_byte", EitherNumber{6, 22}, Computed<M>{
            "22 for the LARCH chips (LE LD LS LP), else 6", default_size_byte},
         "Where the ROM header keeps the ROM's size: at byte 6 or 22.", set_size_byte},
        {"firmware", Table{}, Absent{"all of its defaults"},
         "A table [firmware]: what is in the ROM at first.", nullptr},
        {"fault", kFaultTables, Absent{"nothing"},
         "What goes wrong with the camera by itself: a table [[fault]] for each.", nullptr},
    };
    return fields;
}

std::span<const Field<CameraModel>> firmware_fields()
{
    using M = CameraModel;
    static const Field<M> fields[] = {
        {"version", kWord16, Value(0x0100),
         "Version of the firmware.", store<&M::factory_firmware_version>},
        {"size_bytes", Number{kSmallestImage, kLargestImage, Digits::kHex}, Computed<M>{
            "0x4000, or half of a ROM that is smaller than 0x8000",
            [](const M& m) -> Value { return int64_t{std::min(rom_bytes(m) / 2, 0x4000U)}; }},
         "Size of the firmware; not more than the ROM has.", store<&M::factory_firmware_bytes>},
        {"seed", Number{0, UINT32_MAX, Digits::kHex}, Computed<M>{"usb_product_id",
            [](const M& m) -> Value { return int64_t{m.usb_product_id}; }},
         "Another seed, other contents.", store<&M::factory_firmware_seed>},
    };
    return fields;
}

std::span<const Field<FrameFormat>> format_fields()
{
    using F = FrameFormat;
    static const Field<F> fields[] = {
        {"pixels", Choice{kPixelFormatNames}, Required{},
         "Packed pixels, a JPEG for each frame, or what an encoder of H264 made.", set_pixels},
        {"sizes", SizeList{16}, Required{},
         "Sizes in pixels with their frames per second, the first one for a host without a wish. "
         "H264 has one, that of its file.", set_sizes},
        {"file", Path{}, Absent{"none; H264 needs one"},
         "What an H264 format sends, again and again: a stream in Annex B, which begins with its "
         "parameter sets and an IDR picture.", nullptr},
    };
    return fields;
}

std::span<const Field<SceneSource>> picture_fields()
{
    using S = SceneSource;
    static const Field<S> fields[] = {
        {"file", Path{}, Required{},
         "A PNG, a JPEG, several JPEGs one after the other (MJPEG), or frames of YUYV as they are. The "
         "camera shows their middle in each of its sizes, frame after frame, and then the first again.",
         store<&S::file>},
        {"raw_size", PixelSize{}, Absent{"none; the file is no YUYV"},
         "Size of the frames of YUYV.", store<&S::raw_size>},
        {"frame_number", Truth{}, Value(false),
         "The number of the frame is in the picture as it is in the test pattern. Without it, JPEGs of "
         "the size that is streamed travel as they are while no control has been touched.",
         store<&S::numbers_frames>},
    };
    return fields;
}

std::span<const Field<CameraModel>> control_fields()
{
    using M = CameraModel;
    constexpr Absent kNone{"the camera does not have it"};
    static const Field<M> fields[] = {
        {"brightness", Table{}, kNone, "Adds to the picture's brightness.", nullptr},
        {"contrast", Table{}, kNone, "From grey alone to twice the contrast.", nullptr},
        {"saturation", Table{}, kNone, "From no colour to twice as much.", nullptr},
        {"hue", Table{}, kNone, "Turns the colours by half a circle to either side.", nullptr},
        {"gain", Table{}, kNone, "From black to twice the brightness.", nullptr},
        {"white_balance", Table{}, kNone, "From bluish to reddish.", nullptr},
        {"white_balance_auto", Table{}, kNone,
         "From 0 to 1: while it is 1, white_balance is refused, as by a real camera.", nullptr},
        {"zoom", Table{}, kNone, "Into the middle: min shows all, twice that half of it.", nullptr},
        {"hue_auto", Table{}, kNone, "From 0 to 1: holds hue back.", nullptr},
        {"sharpness", Table{}, kNone, "Has no effect on the picture.", nullptr},
        {"gamma", Table{}, kNone, "More makes dark parts brighter.", nullptr},
        {"backlight_compensation", Table{}, kNone, "Has no effect on the picture.", nullptr},
        {"power_line_frequency", Table{}, kNone,
         "0 off, 1 50 Hz, 2 60 Hz, 3 automatic. Has no effect on the picture.", nullptr},
        {"exposure_mode", Table{}, kNone,
         "1 manual, 2 automatic, 4 shutter priority, 8 aperture priority; 'step' is the sum of those "
         "that the camera has. 2 and 8 hold exposure_time back, 2 and 4 iris.", nullptr},
        {"exposure_priority", Table{}, kNone, "0 or 1. Has no effect on the picture.", nullptr},
        {"exposure_time", Table{}, kNone,
         "In 100 us: twice the time, twice the light.", nullptr},
        {"focus", Table{}, kNone, "Has no effect on the picture.", nullptr},
        {"focus_auto", Table{}, kNone, "From 0 to 1: holds focus back.", nullptr},
        {"iris", Table{}, kNone, "Has no effect on the picture.", nullptr},
        {"pan", Table{}, kNone,
         "In seconds of arc: where the zoom looks; all of the range is from edge to edge.", nullptr},
        {"tilt", Table{}, kNone, "Likewise; more is up.", nullptr},
        {"roll", Table{}, kNone, "Has no effect on the picture.", nullptr},
        {"privacy", Table{}, kNone, "From 0 to 1: the picture is black.", nullptr},
    };
    static_assert(std::size(fields) == kPictureControls);
    return fields;
}

std::span<const Field<ControlRange>> range_fields()
{
    using R = ControlRange;
    static const Field<R> fields[] = {
        {"min", Number{INT32_MIN, INT32_MAX}, Required{},
         "Smallest value. Below 0, the control has a sign.", store<&R::least>},
        {"max", Number{INT32_MIN, INT32_MAX}, Required{}, "Largest value.", store<&R::most>},
        {"step", Number{1, INT32_MAX}, Value(1),
         "Distance of values; the camera rounds down to one of them.", store<&R::step>},
        {"default", Number{INT32_MIN, INT32_MAX}, Computed<R>{"min",
            [](const R& r) -> Value { return int64_t{r.least}; }},
         "Value until a host sets another one, at which the picture is as the sensor sees it.",
         store<&R::standard>},
    };
    return fields;
}

std::span<const Field<FlashPart>> flash_fields()
{
    using P = FlashPart;
    static const Field<P> fields[] = {
        {"name", Text{1, 40}, Value("unnamed flash"),
         "Maker and part number.", store<&P::name>},
        {"id", ByteList{2, 3}, Required{},
         "Identification bytes: maker, then device.", set_id},
        {"size_bytes", Number{0x1000, kLargestFlash, Digits::kHexPowerOfTwo}, Required{},
         "Capacity.", store<&P::size_bytes>},
        {"read_id_command", kByte, Value(0x9F),
         "Opcode that reads the ID: 0x9F, 0x90, 0xAB or 0x15.", store<&P::read_id_command>},
        {"chip_erase_command", kByte, Value(0xC7),
         "Opcode that erases all; 0xFF for a part that has none which the camera may use.",
         store<&P::chip_erase_command>},
        {"block_erase_command", kByte, Value(0xD8),
         "Opcode that erases a block.", store<&P::block_erase_command>},
        {"block_erase_bytes", Number{0x1000, kLargestFlash, Digits::kHexPowerOfTwo}, Computed<P>{
            "0x8000 for block_erase_command 0x52, else 0x10000; at most size_bytes",
            default_block_bytes},
         "Size of a block.", store<&P::block_erase_bytes>},
        {"sector_erase_command", kByte, Value(0x20),
         "Opcode that erases a sector of 0x1000 bytes.", store<&P::sector_erase_command>},
        {"program_us", kTime, Value(110),
         "Time that a page program takes, in microseconds; the camera programs 32 bytes at a time.",
         store<&P::program_us>},
        {"sector_erase_us", kTime, Value(60'000),
         "Time to erase a sector.", store<&P::sector_erase_us>},
        {"block_erase_us", kTime, Value(400'000),
         "Time to erase a block.", store<&P::block_erase_us>},
        {"chip_erase_us", kTime, Value(1'000'000),
         "Time to erase all.", store<&P::chip_erase_us>},
        {"status_write_us", kTime, Value(5'000),
         "Time to write the status register.", store<&P::status_write_us>},
        {"info_param", kByte, Computed<P>{
            "0x31; 0x24 for read_id_command 0x15 or 0xAB, 0x2C for 0x90", default_info_param},
         "What the controller's flash info says of the way to read the ID.", store<&P::info_param>},
        {"controller_params", ByteList{3, 3}, bytes({0x01, 0x02, 0x64}),
         "The last three bytes of the controller's flash info.", store<&P::controller_params>},
    };
    return fields;
}

std::span<const Field<EepromPart>> eeprom_fields()
{
    using P = EepromPart;
    static const Field<P> fields[] = {
        {"name", Text{1, 40}, Value("unnamed EEPROM"),
         "Part number.", store<&P::name>},
        {"size_bytes", Number{0x200, kLargestEeprom, Digits::kHexPowerOfTwo}, Required{},
         "Capacity.", store<&P::size_bytes>},
        {"page_bytes", Number{8, 256, Digits::kHexPowerOfTwo}, Value(32),
         "Most bytes that one write can hold.", store<&P::page_bytes>},
        {"write_cycle_us", kTime, Value(5'000),
         "Time to write a page, in microseconds; meanwhile the part does not answer.",
         store<&P::write_cycle_us>},
    };
    return fields;
}
// clang-format on

} // namespace sim
