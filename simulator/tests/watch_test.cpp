// SPDX-License-Identifier: Apache-2.0
// What observers, the log and the state socket tell of the cameras, and what they make of nonsense.
#include "bus/bed.h"
#include "bus/registry.h"
#include "cameras/shipped.h"
#include "chip/control_table.h"
#include "chip/prng.h"
#include "files/listen.h"
#include "files/unix_socket.h"
#include "usb/descriptors.h"
#include "usb/video_controls.h"
#include "watch/line_server.h"
#include "watch/log.h"
#include "watch/plain_words.h"
#include "watch/state_service.h"

#include <gtest/gtest.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

const sim::CameraModel& model(const char* name)
{
    return *sim::find_model(name);
}

sim::Setup unit_request(uint8_t request, uint8_t unit, uint8_t selector, uint16_t length)
{
    return {.request_type = static_cast<uint8_t>(request == sim::kSetCur ? 0x21 : 0xA1),
            .request = request,
            .value = static_cast<uint16_t>(selector << 8),
            .index = static_cast<uint16_t>(unit << 8),
            .length = length};
}

/// A file in a folder of its own.
class TemporaryFile {
public:
    TemporaryFile()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "nyxus-XXXXXX").string();
        if (mkdtemp(pattern.data()) != nullptr)
            folder_ = pattern;
    }
    ~TemporaryFile()
    {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    std::string path() const { return (folder_ / "file").string(); }
    std::string contents() const
    {
        std::ifstream file(path());
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::filesystem::path folder_;
};

TEST(PlainWords, NameTheControlAndWhatItIsAbout)
{
    const struct {
        const char* model;
        sim::Setup setup;
        Bytes data;
        const char* text;
    } cases[] = {
        {"rowan-spi",
         unit_request(sim::kSetCur, 6, sim::kExtRom, 35),
         {0x20, 0, 0x40, 0},
         "SET_CUR unit 6 EXT_ROM: ask for 32 bytes at 0x0040"},
        {"rowan-spi",
         unit_request(sim::kGetCur, 6, sim::kExtRom, 35),
         {0x02, 0, 0x40, 0xAB, 0xCD, 0},
         "GET_CUR unit 6 EXT_ROM: read 2 bytes at 0x0040: AB CD"},
        {"rowan-spi",
         unit_request(sim::kSetCur, 6, sim::kExtRom, 35),
         {0x82, 1, 2, 3, 4, 5},
         "SET_CUR unit 6 EXT_ROM: write 2 bytes at 0x0102: 03 04"},
        {"rowan-spi",
         unit_request(sim::kSetCur, 6, sim::kExtRom, 35),
         {0x40, 0, 0, 0},
         "SET_CUR unit 6 EXT_ROM: erase the whole ROM"},
        // The older firmware's flags are other bits of the same byte.
        {"hawthorn-eeprom",
         unit_request(sim::kSetCur, 6, sim::kExtRom, 11),
         {0xA1, 0, 0x10, 7, 0},
         "SET_CUR unit 6 EXT_ROM: write 1 byte at 0x0010: 07"},
        {"rowan-spi",
         unit_request(sim::kSetCur, 6, sim::kReg, 11),
         {0x81, 0x0B, 0x69, 8},
         "SET_CUR unit 6 REG: write 1 byte at 0x0B69: 08"},
        {"rowan-spi",
         unit_request(sim::kGetCur, 6, sim::kSpiStatus, 11),
         {1, 0, 0, 3},
         "GET_CUR unit 6 SPI_STATUS: status 03, busy"},
        {"rowan-spi",
         unit_request(sim::kGetInfo, 6, sim::kHwVersion, 1),
         {1},
         "GET_INFO unit 6 HW_VERSION: 01"},
        {"rowan-spi",
         unit_request(sim::kGetCur, 6, sim::kIntFwVersion, 11),
         {'R', 'O', 0, 0},
         "GET_CUR unit 6 INT_FW_VERSION: \"RO\""},
        {"rowan-spi",
         unit_request(sim::kGetCur, 12, 0x0A, 2),
         {0, 1},
         "GET_CUR unit 12 VERSION: 00 01"},
        {"rowan-spi",
         unit_request(sim::kGetCur, 12, 0x55, 2),
         {},
         "GET_CUR unit 12 control 0x55: nothing"},
        {"rowan-spi",
         unit_request(sim::kGetCur, 2, 2, 2),
         {128, 0},
         "GET_CUR unit 2 BRIGHTNESS: 80 00"},
        {"rowan-spi",
         {.request_type = 0x80, .request = 6, .value = 0x0302, .length = 255},
         {},
         "GET_DESCRIPTOR, value 0x0302, index 0x0000: nothing"},
        {"rowan-spi",
         {.request_type = 0x01, .request = 11, .value = 2, .index = 1},
         {},
         "SET_INTERFACE, value 0x0002, index 0x0001"},
        {"rowan-spi",
         {.request_type = 0x02, .request = 1, .index = 0x81},
         {},
         "CLEAR_FEATURE, value 0x0000, index 0x0081"},
        {"rowan-spi",
         {.request_type = 0xC0, .request = 9, .value = 1, .index = 2},
         {0xFF},
         "request 0x09 of type 0xC0, value 0x0001, index 0x0002"},
    };
    for (const auto& row : cases)
        EXPECT_EQ(sim::request_in_words(model(row.model), row.setup, row.data).text, row.text);
}

TEST(PlainWords, AreFoundForAnyBytes)
{
    sim::Prng random(7);
    for (int round = 0; round < 50000; ++round) {
        Bytes data(random.next_byte() % 40);
        std::ranges::generate(data, [&] { return random.next_byte(); });
        std::array<uint8_t, sim::kSetupBytes> setup{};
        std::ranges::generate(setup, [&] { return random.next_byte(); });
        if (round % 2 == 0) { // a control of the vendor unit
            setup = unit_request(round % 4 == 0 ? sim::kSetCur : sim::kGetCur, 6,
                                 random.next_byte() % 32, 0)
                        .to_wire();
        }
        const auto words =
            sim::request_in_words(sim::models()[static_cast<size_t>(round) % sim::models().size()],
                                  sim::Setup::from_wire(setup), data);
        ASSERT_FALSE(words.text.empty());
        ASSERT_LT(words.text.size(), 200U);
    }
}

/// A camera's log, fed with requests.
class LogBench {
public:
    explicit LogBench(bool counts_repeated)
        : camera_(model("rowan-spi"), clock_, "S1"),
          file_(file_on_disk_.path(), clock_),
          log_(file_, "", counts_repeated)
    {
        log_.plugged(camera_, 1, 2);
    }

    void request(const sim::Setup& setup, Bytes data, int status = 0)
    {
        sim::BusTransfer transfer{.id = ++id_, .setup = setup};
        transfer.endpoint = setup.is_in() ? 0x80 : 0;
        transfer.data = setup.is_in() ? std::span<const uint8_t>() : data;
        log_.submitted(transfer);
        transfer.status = status;
        transfer.data = setup.is_in() ? data : std::span<const uint8_t>();
        log_.finished(transfer);
    }

    /// What follows the line about the plug, without times.
    std::vector<std::string> lines()
    {
        constexpr size_t kTimeWidth = 14;
        log_.finish();
        std::istringstream text(file_on_disk_.contents());
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);)
            lines.push_back(line.substr(kTimeWidth));
        lines.erase(lines.begin());
        return lines;
    }

