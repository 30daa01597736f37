// SPDX-License-Identifier: Apache-2.0
#include "api/studio.h"
#include "files/read.h"
#include "text/numbers.h"

#include <spawn.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

namespace {

struct Options {
    std::string address = "127.0.0.1";
    std::string token;
    uint16_t port = 0;
    bool opens_browser = true;
    studio::Settings settings;
};

constexpr char kUsage[] =
    "usage: nyxus-studio [--port N] [--no-browser] [--read-only] [--page FOLDER]\n"
    "                    [--listen ADDRESS --token-file FILE]\n";

std::string token_in(const std::string& file)
{
    constexpr size_t kShortest = 16;
    std::string token = files::read_text(file, 4096);
    while (!token.empty() && (token.back() == '\n' || token.back() == ' '))
        token.pop_back();
    if (token.size() < kShortest)
        throw std::runtime_error("the token in '" + file + "' has less than 16 characters");
    return token;
}

Options parse(std::span<char*> words)
{
    Options options;
    bool listens = false;
    for (size_t at = 1; at < words.size(); ++at) {
        const std::string word = words[at];
        const auto value = [&] {
            if (++at >= words.size())
                throw std::runtime_error(word + " needs a value");
            return std::string(words[at]);
        };
        if (word == "--port") {
            const auto number = text::parse_number(value(), 65535);
            if (!number)
                throw std::runtime_error("--port is a number from 0 to 65535");
            options.port = static_cast<uint16_t>(*number);
        } else if (word == "--no-browser") {
            options.opens_browser = false;
        } else if (word == "--read-only") {
            options.settings.read_only = true;
        } else if (word == "--page") {
            options.settings.page_folder = value();
        } else if (word == "--listen") {
            options.address = value();
            listens = true;
        } else if (word == "--token-file") {
            options.token = token_in(value());
        } else {
            throw std::runtime_error("unknown: '" + word + "'\n" + kUsage);
        }
    }
    if (listens && options.token.empty())
        throw std::runtime_error("--listen needs --token-file");
    return options;
}

/// Without the simulated bus, which would take the browser's own files for cameras.
void open_browser(const std::string& url)
{
    std::vector<char*> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, "LD_PRELOAD=", 11) != 0 && std::strncmp(*entry, "NYXUS_", 6) != 0)
            environment.push_back(*entry);
    }
    environment.push_back(nullptr);
    std::string program = "xdg-open";
    std::string address = url;
    char* words[] = {program.data(), address.data(), nullptr};
    pid_t pid = 0;
    if (posix_spawnp(&pid, words[0], nullptr, nullptr, words, environment.data()) != 0)
        std::fprintf(stderr, "nyxus-studio: no browser could be opened\n");
}

} // namespace

int main(int argc, char** argv)
{
    try {
        const Options options = parse({argv, static_cast<size_t>(argc)});
        studio::Server server(options.address, options.port);
        studio::Access access(server.port(), options.token, options.settings.read_only);
        const std::string url = "http://" + options.address + ":" + std::to_string(server.port()) +
                                (options.token.empty() ? access.opening() : "/");
        std::printf("%s\n", url.c_str());
        std::fflush(stdout);
        studio::Studio application(server, std::move(access), options.settings);
        if (options.opens_browser)
            open_browser(url);
        server.run(application, [&] { application.end(); });
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "nyxus-studio: %s\n", failure.what());
        return 2;
    }
}
