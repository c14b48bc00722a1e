#include "platform/macos/CoreFoundationObjects.h"

#include <CoreFoundation/CoreFoundation.h>

#include "platform/macos/RequiredObject.h"

namespace airflow::platform {

using sensors::HIDObject;

namespace {

CFStringRef createText(std::string_view utf8) {
    return required(
        CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(utf8.data()),
                                static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false));
}

}  // namespace

HIDObject CoreFoundationObjects::makeDictionary(const std::vector<Entry>& entries) {
    const CFMutableDictionaryRef dictionary = required(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    for (const Entry& entry : entries) {
        const CFStringRef name = createText(entry.name);
        const CFNumberRef value =
            required(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &entry.value));
        CFDictionarySetValue(dictionary, name, value);  // retains both
        CFRelease(value);
        CFRelease(name);
    }
    return dictionary;
}

HIDObject CoreFoundationObjects::makeText(std::string_view utf8) {
    return createText(utf8);
}

std::vector<HIDObject> CoreFoundationObjects::elements(HIDObject array) {
    const auto values = static_cast<CFArrayRef>(array);
    std::vector<HIDObject> result;
    for (CFIndex i = 0; i < CFArrayGetCount(values); ++i) {
        result.push_back(CFArrayGetValueAtIndex(values, i));
    }
    return result;
}

std::optional<std::string> CoreFoundationObjects::text(HIDObject object) {
    if (CFGetTypeID(object) != CFStringGetTypeID()) return std::nullopt;
    const auto string = static_cast<CFStringRef>(object);
    const CFRange all = CFRangeMake(0, CFStringGetLength(string));
    CFIndex size = 0;
    const CFIndex measured =
        CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false, nullptr, 0, &size);
    if (measured != all.length) return std::nullopt;  // half a surrogate pair is no text
    std::string result(static_cast<std::size_t>(size), '\0');
    CFStringGetBytes(string, all, kCFStringEncodingUTF8, 0, false,
                     reinterpret_cast<UInt8*>(result.data()), size, nullptr);
    return result;
}

void CoreFoundationObjects::retain(HIDObject object) {
    CFRetain(object);
}

void CoreFoundationObjects::release(HIDObject object) {
    CFRelease(object);
}

}  // namespace airflow::platform
