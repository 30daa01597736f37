// SPDX-License-Identifier: Apache-2.0
#include "bench.h"

#include <gtest/gtest.h>
#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace test {

const char* const kNyxus = NYXUS_PROGRAM;
const char* const kSimulator = SIMULATOR_PROGRAM;
const std::map<std::string, std::string> kScriptEnvironment = {
    {"NYXUS", kNyxus}, {"SIM", kSimulator}, {"WAIT_FOR", WAIT_FOR_TEXT}};

Bench::Bench()
{
    std::string pattern = (std::filesystem::temp_directory_path() / "nyxus tool XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("mkdtemp");
    folder_ = pattern;
    setenv("XDG_STATE_HOME", state_folder().c_str(), 1);
    setenv("XDG_CONFIG_HOME", path("config").c_str(), 1); // no keys of whoever runs the tests
}

Bench::~Bench()
{
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
}

static void make(Words command)
{
    command.insert(command.begin(), {kSimulator, "image"});
    const Outcome outcome = run_program(command);
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

std::string Bench::image(const std::string& model, const std::string& version,
                         const Words& more) const
{
    std::string file = path(model + " " + version + ".bin");
    Words command = {"--model", model, "--version", version};
    command.insert(command.end(), more.begin(), more.end());
    command.push_back(file);
    make(command);
    return file;
}

std::string Bench::mfi_image(const std::string& serial) const
{
    std::string file = path("mfi.bin");
    make({"--mfi", "--serial", serial, file});
    return file;
}

Outcome Bench::nyxus(const Words& cameras, const Words& arguments, const RunOptions& options) const
{
    Words command = {kSimulator, "run", "--speed", "fast"};
    for (const std::string& camera : cameras)
        command.insert(command.end(), {"--camera", camera});
    command.insert(command.end(), fault_options_.begin(), fault_options_.end());
    command.insert(command.end(), {"--", kNyxus});
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_program(command, options);
}

Outcome Bench::nyxus_with_rom(const std::string& model, const Words& arguments,
                              const RunOptions& options) const
{
    return nyxus({model + ",rom=" + rom_file()}, arguments, options);
}

void Bench::set_faults(const std::string& toml)
{
    fault_options_.clear();
    if (!toml.empty()) {
        write_file(path("faults.toml"), {toml.begin(), toml.end()});
        fault_options_ = {"--faults", path("faults.toml")};
    }
}

Outcome Bench::shell(const std::string& camera, const std::string& script,
                     std::map<std::string, std::string> environment) const
{
    RunOptions options;
    options.environment = std::move(environment);
    options.environment.insert(begin(kScriptEnvironment), end(kScriptEnvironment));
    Words command = {kSimulator, "run", "--camera", camera};
    command.insert(command.end(), fault_options_.begin(), fault_options_.end());
    command.insert(command.end(), {"--", "bash", "-c", script});
    return run_program(command, options);
}

std::vector<std::filesystem::path> Bench::backups() const
{
    std::error_code none;
    const std::filesystem::recursive_directory_iterator files(state_folder() + "/nyxus/units",
                                                              none);
    std::vector<std::filesystem::path> paths(begin(files), end(files));
    std::erase_if(paths, [](const auto& path) { return path.extension() != ".rom"; });
    std::ranges::sort(paths);
    return paths;
}

Bytes read_file(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void write_file(const std::string& path, const Bytes& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

} // namespace test
