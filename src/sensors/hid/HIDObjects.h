// HIDObjects: the seam to the object system (Core Foundation on a Mac) whose objects the HID
// functions take and return, and the type that owns one such object.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace airflow::sensors {

/// A reference-counted object of the system, or nothing. Says nothing about who owns it.
using HIDObject = const void*;

/// The few operations on objects that reading temperatures needs.
///
/// What a `make` function returns is the caller's to release, exactly once. Nothing here fails:
/// running out of memory stops the process, as it does everywhere else. Called on one thread at a
/// time.
class HIDObjects {
public:
    struct Entry {
        std::string_view name;
        std::int64_t value;
    };

    HIDObjects() = default;
    HIDObjects(const HIDObjects&) = delete;
    HIDObjects& operator=(const HIDObjects&) = delete;
    virtual ~HIDObjects() = default;

    /// A dictionary from texts to integers.
    virtual HIDObject makeDictionary(const std::vector<Entry>& entries) = 0;
    virtual HIDObject makeText(std::string_view utf8) = 0;

    /// The elements of an array, in order. They belong to the array: retain what outlives it.
    virtual std::vector<HIDObject> elements(HIDObject array) = 0;
    /// The text of `object` as UTF-8; nothing when it is no text.
    virtual std::optional<std::string> text(HIDObject object) = 0;

    virtual void retain(HIDObject object) = 0;
    virtual void release(HIDObject object) = 0;
};

/// Owns one reference to an object, or nothing.
class OwnedHIDObject {
public:
    OwnedHIDObject() = default;
    /// Takes over the reference that a function named Create, Copy or make returned.
    OwnedHIDObject(HIDObjects& system, HIDObject created) : objects(&system), object(created) {}
    /// A further reference to an object that somebody else owns.
    static OwnedHIDObject retaining(HIDObjects& system, HIDObject borrowed) {
        system.retain(borrowed);
        return {system, borrowed};
    }
    OwnedHIDObject(OwnedHIDObject&& other) noexcept
        : objects(other.objects), object(std::exchange(other.object, nullptr)) {}
    OwnedHIDObject& operator=(OwnedHIDObject&& other) noexcept {
        std::swap(objects, other.objects);
        std::swap(object, other.object);
        return *this;
    }
    ~OwnedHIDObject() {
        if (object) objects->release(object);
    }

    explicit operator bool() const noexcept { return object != nullptr; }
    [[nodiscard]] HIDObject get() const noexcept { return object; }

private:
    HIDObjects* objects = nullptr;
    HIDObject object = nullptr;
};

}  // namespace airflow::sensors
