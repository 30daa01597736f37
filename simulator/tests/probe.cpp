// SPDX-License-Identifier: Apache-2.0
// A small libusb program for run_test.sh: it knows nothing of the simulation.
#include <fcntl.h>
#include <libusb.h>
#include <linux/usbdevice_fs.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr uint16_t kVendorUnit = 0x0600;
constexpr uint16_t kRegisters = 0x0600;
constexpr uint16_t kExternalRom = 0x0300;
constexpr uint16_t kWriteProtect = 0x0E00;

libusb_device* first_camera(libusb_device** list)
{
    for (; *list != nullptr; ++list) {
        libusb_device_descriptor descriptor{};
        libusb_get_device_descriptor(*list, &descriptor);
        if (descriptor.idVendor == 0x1162)
            return *list;
    }
    return nullptr;
}

libusb_device_handle* open_first()
{
    libusb_device** list = nullptr;
    libusb_get_device_list(nullptr, &list);
    libusb_device* camera = first_camera(list);
    libusb_device_handle* handle = nullptr;
    if (camera == nullptr || libusb_open(camera, &handle) != 0) {
        std::puts("no camera");
        std::exit(20);
    }
    libusb_free_device_list(list, 1);
    return handle;
}

unsigned address_of(libusb_device_handle* handle)
{
    return libusb_get_device_address(libusb_get_device(handle));
}

int set_control(libusb_device_handle* handle, uint16_t selector, std::vector<uint8_t> data)
{
    return libusb_control_transfer(handle, 0x21, 0x01, selector, kVendorUnit, data.data(),
                                   static_cast<uint16_t>(data.size()), 0);
}

int get_length(libusb_device_handle* handle)
{
    uint8_t length[2] = {};
    return libusb_control_transfer(handle, 0xA1, 0x85, kRegisters, kVendorUnit, length, 2, 0);
}

int report(const char* what, int result)
{
    std::printf("%s: %s\n", what, result < 0 ? libusb_error_name(result) : "ok");
    std::fflush(stdout);
    return result < 0 ? 1 : 0;
}

int claim(libusb_device_handle* handle)
{
    return report("claim", libusb_claim_interface(handle, 0));
}

// Keeps the camera until standard input ends.
int hold(libusb_device_handle* handle)
{
    claim(handle);
    while (std::getchar() != EOF) {
    }
    return 0;
}

// As programs do it that know nothing of the simulation.
void wait_for_hardware_ms(unsigned duration_ms)
{
    usleep(duration_ms * 1000);
}

// One byte into the EEPROM at 0x1234.
int write_rom(libusb_device_handle* handle)
{
    set_control(handle, kWriteProtect, {0});
    const int written =
        set_control(handle, kExternalRom, {0xA1, 0x12, 0x34, 0x42, 0, 0, 0, 0, 0, 0, 0});
    wait_for_hardware_ms(10);
    return report("write", written);
}

// Counts the events that a camera went and came back.
class HotplugEvents {
public:
    HotplugEvents()
    {
        const auto on_event = [](libusb_context*, libusb_device*, libusb_hotplug_event event,
                                 void* data) {
            auto& seen = *static_cast<HotplugEvents*>(data);
            ++(event == LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT ? seen.left_ : seen.arrived_);
            return 0;
        };
        libusb_hotplug_register_callback(
            nullptr, LIBUSB_HOTPLUG_EVENT_DEVICE_ARRIVED | LIBUSB_HOTPLUG_EVENT_DEVICE_LEFT, 0,
            0x1162, LIBUSB_HOTPLUG_MATCH_ANY, LIBUSB_HOTPLUG_MATCH_ANY, on_event, this, nullptr);
    }

    /// Whether the camera has gone once and come back once, within so many seconds.
    bool came_back(int seconds)
    {
        for (int i = 0; i < seconds * 20 && arrived_ == 0; ++i) {
            timeval wait{0, 50000};
            libusb_handle_events_timeout(nullptr, &wait);
        }
        return left_ == 1 && arrived_ == 1;
    }

private:
    int left_ = 0;
    int arrived_ = 0;
};

