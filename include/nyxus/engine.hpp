// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * libnyxus-engine: programming a camera's external ROM safely, for programs of every kind. C++20,
 * on top of libNYXUS; the tool `nyxus` is one of its users.
 *
 *     namespace engine = nyxus::engine;
 *     auto camera = engine::Camera::open(*nyxus::find_camera());
 *     auto image = engine::Firmware::load("camera.bin");
 *     if (!camera || !image)
 *         ...
 *     const engine::Report report = engine::upgrade(*camera, {*image}, {}, engine::Backups(), {});
 *     if (!report.status)
 *         std::fprintf(stderr, "%s\n", report.status.text().c_str());
 *
 * It prints nothing. How far the work is comes as events (engine/events.hpp), how it ended as a
 * Status, a Result or a Report, which the compiler does not let you ignore. Nothing throws, but for
 * memory that runs out (std::bad_alloc). What the caller passes in must not throw either.
 *
 * Threads: a camera belongs to one thread at a time, and any number of threads may each work with a
 * camera of their own; opening waits for other openings. Nothing process-wide of libNYXUS is used
 * that two threads would share: neither its image buffers nor its production functions. The
 * process's own settings (trace mask, write-cycle time) have to be set before the first camera is
 * opened. Functions that take a Caller call it back on their own thread.
 *
 * Until 1.0 every change of this interface gets another soname: programs are built anew for each.
 *
 * Link with `pkg-config --libs nyxus-engine`, or the CMake target nyxus::engine.
 */
#ifndef NYXUS_ENGINE_HPP
#define NYXUS_ENGINE_HPP

#include <nyxus/engine/backups.hpp>
#include <nyxus/engine/batch.hpp>
#include <nyxus/engine/camera.hpp>
#include <nyxus/engine/events.hpp>
#include <nyxus/engine/images.hpp>
#include <nyxus/engine/kernel_driver.hpp>
#include <nyxus/engine/manifest.hpp>
#include <nyxus/engine/plan.hpp>
#include <nyxus/engine/rom.hpp>
#include <nyxus/engine/status.hpp>
#include <nyxus/engine/upgrade.hpp>

#endif