private:
    sim::VirtualClock clock_;
    sim::UsbCamera camera_;
    TemporaryFile file_on_disk_;
    sim::LogFile file_;
    sim::CameraLog log_;
    uint64_t id_ = 0;
};

void write_pages(LogBench& bench, unsigned count)
{
    for (unsigned page = 0; page < count; ++page) {
        bench.request(unit_request(sim::kSetCur, 6, sim::kExtRom, 35),
                      {0x81, 0, static_cast<uint8_t>(page), 0xAA});
        bench.request(unit_request(sim::kGetCur, 6, sim::kSpiStatus, 11), {1, 0, 0, 0});
    }
}

TEST(Log, CountsWalksAndPolls)
{
    LogBench bench(true);
    write_pages(bench, 5);
    bench.request(unit_request(sim::kGetCur, 6, sim::kSpiStatus, 11), {1, 0, 0, 1});
    EXPECT_EQ(bench.lines(),
              (std::vector<std::string>{
                  "SET_CUR unit 6 EXT_ROM: write 1 byte at 0x0000: AA",
                  "GET_CUR unit 6 SPI_STATUS: status 00",
                  "  ... 4 more like it, written on to 0x0004: SET_CUR unit 6 EXT_ROM",
                  "  ... 4 more times: GET_CUR unit 6 SPI_STATUS: status 00",
                  "GET_CUR unit 6 SPI_STATUS: status 01, busy",
              }));
}

