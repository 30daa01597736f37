// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Firmware and MFi images. Nothing here talks to a camera. Loading blocks for the file system;
 * only plain files are read. Thread-safe, but for two threads on one image.
 */
#ifndef NYXUS_ENGINE_IMAGES_HPP
#define NYXUS_ENGINE_IMAGES_HPP

#include <nyxus/image.h>
#include <nyxus/rom.h>
#include <nyxus/engine/camera.hpp>

#include <vector>

namespace nyxus::engine {

/// Any image of up to `capacity` bytes without the 0xFF bytes at its end; at least one byte is
/// left. kFile; kWrongImage when it is empty or too large.
NYXUS_ENGINE_API Result<std::vector<uint8_t>> load_image(const std::string& path,
                                                         uint32_t capacity);

/// What an image says of itself, where its kind does: a kind is known by how its header begins.
struct ImageKind {
    std::string name;         ///< "NXFW", the kind of the simulated cameras
    uint32_t bytes = 0;       ///< of the image; 0 where the header cannot be believed
    std::string version = {}; ///< as Camera::version() tells it; "" where it is not whole
    std::string problem = {}; ///< why it is truncated or damaged; "" when it is whole
};

/// Firmware for the external ROM, without the 0xFF bytes at its end: 66 to 32,768 bytes.
class Firmware {
public:
    static constexpr uint32_t kHeaderBytes = 0x40;

    /// Loads an image. kFile; kWrongImage, also for one that says of itself that it is truncated or
    /// damaged. The file is read once.
    NYXUS_ENGINE_API static Result<Firmware> load(const std::string& path);
    /// Loads the contents of a whole ROM, such as a backup: of its first 64 KiB, as far as they go,
    /// with what else stands there, whatever that says of itself.
    NYXUS_ENGINE_API static Result<Firmware> load_rom(const std::string& path);
    /// Take bytes as these do; `name` stands for them in messages.
    NYXUS_ENGINE_API static Result<Firmware> from(std::vector<uint8_t> bytes,
                                                  const std::string& name = "the image");
    NYXUS_ENGINE_API static Result<Firmware> from_rom(std::vector<uint8_t> bytes,
                                                      const std::string& name = "the ROM");
    /// The same, and the 0xFF bytes at the end are a part of what is written: nothing that the ROM
    /// holds there is kept.
    NYXUS_ENGINE_API static Result<Firmware> exactly(std::vector<uint8_t> bytes,
                                                     const std::string& name = "the ROM");

    Bytes bytes() const { return as_read().subspan(0, size_); }
    /// With the 0xFF bytes at the end; of the contents of a ROM the first 64 KiB.
    Bytes as_read() const { return bytes_; }
    /// SHA-256 of all bytes that were read, in 64 hexadecimal digits: that of the file.
    const std::string& digest() const { return digest_; }
    /// The two characters with which the internal firmware version of its chip begins.
    std::string signature() const
    {
        return {bytes_.begin() + kHeaderBytes, bytes_.begin() + kHeaderBytes + 2};
    }
    /// Bytes of the ROM that it is made for; chips of the LARCH family keep that elsewhere. 0 where
    /// it is too short to tell.
    NYXUS_ENGINE_API uint32_t rom_size(bool larch) const;
    /// What it says of itself; nothing where nobody knows its kind.
    NYXUS_ENGINE_API std::optional<ImageKind> kind() const;
    /// The version that a camera reports which runs it, where its kind tells: "0x0205".
    NYXUS_ENGINE_API std::optional<std::string> version() const;

private:
    /// Of bytes with a signature; those behind the first 64 KiB count for the digest only.
    explicit Firmware(std::vector<uint8_t> bytes);

    std::vector<uint8_t> bytes_;
    size_t size_ = 0; ///< without the erased rest
    std::string digest_;
};

/// Accessory information, which lies in the ROM at NYXUS_MFI_ROM_ADDR: 1 to 4,096 bytes. The 0xFF
/// bytes at its end belong to it.
class Mfi {
public:
    NYXUS_ENGINE_API static Result<Mfi> load(const std::string& path);
    NYXUS_ENGINE_API static Result<Mfi> from(std::vector<uint8_t> bytes,
                                             const std::string& name = "the MFi image");