// Asks for a chip reset and waits for the camera to come back.
int restart(libusb_device_handle* handle)
{
    HotplugEvents events;
    const unsigned before = address_of(handle);
    report("restart", set_control(handle, kRegisters, {0x81, 0, 0x26, 0x10, 0, 0, 0, 0, 0, 0, 0}));
    const bool came_back = events.came_back(60);
    libusb_device_handle* again = open_first();
    const bool moved = came_back && address_of(again) != before && get_length(again) == 2;
    libusb_close(again);
    std::puts(moved ? "moved" : "did not move");
    return moved ? 0 : 1;
}

// Waits for somebody else to restart the camera.
int watch(libusb_device_handle*)
{
    HotplugEvents events;
    report("watch", 0);
    return events.came_back(60) ? 0 : 1;
}

// A child must not touch its parent's camera, and may open it once the parent has let go.
int fork_workers(libusb_device_handle* handle)
{
    libusb_claim_interface(handle, 0);
    const pid_t child = fork();
    if (child == 0)
        _exit(get_length(handle) == LIBUSB_ERROR_NO_DEVICE ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    std::printf("child kept off: %d, parent still talks: %d\n", status == 0, get_length(handle));
    return status == 0 && get_length(handle) == 2 ? 0 : 1;
}

bool has_completion(int node)
{
    pollfd ready{node, POLLOUT, 0};
    return poll(&ready, 1, 0) == 1;
}

// Whether the node's next completion, if it has one, is this one; nullptr: it has none.
bool next_is(int node, const usbdevfs_urb* expected)
{
    void* reaped = nullptr;
    if (has_completion(node) != (expected != nullptr))
        return false;
    const int result = ioctl(node, USBDEVFS_REAPURBNDELAY, &reaped);
    return expected == nullptr ? result == -1 && errno == EAGAIN : reaped == expected;
}

// More transfers than completions are carried by replies: they finish in order, the descriptor
// tells of them, none can be cancelled any more, and a camera that goes takes none away.
int queue_transfers(libusb_device_handle* handle)
{
    char path[64];
    std::snprintf(path, sizeof path, "/dev/bus/usb/%03u/%03u",
                  libusb_get_bus_number(libusb_get_device(handle)), address_of(handle));
    const int node = open(path, O_RDWR | O_CLOEXEC);
    uint8_t status_request[] = {0x80, 0, 0, 0, 0, 0, 2, 0, 0, 0};
    usbdevfs_urb urbs[100] = {};
    uint32_t capabilities = 0;
    bool good = ioctl(node, USBDEVFS_GET_CAPABILITIES, &capabilities) == 0;
    good = good && next_is(node, nullptr);
    for (const bool goes : {false, true}) {
        for (usbdevfs_urb& urb : urbs) {
            urb.type = USBDEVFS_URB_TYPE_CONTROL;
            urb.buffer = status_request;
            urb.buffer_length = sizeof status_request;
            good = good && ioctl(node, USBDEVFS_SUBMITURB, &urb) == 0;
        }
        for (usbdevfs_urb* urb : {&urbs[0], &urbs[99]})
            good = good && ioctl(node, USBDEVFS_DISCARDURB, urb) == -1 && errno == EINVAL;
        good = good && (!goes || restart(handle) == 0);
        for (const usbdevfs_urb& urb : urbs)
            good = good && next_is(node, &urb) && urb.status == 0 && urb.actual_length == 2;
        good = good && next_is(node, nullptr);
    }
    close(node);
    return good ? 0 : 1;
}

// A hundred seconds of waiting for hardware; the exit code tells whether they were slept.
int sleep_long(libusb_device_handle*)
{
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 100; ++i)
        wait_for_hardware_ms(1000);
    return std::chrono::steady_clock::now() - start < std::chrono::seconds(10) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    const struct {
        const char* name;
        int (*run)(libusb_device_handle*);
    } commands[] = {
        {"claim", claim},         {"hold", hold},
        {"write-rom", write_rom}, {"restart", restart},
        {"fork", fork_workers},   {"sleep", sleep_long},
        {"watch", watch},         {"queue", queue_transfers},
    };
    libusb_init(nullptr);
    libusb_device_handle* handle = open_first();
    int code = 2;
    for (const auto& command : commands) {
        if (argc == 2 && std::strcmp(command.name, argv[1]) == 0)
            code = command.run(handle);
    }
    libusb_close(handle);
    libusb_exit(nullptr);
    return code;
}
