// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Simulated cameras for test suites, in C++17.
 *
 *     nyxus::simulator::Bus bus;
 *     nyxus::simulator::Camera camera = bus.plug("rowan-spi,serial=A1");
 *     ...                                             // the program under test finds it by libusb
 *     camera.unplug();
 *
 * A process that links the target "nyxus::simulator" sees a simulated bus instead of the machine's
 * cameras, and so do the programs that it starts. For that it starts anew when it begins, before
 * main(), by `nyxus-sim run --test-bus`: the libraries below libusb have to be there first. Nothing
 * of it needs root. `nyxus-sim` is looked for where the environment variable NYXUS_SIM says, beside
 * the program, on the PATH, and where it was installed with this library. Processes do not see each
 * other's cameras.
 *
 * Time is virtual unless the environment variable NYXUS_SIM_SPEED is `real`: transfers take their
 * time on the cameras' clock, usleep() advances it, and nobody waits.
 *
 * Whatever fails raises Error, whose text says why. All functions are thread-safe and block for as
 * long as a small request to another process takes; a Camera and what it returns are values, and
 * nothing is owned by them. The interface may change until version 1.0 of it; the library is
 * static, so that a program which is built keeps what it was built with.
 */
#ifndef NYXUS_SIMULATOR_HPP
#define NYXUS_SIMULATOR_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace nyxus::simulator {

/// There is no simulated bus, or it refuses: the text says what and why.
class Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A control transfer that a camera was asked for.
struct Transfer {
    std::uint8_t request_type = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;
    std::vector<std::uint8_t> data; ///< the bytes that moved
    int status = 0;                 ///< 0, or a negative errno of the kernel: -EPIPE for a stall

    std::uint8_t selector() const { return static_cast<std::uint8_t>(value >> 8); }
    std::uint8_t unit() const { return static_cast<std::uint8_t>(index >> 8); }
};

/// A camera as it is at this moment.
struct State {
    std::string model;
    bool is_plugged = false;
    unsigned bus = 0;
    unsigned port = 0;
    unsigned address = 0; ///< another one after each restart
    bool runs_external_firmware = false;
    std::uint16_t firmware_version = 0;
    bool is_streaming = false;
    std::uint64_t frames_sent = 0;
    std::string json; ///< all that `nyxus-sim state` shows
};

/// A fault that was planned, and how often it has happened.
struct Fault {
    std::string name; ///< with its place in the text
    std::uint64_t strikes = 0;
};

/// A camera that a Bus has plugged in. A copy is the same camera.
class Camera {
public:
    /// By which it is called here; its firmware may show another one on USB.
    const std::string& serial() const { return serial_; }

    /// Takes it off the bus. Raises Error when it is not there.
    void unplug() const;
    /// The same without a hot-plug event: only who talks to it notices.
    void unplug_silently() const;
    /// Plugs it in again, and takes it off before if it is there: a power cycle, at another
    /// address.
    void replug() const;
    /// Takes it away for good.
    void remove() const;

    State state() const;

    /// All that its ROM holds.
    std::vector<std::uint8_t> rom() const;
    /// Changes bytes of the ROM, past firmware and write protection. The firmware reads them when
    /// it starts: replug() to see them in force.
    void set_rom(const std::vector<std::uint8_t>& bytes, std::size_t address = 0) const;

    /// Control transfers since it was plugged in or since forget_transfers(), oldest first; at most
    /// the last 262,144.
    std::vector<Transfer> transfers() const;
    void forget_transfers() const;

    /// What goes wrong with it from now on, instead of what was planned for it before: tables
    /// [[fault]] as in nyxus-faults(5), or "" for nothing. Counters of all faults begin anew.
    /// Raises Error with line and column of each mistake.
    void set_faults(const std::string& toml) const;

    /// What it sees moves: the motion alarm is raised until the host clears it.
    void raise_motion_alarm() const;
    /// A finger on the detector of the fingerprint board; 0 takes it away.
    void touch(std::uint8_t state) const;
    /// Writes a register of the controller.
    void set_register(std::uint16_t address, std::uint8_t value) const;

private:
    friend class Bus;
    explicit Camera(std::string serial) : serial_(std::move(serial)) {}
    void act(const char* command) const;

    std::string serial_;
};

/// The simulated bus of this process, from now on without cameras; when it ends, all that was
/// plugged into it goes, and so do faults. One at a time.
class Bus {
public:
    /// Raises Error when the process does not run on a simulated bus, and says why.
    Bus();
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    /// Plugs a camera in. `description` is written as for `nyxus-sim run --camera`:
    /// MODEL[,serial=TEXT][,bus=N][,rom=FILE][,blank]; MODEL is one of `nyxus-sim models` or a
    /// file. Without a serial number the first camera is SIM1. At most 15 cameras at a time on one
    /// bus.
    Camera plug(const std::string& description = "rowan-spi") const;

    /// What goes wrong with all cameras that are on the bus now; see Camera::set_faults().
    void set_faults(const std::string& toml) const;
    /// Those of all cameras, in no particular order.
    std::vector<Fault> faults() const;

    /// Waits until restarts and unplugs that are under way have happened.
    void settle() const;

    /// A firmware image that boots on this model, always the same for one version.
    std::vector<std::uint8_t> image(const std::string& model, std::uint16_t version) const;

    /// False where NYXUS_SIM_SPEED is `real`; then the next two raise Error.
    bool has_virtual_time() const;
    /// The cameras' clock, since the process began.
    std::chrono::microseconds now() const;
    /// Lets time pass on it at once: erasing ends, faults that wait for their time strike.
    void advance(std::chrono::microseconds time) const;
};

} // namespace nyxus::simulator

#endif
