// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace sim {

enum RequestType : uint8_t { kStandardType = 0, kClassType = 1, kVendorType = 2 };
enum Recipient : uint8_t { kDeviceRecipient = 0, kInterfaceRecipient = 1, kEndpointRecipient = 2 };

enum StandardRequest : uint8_t {
    kGetStatus = 0,
    kClearFeature = 1,
    kSetFeature = 3,
    kSetAddress = 5,
    kGetDescriptor = 6,
    kGetConfiguration = 8,
    kSetConfiguration = 9,
    kGetInterface = 10,
    kSetInterface = 11,
};

inline constexpr uint16_t kEndpointHalt = 0;

enum DescriptorType : uint8_t {
    kDevice = 1,
    kConfiguration = 2,
    kString = 3,
    kDeviceQualifier = 6
};

} // namespace sim
