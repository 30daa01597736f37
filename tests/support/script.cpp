// SPDX-License-Identifier: Apache-2.0
#include "script.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr uint8_t kSetCur = 0x01;
constexpr uint8_t kGetCur = 0x81;
constexpr uint8_t kRom = 0x03;
constexpr uint8_t kReg = 0x06;
constexpr uint8_t kWriteProtect = 0x0E;
constexpr uint8_t kSpiStatus = 0x12;

uint8_t high(uint16_t value)
{
    return static_cast<uint8_t>(value >> 8);
}

uint8_t low(uint16_t value)
{
    return static_cast<uint8_t>(value);
}

bool is_vendor_request(const sim::Setup& setup)
{
    return setup.type() == 1 && setup.unit() == 6;
}

std::string hex(uint8_t value)
{
    char text[4];
    std::snprintf(text, sizeof text, "%02X", value);
    return text;
}

} // namespace

std::string describe(const sim::Transfer& transfer)
{
    const sim::Setup setup = sim::Setup::from_wire(transfer.setup);
    const char* names[] = {"CUR", "MIN", "MAX", "RES", "LEN", "INFO", "DEF"};
    std::string text = setup.request == kSetCur ? "SET" : "GET";
    if (setup.request > kGetCur && setup.request <= 0x87)
        text = names[setup.request - kGetCur];
    text += " " + hex(setup.selector()) + ":";
    if (transfer.status == -32)
        return text + " stall";
    if (transfer.status != 0)
        return text + " error";
    size_t length = transfer.data.size();
    while (length > 0 && transfer.data[length - 1] == 0)
        --length;
    for (size_t i = 0; i < length; ++i)
        text += " " + hex(transfer.data[i]);
    return text;
}

std::vector<std::string> describe(const std::vector<sim::Transfer>& transfers)
{
    std::vector<std::string> lines;
    for (const sim::Transfer& transfer : transfers) {
        if (is_vendor_request(sim::Setup::from_wire(transfer.setup)))
            lines.push_back(describe(transfer));
    }
    return lines;
}

Script& Script::set(uint8_t selector, Bytes bytes)
{
    steps_.push_back({kSetCur, selector, std::move(bytes)});
    return *this;
}

Script& Script::get(uint8_t selector)
{
    steps_.push_back({kGetCur, selector, {}});
    return *this;
}

Script& Script::read(uint8_t selector, uint8_t flags, uint16_t address)
{
    return set(selector, {flags, high(address), low(address)}).get(selector);
}

Script& Script::reg_read(uint16_t address, uint8_t length)
{
    return read(kReg, length, address);
}

Script& Script::reg_write(uint16_t address, Bytes bytes)
{
    Bytes wrapper = {static_cast<uint8_t>(0x80 | bytes.size()), high(address), low(address)};
    wrapper.insert(wrapper.end(), bytes.begin(), bytes.end());
    return set(kReg, std::move(wrapper));
}

Script& Script::poll(uint8_t selector, Bytes request, uint8_t mask, uint8_t value)
{
    steps_.push_back({kSetCur, selector, std::move(request), true, mask, value});
    return *this;
}

Script& Script::poll_status(uint8_t mask, uint8_t value)
{
    return poll(kSpiStatus, {0, 0, 0}, mask, value);
}

Script& Script::spi_command(Bytes bytes)
{
    const auto length = static_cast<uint8_t>(bytes.size());
    reg_write(0x0100, std::move(bytes));
    reg_write(0x0049, {0x14, length, 0x01});
    reg_write(0x0049, {0x35});
    poll(kReg, {1, 0x00, 0x49}, 0x01, 0x00);
    return reg_write(0x0049, {0x00});
}

Script& Script::rom_write(uint16_t address, const Bytes& bytes, bool wide, Pace pace)
{
    const size_t limit = wide ? 32 : 8;
    for (size_t offset = 0; offset < bytes.size(); offset += limit) {
        const size_t chunk = std::min(limit, bytes.size() - offset);
        if (pace == Pace::kReleaseAndBusReady)
            set(kWriteProtect, {0});
        if (pace != Pace::kNone)
            poll_status(0x01, 0x00);
        const auto at = static_cast<uint16_t>(address + offset);
        Bytes wrapper = {static_cast<uint8_t>((wide || pace == Pace::kNone ? 0x80 : 0xA0) | chunk),
                         high(at), low(at)};
        if (!wide)
            wrapper[0] |= 0xA0;
        wrapper.insert(wrapper.end(), bytes.begin() + static_cast<ptrdiff_t>(offset),
                       bytes.begin() + static_cast<ptrdiff_t>(offset + chunk));
        set(kRom, std::move(wrapper));
    }
    return *this;
}

Script& Script::gpio0(bool level, uint8_t select_before, uint8_t enable_before, uint8_t data_before)
{
    const auto data = static_cast<uint8_t>(level ? data_before | 0x01 : data_before & ~0x01);
    return reg_read(0x0029)
        .reg_write(0x0029, {static_cast<uint8_t>(select_before | 0x80)})
        .reg_read(0x0022)
        .reg_write(0x0022, {static_cast<uint8_t>(enable_before | 0x01)})
        .reg_read(0x0020)
        .reg_write(0x0020, {data});
}

size_t Script::transfers_at_least() const
{
    size_t count = 0;
    for (const Step& step : steps_)
        count += step.poll ? 2 : 1;
    return count;
}

std::string Script::match(const std::vector<sim::Transfer>& all) const
{
    std::vector<sim::Transfer> transfers;
    for (const sim::Transfer& transfer : all) {
        if (is_vendor_request(sim::Setup::from_wire(transfer.setup)))
            transfers.push_back(transfer);
    }
    extra_polls_ = 0;
    size_t at = 0;
    const auto differs = [&](const std::string& expected) {
        return "transfer " + std::to_string(at) + ": expected " + expected + ", got " +
               (at < transfers.size() ? describe(transfers[at]) : std::string("nothing"));
    };
    const auto fits = [&](uint8_t request, uint8_t selector, const Bytes& bytes) {
        if (at >= transfers.size())
            return false;
        const sim::Setup setup = sim::Setup::from_wire(transfers[at].setup);
        const Bytes& data = transfers[at].data;
        return setup.request == request && setup.selector() == selector &&
               data.size() >= bytes.size() && std::equal(bytes.begin(), bytes.end(), data.begin());
    };
    for (const Step& step : steps_) {
        const std::string expected =
            describe(sim::Transfer{
                sim::Setup{0x21, step.request, static_cast<uint16_t>(step.selector << 8), 0x0600, 0}
                    .to_wire(),
                step.bytes, 0}) +
            (step.poll ? " (poll)" : "");
        for (bool again = true; again; ++at) {
            if (!fits(step.request, step.selector, step.bytes))
                return differs(expected);
            again = false;
            if (!step.poll)
                continue;
            ++at;
            if (!fits(kGetCur, step.selector, {}) || transfers[at].data.size() < 4)
                return differs("the answer to " + expected);
            again = (transfers[at].data[3] & step.mask) != step.value;
            extra_polls_ += again ? 2 : 0;
        }
    }
    return at == transfers.size() ? "" : differs("no more");
}