TEST(Log, TellsEverythingWhenAsked)
{
    LogBench bench(false);
    write_pages(bench, 5);
    EXPECT_EQ(bench.lines().size(), 10U);
}

TEST(Log, DoesNotTakeForRepeatedWhatDiffersOutOfSight)
{
    LogBench bench(true);
    const sim::Setup osd = unit_request(sim::kSetCur, 6, sim::kOsd, 18);
    Bytes data(18);
    bench.request(osd, data);
    data.back() = 1;
    bench.request(osd, data);
    bench.request(osd, data, -EPIPE);
    const auto lines = bench.lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], lines[1]);
    EXPECT_TRUE(lines[2].ends_with("(18 bytes) -> stalled"));
}

/// Writes down what it is told.
class Notes final : public sim::UsbObserver {
public:
    void plugged(const sim::UsbCamera&, unsigned bus, unsigned address) override
    {
        add("plugged " + std::to_string(bus) + ":" + std::to_string(address));
    }
    void left(sim::Departure reason) override
    {
        constexpr const char* kReasons[] = {"unplugged", "unplugged silently", "restarts"};
        add(kReasons[static_cast<size_t>(reason)]);
    }
    void submitted(const sim::BusTransfer& transfer) override { add("S", transfer); }
    void finished(const sim::BusTransfer& transfer) override { add("C", transfer); }
    void refused(const sim::BusTransfer& transfer) override { add("E", transfer); }
    void video_changed(const sim::VideoStream&) override { add("video"); }

    std::string text;

private:
    void add(const std::string& line) { text += line + "; "; }
    void add(const char* event, const sim::BusTransfer& transfer)
    {
        constexpr const char* kTypes[] = {"iso", "interrupt", "control", "bulk"};
        add(std::string(event) + std::to_string(transfer.id) + " " +
            kTypes[static_cast<size_t>(transfer.type)] + " room " + std::to_string(transfer.room) +
            " data " + std::to_string(transfer.data.size()) + " status " +
            std::to_string(transfer.status));
    }
};

class WatchTest : public testing::Test {
protected:
    sim::PluggedCamera& plug(const char* name = "rowan-spi")
    {
        return *cameras_.emplace_back(&bed_.plug(model(name), {.serial = "S1"}));
    }
    static std::unique_ptr<sim::UsbfsFile> open(const sim::PluggedCamera& camera)
    {
        return sim::find_node(camera.bus(), camera.address())->open();
    }
    static int submit(sim::UsbfsFile& file, uint8_t type, uint8_t endpoint, uint32_t bytes,
                      uint64_t name, Bytes payload = {})
    {
        return file
            .call({{.code = USBDEVFS_SUBMITURB,
                    .urb_type = type,
                    .urb_endpoint = endpoint,
                    .urb_bytes = bytes,
                    .urb = name},
                   std::move(payload)})
            .header.result;
    }
    static int control(sim::UsbfsFile& file, const sim::Setup& setup)
    {
        const auto wire = setup.to_wire();
        return submit(file, USBDEVFS_URB_TYPE_CONTROL, 0, 8U + setup.length, 1,
                      {wire.begin(), wire.end()});
    }

    sim::VirtualClock clock_;
    sim::TestBed bed_{clock_};
    std::vector<sim::PluggedCamera*> cameras_;
};

TEST_F(WatchTest, EveryObserverIsToldOfEachTransfer)
{
    sim::PluggedCamera& camera = plug();
    Notes first;
    Notes second;
    camera.add_observer(first);
    camera.add_observer(second);
    {
        const auto file = open(camera);
        EXPECT_EQ(control(*file, unit_request(sim::kGetLen, 6, sim::kReg, 2)), 0);
        camera.usb()->observers().remove(second);
        EXPECT_EQ(control(*file, unit_request(sim::kGetLen, 6, 0x7E, 2)), 0);
        EXPECT_EQ(submit(*file, USBDEVFS_URB_TYPE_BULK, sim::kInterruptEndpoint, 64, 2), 0);
        camera.set_fault(
            [](const sim::Setup&, uint64_t) { return sim::Fault::submit_error(ENOMEM); });
        EXPECT_EQ(control(*file, unit_request(sim::kGetLen, 6, sim::kReg, 2)), -ENOMEM);
    }
    camera.usb()->observers().remove(first);
    const std::string begin =
        "plugged 1:2; S1 control room 2 data 0 status 0; "
        "C1 control room 2 data 2 status 0; ";
    EXPECT_EQ(second.text, begin);
    EXPECT_EQ(first.text, begin +
                              "S2 control room 2 data 0 status 0; "
                              "C2 control room 2 data 0 status -32; "
                              "S3 interrupt room 64 data 0 status 0; "
                              "S4 control room 2 data 0 status 0; "
                              "E4 control room 2 data 0 status -12; "
                              "C3 interrupt room 64 data 0 status -2; ");
}

