// SPDX-License-Identifier: Apache-2.0
#include <nyxus/access.h>
#include <nyxus/memory.h>
#include <nyxus/osd.h>
#include <nyxus/registers.h>

#include <cstring>

#include "trace/failure.h"
#include "unit.h"

namespace {

constexpr uint8_t kRead = 0x80; // added to the command that writes the same thing

// clang-format off
enum Command : uint8_t {
    kEnable   = 0x01,
    kReset    = 0x02,
    kDatetime = 0x04,
    kString   = 0x08,
    kWindow   = 0x10,
    kColor    = 0x20,
    kHeader   = 0x40,
};
// clang-format on

constexpr uint8_t kShowDatetime = 0x02;
constexpr uint8_t kTransparent = 0x10;
constexpr size_t kStringBytes = 16;

/// A command as it is sent. Its reply has the data from the first byte on, without a command byte.
struct Buffer {
    uint8_t bytes[18] = {};

    explicit Buffer(uint8_t command) { bytes[0] = command; }
    Buffer(uint8_t command, const void* data, size_t size) : Buffer(command)
    {
        std::memcpy(bytes + 1, data, size);
    }
};

int32_t send(NyDevice* pDevObj, const Buffer& buffer)
{
    return XuSetOsd(pDevObj, buffer.bytes);
}

/// Request and reply of a read command; `function` is the one that the failure belongs to.
int32_t exchange(const char* function, NyDevice* pDevObj, Buffer& buffer)
{
    nyxus_rv = XuSetOsd(pDevObj, buffer.bytes);
    if (nyxus_rv < 0)
        return nyxus::pass_on(function, "XuSetOsd(pDevObj, buf)", nyxus_rv);
    nyxus_rv = XuGetOsd(pDevObj, buffer.bytes);
    if (nyxus_rv < 0)
        return nyxus::pass_on(function, "XuGetOsd(pDevObj, buf)", nyxus_rv);
    return 0;
}

template <typename Record>
int32_t read_record(const char* function, NyDevice* pDevObj, uint8_t command, Record* record)
{
    Buffer buffer{static_cast<uint8_t>(command | kRead)};
    const int32_t rv = exchange(function, pDevObj, buffer);
    if (rv >= 0)
        std::memcpy(record, buffer.bytes, sizeof *record);
    return rv;
}

} // namespace

static_assert(sizeof(OsdDatetime) == 8 && sizeof(OsdWindow) == 9 && sizeof(OsdColor) == 9);

int32_t XU_OsdSetEnable(NyDevice* pDevObj, int32_t bEnable)
{
    const auto enable = static_cast<uint8_t>(bEnable);
    return send(pDevObj, Buffer{kEnable, &enable, 1});
}

int32_t XU_OsdGetEnable(NyDevice* pDevObj, uint8_t* pEnable)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pEnable);
    return read_record(__func__, pDevObj, kEnable, pEnable);
}

int32_t XU_OsdReset(NyDevice* pDevObj)
{
    return send(pDevObj, Buffer{kReset});
}

int32_t XU_OsdSetHeader(NyDevice* pDevObj)
{
    return send(pDevObj, Buffer{kHeader});
}

int32_t XU_OsdSetDatetime(NyDevice* pDevObj, const OsdDatetime* pDatetime)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pDatetime);
    return send(pDevObj, Buffer{kDatetime, pDatetime, sizeof *pDatetime});
}

int32_t XU_OsdGetDatetime(NyDevice* pDevObj, OsdDatetime* pDatetime)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pDatetime);
    return read_record(__func__, pDevObj, kDatetime, pDatetime);
}

int32_t XU_OsdSetString(NyDevice* pDevObj, uint8_t bIndex, const uint8_t* pText)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pText);
    Buffer buffer{kString, &bIndex, 1};
    std::memcpy(buffer.bytes + 2, pText, kStringBytes);
    return send(pDevObj, buffer);
}

int32_t XU_OsdGetString(NyDevice* pDevObj, uint8_t bIndex, uint8_t* pText)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pText);
    Buffer buffer{kString | kRead, &bIndex, 1};
    const int32_t rv = exchange(__func__, pDevObj, buffer);
    if (rv >= 0)
        std::memcpy(pText, buffer.bytes, kStringBytes);
    return rv;
}

int32_t XU_OsdSetWindow(NyDevice* pDevObj, const OsdWindow* pWindow)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pWindow);
    return send(pDevObj, Buffer{kWindow, pWindow, sizeof *pWindow});
}

int32_t XU_OsdGetWindow(NyDevice* pDevObj, OsdWindow* pWindow)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pWindow);
    return read_record(__func__, pDevObj, kWindow, pWindow);
}

int32_t XU_OsdSetColor(NyDevice* pDevObj, const OsdColor* pColor)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pColor);
    return send(pDevObj, Buffer{kColor, pColor, sizeof *pColor});
}

int32_t XU_OsdGetColor(NyDevice* pDevObj, OsdColor* pColor)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pColor);
    return read_record(__func__, pDevObj, kColor, pColor);
}

static uint8_t with_bit(uint8_t value, uint8_t bit, int32_t enable)
{
    const bool on = static_cast<uint8_t>(enable) != 0;
    return static_cast<uint8_t>(on ? value | bit : value & ~bit);
}

int32_t XU_OsdEnableDatetime(NyDevice* pDevObj, int32_t bEnable)
{
    NY_REQUIRE_DEVICE(pDevObj);
    uint8_t bOsdCtrl = 0;
    NY_TRY_STORED(XuRegRead(pDevObj, REG_OSD_CTRL, 1, &bOsdCtrl));
    bOsdCtrl = with_bit(bOsdCtrl, kShowDatetime, bEnable);
    NY_TRY_STORED(XuRegWrite(pDevObj, REG_OSD_CTRL, 1, &bOsdCtrl));
    return 0;
}

int32_t XU_OsdEnableTransparent(NyDevice* pDevObj, int32_t bEnable)
{
    NY_REQUIRE_DEVICE(pDevObj);
    uint8_t bOsdCtrl = 0;
    NY_TRY_STORED(XuRegRead(pDevObj, REG_OSD_CTRL, 1, &bOsdCtrl));
    bOsdCtrl = with_bit(bOsdCtrl, kTransparent, bEnable);
    NY_TRY_STORED(XuRegWrite(pDevObj, REG_OSD_CTRL, 1, &bOsdCtrl));
    return 0;
}
