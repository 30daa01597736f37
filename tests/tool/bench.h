// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "process.h"

#include <cstdint>
#include <filesystem>

namespace test {

using Words = std::vector<std::string>;

/// The camera models that every job has to work on.
inline const Words kModels = {"rowan-spi",       "cedar-spi",     "larch-spi",
                              "hawthorn-eeprom", "willow-eeprom", "fi2-spi"};
/// The most common one.
inline constexpr char kModel[] = "rowan-spi";

/// The programs.
extern const char* const kNyxus;
extern const char* const kSimulator;
/// The same for scripts: $NYXUS and $SIM. $WAIT_FOR TEXT FILE PID waits until the process has
/// written the text.
extern const std::map<std::string, std::string> kScriptEnvironment;

/// A workbench: a temporary folder, and simulated cameras to run the program against.
class Bench {
public:
    Bench();
    ~Bench();
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;

    /// A file in the folder.
    std::string path(const std::string& name) const { return (folder_ / name).string(); }
    /// A firmware image for a model.
    std::string image(const std::string& model, const std::string& version,
                      const Words& more = {}) const;
    /// An accessory image that carries a serial number.
    std::string mfi_image(const std::string& serial) const;

    /// nyxus ARGUMENTS with these cameras plugged in:
    /// "MODEL[,serial=..][,bus=N][,rom=FILE][,blank]".
    Outcome nyxus(const Words& cameras, const Words& arguments,
                  const RunOptions& options = {}) const;
    /// The same with a camera whose ROM is kept in a file between runs.
    Outcome nyxus_with_rom(const std::string& model, const Words& arguments,
                           const RunOptions& options = {}) const;
    /// A bash script with one camera as slow as a real one.
    Outcome shell(const std::string& camera, const std::string& script,
                  std::map<std::string, std::string> environment) const;
    /// What goes wrong with the cameras: a JSON list; empty: nothing.
    void set_faults(const std::string& toml);
    std::string rom_file() const { return path("rom"); }
    /// Where the program keeps backups.
    std::string state_folder() const { return path("state"); }
    std::vector<std::filesystem::path> backups() const;

private:
    std::filesystem::path folder_;
    Words fault_options_;
};

using Bytes = std::vector<uint8_t>;
Bytes read_file(const std::string& path);
void write_file(const std::string& path, const Bytes& bytes);

} // namespace test
