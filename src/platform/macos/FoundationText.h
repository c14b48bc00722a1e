// Texts and bytes as Foundation's objects. macOS only.
#pragma once

#import <Foundation/Foundation.h>

#include <string_view>

#include "platform/macos/RequiredObject.h"

namespace airflow::platform {

// Core Foundation makes them, whose objects are Foundation's too. Out of memory, the process stops.

/// `utf8` must be UTF-8.
inline NSString* stringOf(std::string_view utf8) {
    return (__bridge_transfer NSString*)required(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(utf8.data()),
                                static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false));
}

inline NSData* dataOf(std::string_view bytes) {
    return (__bridge_transfer NSData*)required(
        CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                     static_cast<CFIndex>(bytes.size())));
}

}  // namespace airflow::platform