TEST_F(WatchTest, ObserversSeeThePlugGoAndComeBack)
{
    sim::PluggedCamera& camera = plug();
    Notes notes;
    bed_.unplug(camera);
    camera.add_observer(notes);
    bed_.replug(camera);
    bed_.unplug(camera, sim::Announce::kNo);
    bed_.unplug(camera); // only announces what has happened
    bed_.replug(camera);
    bed_.replug(camera); // a power cycle
    {
        const auto file = open(camera);
        camera.controller()->set_reg(0x0026, 0x10);
        EXPECT_EQ(control(*file, unit_request(sim::kGetLen, 6, sim::kReg, 2)), 0);
        bed_.settle();
    }
    EXPECT_EQ(notes.text,
              "plugged 1:3; unplugged silently; plugged 1:4; unplugged; plugged 1:5; "
              "S1 control room 2 data 0 status 0; C1 control room 2 data 2 status 0; "
              "restarts; plugged 1:6; ");
    camera.usb()->observers().remove(notes);
}

TEST_F(WatchTest, TransfersBeyondTheKernelsMemoryAreRefused)
{
    constexpr uint32_t kMost = 1U << 20;
    constexpr auto kType = USBDEVFS_URB_TYPE_INTERRUPT;
    bed_.set_usbfs_memory(1);
    auto file = open(plug());
    const auto other = open(*cameras_.front());
    EXPECT_EQ(submit(*file, kType, sim::kInterruptEndpoint, kMost - 64, 1), 0);
    EXPECT_EQ(submit(*file, kType, sim::kInterruptEndpoint, 65, 2), -ENOMEM);
    EXPECT_EQ(submit(*file, kType, sim::kInterruptEndpoint, 64, 2), 0);
    EXPECT_EQ(control(*other, unit_request(sim::kGetLen, 6, sim::kReg, 2)), -ENOMEM)
        << "all openers share it";
    file.reset();
    EXPECT_EQ(control(*other, unit_request(sim::kGetLen, 6, sim::kReg, 2)), 0);
}

TEST_F(WatchTest, MistakenRequestsAreAnswered)
{
    plug();
    int acts = 0;
    sim::StateService service(bed_, cameras_,
                              [&](const std::string&, const std::string&) { ++acts; });
    const struct {
        const char* request;
        const char* reply; ///< a part of it
    } cases[] = {
        {"", "no JSON"},
        {"state", "no JSON"},
        {"{\"command\": \"state\"", "no JSON"},
        {"\xFF\xFE", "no JSON"},
        {"[]", "is a JSON object"},
        {"{}", "no command ''"},
        {"{\"command\": 5}", "'command' is a text"},
        {"{\"command\": \"fly\"}", "no command 'fly'"},
        {"{\"command\": \"\xFF\"}", "\"ok\":false"},
        {"[[[[[[[[[[[[[[[[[[[[]]]]]]]]]]]]]]]]]]]]", "no JSON"},
        {"{\"command\": \"state\", \"camera\": \"S2\"}", "there are S1"},
        {"{\"command\": \"state\", \"registers\": [1]}", "first and the last"},
        {"{\"command\": \"state\", \"registers\": [2, 1]}", "before the last"},
        {"{\"command\": \"state\", \"registers\": [0, 65536]}", "0 to 65535"},
        {"{\"command\": \"state\", \"registers\": [-1, 2]}", "0 to 65535"},
        {"{\"command\": \"touch\"}", "'value' is missing"},
        {"{\"command\": \"touch\", \"value\": 256}", "0 to 255"},
        {"{\"command\": \"touch\", \"value\": 1e99}", "0 to 255"},
        {"{\"command\": \"unplug\", \"silent\": 1}", "true or false"},
        {"{\"command\": \"replug\"}", "plugged in already"},
        {"{\"command\": \"fault\"}", "no table [[fault]]"},
        {"{\"command\": \"fault\", \"faults\": \"[[fault\"}", "no TOML"},
        {"{\"command\": \"fault\", \"faults\": [1]}", "'faults' is a text"},
        {"{\"command\": \"fault\", \"faults\": \"fault = [{when = {camera = 2}, do = 'stall'}]\"}",
         "not plugged in"},
    };
    for (const auto& [request, reply] : cases) {
        const std::string answer = service.answer(request);
        EXPECT_NE(answer.find(reply), std::string::npos) << request << " -> " << answer;
        EXPECT_EQ(answer.find("{\"ok\":false"), 0U) << answer;
    }
    EXPECT_TRUE(cameras_.front()->is_plugged());
    EXPECT_EQ(service.answer("{\"command\": \"touch\", \"value\": 3}"), "{\"ok\":true}");
    EXPECT_EQ(cameras_.front()->controller()->touch(), 3);
}

