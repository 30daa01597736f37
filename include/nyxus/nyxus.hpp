// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * libNYXUS for C++17 and later: a thin layer over the C interface, in headers only.
 *
 *     auto camera = nyxus::find_camera();              // the only one, or by name
 *     ...
 *     auto opened = nyxus::Camera::open(*camera);
 *     if (!opened) {
 *         std::fprintf(stderr, "%s\n", opened.status().message().c_str());
 *         return 1;
 *     }
 *     nyxus::Status done = opened->osd().set_text(0, "Front door");
 *
 * Nothing here throws; what can fail returns a Status or a Result, which the compiler does not let
 * you ignore (`(void)` does, where a failure does not matter). Memory that runs out is the
 * exception: the standard library throws std::bad_alloc then, or ends the program where exceptions
 * are switched off.
 *
 * The thread words are those of nyxus/export.h. A Camera and all that was made from it (Rom, Osd,
 * H264, Stream) is one device: one thread at a time. Listing is thread-safe; opening is one thread
 * at a time, and so is everything that nyxus/config.h, nyxus/trace.h and nyxus/h264.h call
 * process-wide: the trace mask, the wait after EEPROM writes, the H.264 order, and the control
 * tables that each probe corrects. How long a call may block is said at the C function that it is
 * made of. No function here uses the process-wide image buffers of nyxus/image.h. Programming
 * firmware is the engine's, nyxus/engine.hpp.
 *
 * Link with libNYXUS, libusb-1.0 and libuvc (`pkg-config --libs nyxus`).
 */
#ifndef NYXUS_NYXUS_HPP
#define NYXUS_NYXUS_HPP

#include <nyxus/cpp/camera.hpp>
#include <nyxus/cpp/camera_list.hpp>
#include <nyxus/cpp/camera_watch.hpp>
#include <nyxus/cpp/controls.hpp>
#include <nyxus/cpp/h264.hpp>
#include <nyxus/cpp/osd.hpp>
#include <nyxus/cpp/result.hpp>
#include <nyxus/cpp/rom.hpp>
#include <nyxus/cpp/video.hpp>

#endif
