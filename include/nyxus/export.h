/* SPDX-License-Identifier: Apache-2.0 */
/**
 * @file
 * Linkage of everything that libNYXUS.so.2 exports, and the words the other headers use.
 *
 * Thread words:
 *  - *thread-safe*: any number of threads at any time.
 *  - *one thread at a time per device*: two threads may use two device objects, never the same one
 *    at the same time; the library takes no lock.
 *  - *one thread at a time*: touches process-wide state; while it runs, no other thread calls a
 *    function with this word, nor one that uses what it sets.
 *
 * "Blocks for a transfer": until the camera has answered one control transfer. Transfers carry no
 * time-out, so a camera that is connected but never answers blocks its caller until it is
 * unplugged.
 */
#ifndef NYXUS_EXPORT_H
#define NYXUS_EXPORT_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
/** The declarations that follow have C linkage. */
#define NYXUS_BEGIN_DECLS extern "C" {
/** End of NYXUS_BEGIN_DECLS. */
#define NYXUS_END_DECLS }
#else
#define NYXUS_BEGIN_DECLS
#define NYXUS_END_DECLS
#endif

/** An exported function. */
#define NYXUS_API __attribute__((visibility("default")))
/** An exported datum. */
#define NYXUS_DATA extern __attribute__((visibility("default")))

NYXUS_BEGIN_DECLS
/** The per-camera object; its fields are in nyxus/device.h. */
typedef struct NyDevice NyDevice;
NYXUS_END_DECLS

#endif