    Bytes bytes() const { return bytes_; }
    /// SHA-256 of the bytes as they were read, without a serial number that was put into it.
    const std::string& digest() const { return digest_; }
    /// Puts a serial number into the USB descriptor and the record list; from then on the image is
    /// meant for one camera. kWrongImage, and nothing is changed, when it does not fit: the texts
    /// have a fixed length.
    NYXUS_ENGINE_API Status set_serial(const std::string& serial);
    bool is_for_one_camera() const { return !serial_.empty(); }
    /// The one that was put into it, "" if none was.
    const std::string& serial() const { return serial_; }

private:
    explicit Mfi(std::vector<uint8_t> bytes);

    std::vector<uint8_t> bytes_;
    std::string digest_;
    std::string serial_;
};

/// What goes into a ROM.
struct Images {
    Firmware firmware;
    std::optional<Mfi> mfi = {};
    std::string reports = {}; ///< the version that a camera then reports, where a manifest says so
    bool patched = false;     ///< what the ROM holds, with a change: nothing else of it gets lost

    /// What is said of it, or else what the firmware says of itself: "0x0205"; "": nobody knows.
    std::string version() const
    {
        return reports.empty() ? firmware.version().value_or("") : reports;
    }
};

/// kWrongImage for images that are not for this camera. Nothing blocks.
NYXUS_ENGINE_API Status check_images(const Camera& camera, const Images& images);

/// A part of an MFi image; addresses are those of the ROM.
struct MfiPart {
    std::string name; ///< "header", "serial-number descriptor", "record of type 3"
    uint32_t address = 0;
    uint32_t size = 0;
};

/// An MFi image, known by the serial-number descriptor to which its header leads.
struct MfiFacts {
    uint32_t bytes = 0;      ///< without the erased rest
    std::string serial = {}; ///< that of the descriptor; "" when that is no text
    std::vector<MfiPart> parts = {};
};

/// What a file tells without a camera. What nobody knows of it is empty.
struct ImageFacts {
    enum class Contents {
        kUnknown,
        kFirmware, ///< of a chip of the library's, or of a kind that describes itself
        kRom,      ///< the same with what else a ROM holds, such as a backup
        kMfi,
    };
    Contents contents = Contents::kUnknown;
    uint64_t bytes = 0;      ///< of the file
    std::string sha256 = {}; ///< of the file
    /// What an upgrade or a recovery would write: nothing of an MFi image, or where it is too
    /// short.
    std::optional<Firmware> firmware = {};
    std::optional<ImageKind> kind = {};
    std::vector<std::string> chips = {}; ///< whose signature it has, by name
    uint32_t rom_bytes = 0;       ///< that it names where chips but those of the LARCH family look
    uint32_t larch_rom_bytes = 0; ///< and where these do; 0 for the chips that it is not for
    uint32_t firmware_end = 0;    ///< where the firmware ends in the ROM
    std::optional<MfiFacts> mfi = {}; ///< that it holds, or is

    bool reaches_mfi() const { return firmware_end > NYXUS_MFI_ROM_ADDR; }
    bool reaches_reserved() const { return firmware_end > SPI_RESERVED_ADDR; }
};
/// For people and programs: "firmware".
NYXUS_ENGINE_API const char* to_text(ImageFacts::Contents contents);

/// Looks at a file of up to 16 MiB, whatever it holds; it is read once. kFile; kWrongImage for one
/// that is empty or too large.
NYXUS_ENGINE_API Result<ImageFacts> inspect_image(const std::string& path);
/// The same for what has been read before.
NYXUS_ENGINE_API ImageFacts inspect_contents(std::vector<uint8_t> bytes);

/// Why a camera could not use it: kWrongImage. Nothing blocks.
NYXUS_ENGINE_API Status check_image(const Camera& camera, const ImageFacts& facts);

} // namespace nyxus::engine

#endif
