// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Text, date and windows over the video. The calls block for up to three transfers; cameras without
 * an on-screen display answer NYXUS_E_INVALID.
 */
#ifndef NYXUS_CPP_OSD_HPP
#define NYXUS_CPP_OSD_HPP

#include <nyxus/memory.h>
#include <nyxus/osd.h>
#include <nyxus/registers.h>
#include <nyxus/cpp/camera.hpp>

#include <ctime>

namespace nyxus {

/// A filled rectangle over the picture, in cells of 16x16 pixels.
struct OsdRectangle {
    uint8_t index; ///< window, 0 to 3
    uint8_t column;
    uint8_t row;
    uint8_t width;
    uint8_t height;
    bool shown;
};

/// A colour of the display.
struct OsdYCbCr {
    uint8_t y;
    uint8_t cb;
    uint8_t cr;
};

struct OsdColors {
    OsdYCbCr text;
    OsdYCbCr background; ///< of the text
    OsdYCbCr windows;
};

/// The on-screen display of a camera, which it must not outlive.
class Osd {
public:
    explicit Osd(Camera& camera) : camera_(camera.device()) {}

    Result<bool> enabled()
    {
        uint8_t value = 0;
        const int32_t status = XU_OsdGetEnable(camera_, &value);
        return Result<bool>::of(status, value != 0);
    }
    Status enable(bool on) { return Status::of(XU_OsdSetEnable(camera_, on)); }
    /// Clears everything.
    Status reset() { return Status::of(XU_OsdReset(camera_)); }

    /// Line 0 to 7, up to 16 characters; "" clears it.
    Status set_text(uint8_t line, const std::string& text)
    {
        std::array<uint8_t, kTextBytes> bytes{};
        if (line > kLastLine || text.size() > bytes.size())
            return {NYXUS_E_RANGE, "a text has up to 16 characters, in lines 0 to 7"};
        std::copy(text.begin(), text.end(), bytes.begin());
        return Status::of(XU_OsdSetString(camera_, line, bytes.data()));
    }
    Result<std::string> text(uint8_t line)
    {
        char bytes[kTextBytes] = {};
        const int32_t status = XU_OsdGetString(camera_, line, reinterpret_cast<uint8_t*>(bytes));
        return Result<std::string>::of(status, field_text(bytes));
    }

    /// Sets the camera's clock to a broken-down time of the years 2000 to 2099; the place of the
    /// stamp stays.
    Status set_time(const std::tm& time)
    {
        constexpr int kFirstYear = 100; // years of std::tm count from 1900
        if (time.tm_year < kFirstYear || time.tm_year >= kFirstYear + 100)
            return {NYXUS_E_RANGE, "the camera's years are 2000 to 2099"};
        auto record = datetime();
        if (!record)
            return record.status();
        const int fields[] = {time.tm_year - kFirstYear,
                              time.tm_mon + 1,
                              time.tm_mday,
                              time.tm_hour,
                              time.tm_min,
                              time.tm_sec};
        for (size_t i = 0; i < std::size(fields); ++i)
            record->data[i] = static_cast<uint8_t>(fields[i]);
        return Status::of(XU_OsdSetDatetime(camera_, &*record));
    }
    /// Year - 2000, month, day, hour, minute, second, column, row.
    Result<OsdDatetime> datetime()
    {
        OsdDatetime record{};
        const int32_t status = XU_OsdGetDatetime(camera_, &record);
        return Result<OsdDatetime>::of(status, record);
    }
    Status set_datetime(const OsdDatetime& record)
    {
        return Status::of(XU_OsdSetDatetime(camera_, &record));
    }
    /// Whether the stamp is shown while the display is enabled().
    Result<bool> shows_time() { return control_bit(kShowsTime); }
    /// Shows the stamp, together with enable().
    Status show_time(bool on) { return Status::of(XU_OsdEnableDatetime(camera_, on)); }
    Result<bool> transparent() { return control_bit(kTransparent); }
    /// Lets the picture shine through the background of the text.
    Status set_transparent(bool on) { return Status::of(XU_OsdEnableTransparent(camera_, on)); }

    /// The one that was set last.
    Result<OsdRectangle> window()
    {
        OsdWindow record{};
        const int32_t status = XU_OsdGetWindow(camera_, &record);
        const uint8_t(&d)[9] = record.data;
        return Result<OsdRectangle>::of(status, {d[0], d[1], d[2], d[3], d[4], d[5] != 0});
    }
    Status set_window(const OsdRectangle& window)
    {
        const OsdWindow record = {{window.index, window.column, window.row, window.width,
                                   window.height, window.shown, 0, 0, 0}};
        return Status::of(XU_OsdSetWindow(camera_, &record));
    }
    Result<OsdColors> colors()
    {
        OsdColor record{};
        const int32_t status = XU_OsdGetColor(camera_, &record);
        const uint8_t(&d)[9] = record.data;
        return Result<OsdColors>::of(status,
                                     {{d[0], d[1], d[2]}, {d[3], d[4], d[5]}, {d[6], d[7], d[8]}});
    }
    Status set_colors(const OsdColors& colors)
    {
        const auto& [text, background, windows] = colors;
        const OsdColor record = {{text.y, text.cb, text.cr, background.y, background.cb,
                                  background.cr, windows.y, windows.cb, windows.cr}};
        return Status::of(XU_OsdSetColor(camera_, &record));
    }

private:
    static constexpr size_t kTextBytes = 16;
    static constexpr uint8_t kLastLine = 7;
    static constexpr uint8_t kShowsTime = 0x02; ///< in REG_OSD_CTRL
    static constexpr uint8_t kTransparent = 0x10;

    /// Any camera has the register; one without a display has no enabled().
    Result<bool> control_bit(uint8_t bit)
    {
        uint8_t control = 0;
        int32_t status = XU_OsdGetEnable(camera_, &control);
        if (status >= 0)
            status = XuRegRead(camera_, REG_OSD_CTRL, 1, &control);
        return Result<bool>::of(status, (control & bit) != 0);
    }

    NyDevice* camera_;
};

inline Osd Camera::osd()
{
    return Osd(*this);
}

} // namespace nyxus

#endif