class Client {
public:
    explicit Client(const std::string& path) : socket_(files::connect_to(path)) {}

    bool is_connected() const { return bool{socket_}; }
    bool send_text(const std::string& text) const
    {
        return send(socket_.get(), text.data(), text.size(), MSG_NOSIGNAL) ==
               static_cast<ssize_t>(text.size());
    }
    /// To the end of the line or of the connection.
    std::string receive_line() const
    {
        std::string line;
        char character = 0;
        while (recv(socket_.get(), &character, 1, 0) == 1) {
            line += character;
            if (character == '\n')
                break;
        }
        return line;
    }

private:
    files::Descriptor socket_;
};

TEST(LineServer, AnswersLinesHoweverTheyArrive)
{
    const TemporaryFile place;
    const sim::LineServer server(place.path(),
                                 [](const std::string& line) { return "<" + line + ">"; });
    struct stat entry {};
    ASSERT_EQ(stat(place.path().c_str(), &entry), 0);
    EXPECT_EQ(entry.st_mode & 0777, 0600U);

    const Client client(place.path());
    EXPECT_TRUE(client.send_text("one\ntwo\n\nth"));
    EXPECT_EQ(client.receive_line(), "<one>\n");
    EXPECT_EQ(client.receive_line(), "<two>\n");
    EXPECT_EQ(client.receive_line(), "<>\n");
    EXPECT_TRUE(client.send_text("ree\n"));
    EXPECT_EQ(client.receive_line(), "<three>\n");
}

TEST(LineServer, EndsALineThatNeverEnds)
{
    const TemporaryFile place;
    const sim::LineServer server(place.path(), [](const std::string& line) { return line; });
    const Client client(place.path());
    EXPECT_TRUE(client.send_text(std::string(sim::LineServer::kLongestLine + 1, 'x')));
    EXPECT_NE(client.receive_line().find("too long"), std::string::npos);
    EXPECT_EQ(client.receive_line(), ""); // closed
}

TEST(LineServer, WhoDoesNotReadHoldsNobodyUp)
{
    const TemporaryFile place;
    const sim::LineServer server(place.path(),
                                 [](const std::string&) { return std::string(1 << 20, 'a'); });
    std::vector<std::unique_ptr<Client>> lazy;
    for (size_t i = 0; i + 1 < sim::LineServer::kMostClients; ++i) {
        lazy.push_back(std::make_unique<Client>(place.path()));
        EXPECT_TRUE(lazy.back()->send_text("a\nb\nc\n"));
    }
    const Client client(place.path());
    EXPECT_TRUE(client.send_text("a\n"));
    EXPECT_EQ(client.receive_line().size(), (1U << 20) + 1);
}

TEST(LineServer, TakesOverFromADeadOneOnly)
{
    const TemporaryFile place;
    const auto echo = [](const std::string& line) { return line; };
    EXPECT_TRUE(files::listen_at(place.path())); // gone again, but its name stays
    {
        const sim::LineServer server(place.path(), echo);
        EXPECT_THROW(sim::LineServer(place.path(), echo), std::runtime_error);
        EXPECT_TRUE(Client(place.path()).is_connected());
    }
    EXPECT_FALSE(std::filesystem::exists(place.path()));
    std::ofstream(place.path()) << "precious";
    EXPECT_THROW(sim::LineServer(place.path(), echo), std::runtime_error);
    EXPECT_EQ(place.contents(), "precious");
    EXPECT_THROW(sim::LineServer(std::string(200, 'x'), echo), std::runtime_error);
}

} // namespace
