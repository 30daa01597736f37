// SPDX-License-Identifier: Apache-2.0
#include <nyxus/device.h>
#include <nyxus/h264.h>
#include <nyxus/memory.h>
#include <nyxus/registers.h>

#include <algorithm>
#include <cstring>

#include "trace/failure.h"
#include "unit.h"

static_assert(sizeof(H264BitrateLayers) == 12 && offsetof(H264BitrateLayers, dwPeakBitrate) == 4 &&
              offsetof(H264BitrateLayers, dwAverageBitrate) == 8);

static constexpr uint8_t kFormatBit = 0x08;

static constexpr size_t kRateControlBytes = 3;
static constexpr size_t kPictureTypeBytes = 4;
static constexpr size_t kVersionBytes = 2;
static constexpr size_t kResetBytes = 2;
static constexpr size_t kQpStepsBytes = 5;

/// Room for any length that the table may have been corrected to: the query believes the table, the
/// caller's payload has the published size.
struct Payload {
    Payload(const uint8_t* caller, size_t size)
    {
        if (caller != nullptr) // which the query is to refuse
            std::memcpy(bytes, caller, size);
        argument = caller != nullptr ? bytes : nullptr;
    }
    uint8_t bytes[UINT8_MAX] = {};
    uint8_t* argument;
};

static int32_t receive(NyDevice* pDevObj, uint8_t selector, uint8_t* pBuf, size_t size)
{
    Payload payload(pBuf, size);
    const int32_t rv = UvcXuCtrlQueryH264(pDevObj, selector, UVC_GET_CUR, payload.argument);
    if (rv >= 0)
        std::memcpy(pBuf, payload.bytes, size);
    return rv;
}

static int32_t send(NyDevice* pDevObj, uint8_t selector, const uint8_t* pBuf, size_t size)
{
    Payload payload(pBuf, size);
    return UvcXuCtrlQueryH264(pDevObj, selector, UVC_SET_CUR, payload.argument);
}

static uint32_t little_endian_32(const uint8_t* bytes)
{
    return bytes[0] | static_cast<uint32_t>(bytes[1]) << 8 | static_cast<uint32_t>(bytes[2]) << 16 |
           static_cast<uint32_t>(bytes[3]) << 24;
}

static void put_little_endian(uint8_t* bytes, uint32_t value, int count)
{
    for (int i = 0; i < count; ++i)
        bytes[i] = static_cast<uint8_t>(value >> (8 * i));
}

int32_t H264GetRateCtrlMode(NyDevice* pDevObj, uint8_t* pBuf)
{
    return receive(pDevObj, UVCX_RATE_CONTROL_MODE, pBuf, kRateControlBytes);
}

int32_t H264SetRateCtrlMode(NyDevice* pDevObj, const uint8_t* pBuf)
{
    return send(pDevObj, UVCX_RATE_CONTROL_MODE, pBuf, kRateControlBytes);
}

int32_t H264SetNextFrameType(NyDevice* pDevObj, const uint8_t* pBuf)
{
    return send(pDevObj, UVCX_PICTURE_TYPE_CONTROL, pBuf, kPictureTypeBytes);
}

int32_t H264GetVersion(NyDevice* pDevObj, uint8_t* pBuf)
{
    return receive(pDevObj, UVCX_VERSION, pBuf, kVersionBytes);
}

int32_t H264Reset(NyDevice* pDevObj, const uint8_t* pBuf)
{
    return send(pDevObj, UVCX_ENCODER_RESET, pBuf, kResetBytes);
}

int32_t H264GetQpSteps(NyDevice* pDevObj, uint8_t* pBuf)
{
    return receive(pDevObj, UVCX_QP_STEPS_LAYERS, pBuf, kQpStepsBytes);
}

int32_t H264SetQpSteps(NyDevice* pDevObj, const uint8_t* pBuf)
{
    return send(pDevObj, UVCX_QP_STEPS_LAYERS, pBuf, kQpStepsBytes);
}

int32_t H264GetBitrate(NyDevice* pDevObj, H264BitrateLayers* out)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(out);
    uint8_t buf[UINT8_MAX] = {}; // as long as the table may say
    NY_TRY_STORED(UvcXuCtrlQueryH264(pDevObj, UVCX_BITRATE_LAYERS, UVC_GET_CUR, buf));
    out->wLayerID = static_cast<uint16_t>(buf[0] | buf[1] << 8);
    out->dwPeakBitrate = little_endian_32(buf + 2);
    out->dwAverageBitrate = little_endian_32(buf + 6);
    return 0;
}

int32_t H264SetBitrate(NyDevice* pDevObj, const H264BitrateLayers* in)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(in);
    uint8_t buf[UINT8_MAX] = {};
    put_little_endian(buf, in->wLayerID, 2);
    put_little_endian(buf + 2, in->dwPeakBitrate, 4);
    put_little_endian(buf + 6, in->dwAverageBitrate, 4);
    return UvcXuCtrlQueryH264(pDevObj, UVCX_BITRATE_LAYERS, UVC_SET_CUR, buf);
}

int32_t H264GetIFramePeriod(NyDevice* pDevObj, uint16_t* period)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(period);
    uint8_t buf[4] = {};
    NY_TRY_STORED(XuRegRead(pDevObj, XDATA_H264_IFRAME_PERIOD, 4, buf));
    *period = static_cast<uint16_t>(buf[0] << 8 | buf[1]);
    return 0;
}

int32_t H264SetIFramePeriod(NyDevice* pDevObj, const uint16_t* period)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(period);
    // The encoder takes no period of 0, nor a distance of 0 between I-frames.
    const int frames = std::max<int>(*period, 1);
    const int distance = std::max(frames - 1, 1);
    const uint8_t bytes[] = {static_cast<uint8_t>(frames >> 8), static_cast<uint8_t>(frames),
                             static_cast<uint8_t>(distance >> 8), static_cast<uint8_t>(distance)};
    return XuRegWrite(pDevObj, XDATA_H264_IFRAME_PERIOD, 4, bytes);
}

int32_t H264GetFormat(NyDevice* pDevObj, uint8_t* format)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(format);
    uint8_t buf[2] = {};
    NY_TRY_STORED(XuRegRead(pDevObj, XDATA_H264_FORMAT_I, 2, buf));
    *format = (buf[0] & buf[1] & kFormatBit) != 0 ? 0 : 1;
    return 0;
}

int32_t H264SetFormat(NyDevice* pDevObj, uint8_t format)
{
    NY_REQUIRE_DEVICE(pDevObj);
    uint8_t buf[2] = {};
    NY_TRY_STORED(XuRegRead(pDevObj, XDATA_H264_FORMAT_I, 2, buf));
    for (uint8_t& byte : buf)
        byte = static_cast<uint8_t>(format != 0 ? byte & ~kFormatBit : byte | kFormatBit);
    return XuRegWrite(pDevObj, XDATA_H264_FORMAT_I, 2, buf);
}
