// CoreFoundationObjects: the objects of the HID functions on a Mac. macOS only.
#pragma once

#include "sensors/hid/HIDObjects.h"

namespace airflow::platform {

class CoreFoundationObjects final : public sensors::HIDObjects {
public:
    sensors::HIDObject makeDictionary(const std::vector<Entry>& entries) override;
    sensors::HIDObject makeText(std::string_view utf8) override;
    std::vector<sensors::HIDObject> elements(sensors::HIDObject array) override;
    std::optional<std::string> text(sensors::HIDObject object) override;
    void retain(sensors::HIDObject object) override;
    void release(sensors::HIDObject object) override;
};

}  // namespace airflow::platform
