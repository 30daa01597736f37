// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A camera as the engine needs it: opened also with a blank ROM, restarted, and waited for.
 */
#ifndef NYXUS_ENGINE_CAMERA_HPP
#define NYXUS_ENGINE_CAMERA_HPP

#include <nyxus/cpp/camera.hpp>
#include <nyxus/engine/events.hpp>

namespace nyxus::engine {

/// Whether a camera's answers repeat the address that was asked for: learnt from its first ones,
/// and if they all do, demanded of the others.
class AddressEcho {
public:
    /// Whether an answer that does or does not may be used.
    bool accepts(bool repeats)
    {
        if (seen_ == kToLearn)
            return repeats || !repeats_;
        ++seen_;
        repeats_ = repeats_ && repeats;
        return true;
    }

private:
    static constexpr unsigned kToLearn = 4;
    unsigned seen_ = 0;
    bool repeats_ = true;
};

/// What a camera is opened for.
enum class Use {
    kAnything,  ///< streams, too
    kTransfers, ///< no streams: no other thread takes part in a transfer, and reads can be queued
};

/// An open, probed camera. It is closed when the object dies. Move only; one thread at a time per
/// camera.
class Camera : public nyxus::Camera {
public:
    /**
     * Opens and probes; a camera whose ROM holds no firmware is probed with a guess at its flash.
     * kPermissionDenied, kBusy, kCameraGone; kNotSupported for what is no camera of ours.
     *
     * Blocks for about 30 transfers, for a ROM without firmware up to seconds. Thread-safe.
     */
    NYXUS_ENGINE_API static Result<Camera> open(const CameraInfo& info, Use use = Use::kAnything);

    ~Camera() { close(); } // before its controls
    Camera(Camera&&) noexcept = default;
    NYXUS_ENGINE_API Camera& operator=(Camera&& other) noexcept;

    /// Closes it before the object dies; only destruction and assignment may follow.
    NYXUS_ENGINE_API void close();

    /// Takes a ROM that nobody has identified for an EEPROM of this size; kUnknownRom when the size
    /// is 0. Without an effect on any other ROM. Blocks for a transfer.
    NYXUS_ENGINE_API Status require_rom(uint32_t eeprom_bytes);

    /// Name of the chip, printable.
    NYXUS_ENGINE_API std::string chip() const;
    /// "camera 1:5 (NY6410, serial ABC)".
    NYXUS_ENGINE_API std::string name() const;
    /// "runs external firmware 0x0205", or why it does not.
    NYXUS_ENGINE_API std::string firmware_sentence() const;
    /// Version of the firmware that it runs from its ROM, "0x0205", or "mask ROM".
    NYXUS_ENGINE_API std::string version() const;
    /// Versions of the firmware that it runs from its ROM, to tell two of them apart; "" when it
    /// runs the one in its chip.
    NYXUS_ENGINE_API std::string running() const;
    /// Bytes that one exchange with the external ROM moves: 8 or 32.
    unsigned exchange_bytes() const { return device()->xFeatureXU != 0 ? 32 : 8; }

    Use use() const { return use_; }
    /// So many exchanges of a read are under way at a time; 1: one after the other, which it
    /// becomes when reading so has gone wrong. Without an effect on cameras that were opened for
    /// kAnything.
    unsigned queue_depth = kQueueDepth;
    bool narrow_queue_proven = false; ///< it has read by 8 or 32 bytes the same as one at a time
    bool wide_queue_proven = false;   ///< the same by 512
    /// Reading by 512 bytes has gone wrong; it is not tried again.
    bool wide_path_fails = false;
    AddressEcho narrow_echo; ///< of answers of 8 and 32 bytes
    AddressEcho wide_echo;   ///< of those of 512

    static constexpr unsigned kQueueDepth = 16;

private:
    Camera(nyxus::Camera camera, Use use, std::shared_ptr<void> loan);

    Use use_;
    std::vector<uvc_xu_ctrl> controls_; ///< this camera's own: the library's are everyone's
    std::shared_ptr<void> loan_; ///< of the kernel's driver; empty: closed, or another object's
};

/// usb_failure() of a camera that cannot be opened or claimed; names who has it where this user may
/// see that. Blocks for the kernel.
NYXUS_ENGINE_API Status usb_failure(const std::string& doing, int libusb_code,
                                    const CameraInfo& info);

/**
 * Waits until the camera has left its port and is back, and can be opened. It goes by its port:
 * after a restart its serial number may be a new one. kNotBack; kTimedOut when it never left;
 * kStopped. Polls each 50 ms. Thread-safe.
 */
NYXUS_ENGINE_API Result<CameraInfo> wait_for_return(const CameraInfo& before, unsigned wait_s,
                                                    const Caller& caller);

/// The cameras with this name ("" for any), as soon as there is one that can be opened, or what
/// there is of them after this time. The phase is kWaiting. Thread-safe.
NYXUS_ENGINE_API Result<std::vector<CameraInfo>> wait_for_cameras(const std::string& name,
                                                                  unsigned wait_s,
                                                                  const Caller& caller);

} // namespace nyxus::engine

#endif
