/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * All of libNYXUS.
 */
#ifndef NYXUS_NYXUS_H
#define NYXUS_NYXUS_H

#include <nyxus/access.h>
#include <nyxus/chip.h>
#include <nyxus/config.h>
#include <nyxus/device.h>
#include <nyxus/error.h>
#include <nyxus/export.h>
#include <nyxus/extensions.h>
#include <nyxus/fingerprint.h>
#include <nyxus/flash.h>
#include <nyxus/h264.h>
#include <nyxus/image.h>
#include <nyxus/memory.h>
#include <nyxus/osd.h>
#include <nyxus/peripheral.h>
#include <nyxus/production.h>
#include <nyxus/registers.h>
#include <nyxus/rom.h>
#include <nyxus/trace.h>
#include <nyxus/usb.h>
#include <nyxus/video.h>
#include <nyxus/xu.h>

#endif
