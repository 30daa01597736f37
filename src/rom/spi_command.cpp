// SPDX-License-Identifier: Apache-2.0
// SPI commands, clocked out by the controller on the host's behalf.
#include <nyxus/device.h>
#include <nyxus/memory.h>
#include <nyxus/registers.h>

#include <algorithm>
#include <cstring>

#include "tables/xu_version.h"
#include "trace/failure.h"
#include "unit.h"
#include "usb/xu_exchange.h"

static constexpr uint8_t kSetUp = 0x14;
static constexpr uint8_t kStartWithAnswer = 0x37;
static constexpr uint8_t kStart = 0x35;
static constexpr uint8_t kRelease = 0x00;
static constexpr uint8_t kBusy = 0x01;
static constexpr uint32_t kAnswerLimit_ms = 500;

static uint32_t elapsed_ms(const timeval& start)
{
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<uint32_t>((now.tv_sec - start.tv_sec) * 1000 +
                                 (now.tv_usec - start.tv_usec) / 1000);
}

/// Newer controllers know read-ID commands only and send the opcode alone.
static int32_t read_id_by_control(NyDevice* pDevObj, uint8_t opcode, uint8_t length,
                                  uint8_t* pDataBuf, uint8_t bDataLen)
{
    uint8_t payload[11] = {opcode, length, 3};
    const auto exchange = [&](uint8_t request) {
        return nyxus::xu_exchange(pDevObj, ZRV_XU_FLASH_RD_ID, request, payload, sizeof payload);
    };
    int32_t rv = exchange(UVC_SET_CUR);
    if (rv < 0) {
        return nyxus::pass_on("XU_SpiCmdGet",
                              "UvcXuCtrlQueryNYXU(pDevObj, ZRV_XU_FLASH_RD_ID, UVC_SET_CUR, buf)",
                              rv);
    }
    rv = exchange(UVC_GET_CUR);
    if (rv < 0) {
        return nyxus::pass_on("XU_SpiCmdGet",
                              "UvcXuCtrlQueryNYXU(pDevObj, ZRV_XU_FLASH_RD_ID, UVC_GET_CUR, buf)",
                              rv);
    }
    if (bDataLen > 0) {
        std::memset(pDataBuf, 0, bDataLen);
        std::memcpy(pDataBuf, payload, std::min<size_t>(bDataLen, sizeof payload));
    }
    return 0;
}

int32_t XU_SpiCmdGet(NyDevice* pDevObj, const uint8_t* pCmdBuf, uint8_t bCmdLen, uint8_t* pDataBuf,
                     uint8_t bDataLen)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pCmdBuf);
    if (bDataLen > 0)
        NY_REQUIRE(pDataBuf);
    const uint8_t opcode = bCmdLen > 0 ? pCmdBuf[0] : uint8_t{0};
    if (pDevObj->oXuCtrlVer.wVersion == kXuVersionStatus)
        return read_id_by_control(pDevObj, opcode, bCmdLen, pDataBuf, bDataLen);

    timeval start;
    gettimeofday(&start, nullptr);
    NY_TRY(XuRegWrite(pDevObj, REG_EEPROM_SEQ_BUF, bCmdLen, pCmdBuf));
    uint8_t buf[3] = {kSetUp, bCmdLen, 0x01};
    NY_TRY(XuRegWrite(pDevObj, REG_SPI_CTL, 3, buf));
    NY_TRY(XuRegWrite(pDevObj, REG_I2C_LENG, 1, &bDataLen));
    buf[0] = kStartWithAnswer;
    NY_TRY(XuRegWrite(pDevObj, REG_SPI_CTL, 1, buf));
    do {
        NY_TRY(XuRegRead(pDevObj, REG_SPI_CTL, 1, buf));
        // The limit comes first: a command that ended too late has failed.
        if (elapsed_ms(start) > kAnswerLimit_ms) {
            NY_TRACE_DEV(NY_TRACE_ERROR, "SPICmdGet Timeout out");
            return NYXUS_E_SPI_COMMAND;
        }
    } while ((buf[0] & kBusy) != 0);
    buf[0] = kRelease;
    NY_TRY(XuRegWrite(pDevObj, REG_SPI_CTL, 1, buf));
    NY_TRY(XuRegRead(pDevObj, REG_EEPROM_SEQ_BUF, bDataLen, pDataBuf));
    NY_TRACE_DEV(NY_TRACE_SPI, "Exec SPI Cmd '0x%02X', bDataLen = %d \n", opcode, bDataLen);
    return 0;
}

int32_t XU_SpiCmdSet(NyDevice* pDevObj, const uint8_t* pCmdBuf, uint8_t bCmdLen)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(pCmdBuf);
    NY_TRY(XuRegWrite(pDevObj, REG_EEPROM_SEQ_BUF, bCmdLen, pCmdBuf));
    uint8_t buf[3] = {kSetUp, bCmdLen, 0x01};
    NY_TRY(XuRegWrite(pDevObj, REG_SPI_CTL, 3, buf));
    buf[0] = kStart;
    NY_TRY(XuRegWrite(pDevObj, REG_SPI_CTL, 1, buf));
    do { // without a limit: only the camera's departure ends a command that never completes
        NY_TRY(XuRegRead(pDevObj, REG_SPI_CTL, 1, buf));
    } while ((buf[0] & kBusy) != 0);
    buf[0] = kRelease;
    NY_TRY(XuRegWrite(pDevObj, REG_SPI_CTL, 1, buf));
    NY_TRACE_DEV(NY_TRACE_SPI, "Exec SPI Cmd '0x%02X', bCmdLen = %d \n",
                 bCmdLen > 0 ? pCmdBuf[0] : 0, bCmdLen);
    return 0;
}
