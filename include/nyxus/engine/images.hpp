// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Firmware and MFi images. Nothing here talks to a camera. Loading blocks for the file system;
 * only plain files are read. Thread-safe, but for two threads on one image.
 */
#ifndef NYXUS_ENGINE_IMAGES_HPP
#define NYXUS_ENGINE_IMAGES_HPP

#include <nyxus/image.h>
#include <nyxus/engine/camera.hpp>

#include <vector>

namespace nyxus::engine {

/// Any image of up to `capacity` bytes without the 0xFF bytes at its end; at least one byte is
/// left. kFile; kWrongImage when it is empty or too large.
NYXUS_ENGINE_API Result<std::vector<uint8_t>> load_image(const std::string& path,
                                                         uint32_t capacity);

/// Firmware for the external ROM, without the 0xFF bytes at its end: 66 to 32,768 bytes.
class Firmware {
public:
    static constexpr uint32_t kHeaderBytes = 0x40;

    /// Loads an image. kFile, kWrongImage.
    NYXUS_ENGINE_API static Result<Firmware> load(const std::string& path);
    /// Loads the contents of a whole ROM, such as a backup: of its first 64 KiB, as far as they go,
    /// with what else stands there.
    NYXUS_ENGINE_API static Result<Firmware> load_rom(const std::string& path);
    /// Takes bytes; `name` stands for them in messages.
    NYXUS_ENGINE_API static Result<Firmware> from(std::vector<uint8_t> bytes,
                                                  const std::string& name = "the image");

    Bytes bytes() const { return bytes_; }
    /// The two characters with which the internal firmware version of its chip begins.
    std::string signature() const
    {
        return {bytes_.begin() + kHeaderBytes, bytes_.begin() + kHeaderBytes + 2};
    }
    /// Bytes of the ROM that it is made for; chips of the LARCH family keep that elsewhere.
    NYXUS_ENGINE_API uint32_t rom_size(bool larch) const;

private:
    explicit Firmware(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

    std::vector<uint8_t> bytes_;
};

/// Accessory information, which lies in the ROM at NYXUS_MFI_ROM_ADDR: 1 to 4,096 bytes. The 0xFF
/// bytes at its end belong to it.
class Mfi {
public:
    NYXUS_ENGINE_API static Result<Mfi> load(const std::string& path);
    NYXUS_ENGINE_API static Result<Mfi> from(std::vector<uint8_t> bytes,
                                             const std::string& name = "the MFi image");

    Bytes bytes() const { return bytes_; }
    /// Puts a serial number into the USB descriptor and the record list; from then on the image is
    /// meant for one camera. kWrongImage, and nothing is changed, when it does not fit: the texts
    /// have a fixed length.
    NYXUS_ENGINE_API Status set_serial(const std::string& serial);
    bool is_for_one_camera() const { return !serial_.empty(); }
    /// The one that was put into it, "" if none was.
    const std::string& serial() const { return serial_; }

private:
    explicit Mfi(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}

    std::vector<uint8_t> bytes_;
    std::string serial_;
};

/// What goes into a ROM.
struct Images {
    Firmware firmware;
    std::optional<Mfi> mfi = {};
};

/// kWrongImage for images that are not for this camera. Nothing blocks.
NYXUS_ENGINE_API Status check_images(const Camera& camera, const Images& images);

} // namespace nyxus::engine

#endif
