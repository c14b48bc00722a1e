// DynamicLibrary: functions that are found by name while the program runs.
#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <utility>

namespace airflow::sensors {

/// A library that is opened at the first look-up, once, and never closed. Any thread may use it.
class DynamicLibrary {
public:
    explicit DynamicLibrary(std::string libraryPath) : path(std::move(libraryPath)) {}

    /// The symbol's address; nothing when the library cannot be opened or lacks the symbol.
    [[nodiscard]] void* find(const char* symbol) const;

private:
    std::string path;
    mutable std::once_flag opened;
    mutable void* handle = nullptr;
};

template <typename Signature>
class DynamicFunction;

/// One function of a library, looked up at its first use, once. Any thread may use it.
template <typename Result, typename... Arguments>
class DynamicFunction<Result(Arguments...)> {
public:
    using Function = std::function<Result(Arguments...)>;

    DynamicFunction(const DynamicLibrary& owner, const char* name)
        : library(&owner), symbol(name) {}
    /// A function that is there already, or that is missing when it is empty.
    explicit DynamicFunction(Function given) : found(std::move(given)) {}

    [[nodiscard]] bool isResolved() const { return static_cast<bool>(function()); }

    /// Requires that the function is resolved.
    Result operator()(Arguments... arguments) const { return function()(arguments...); }

private:
    using Address = Result (*)(Arguments...);

    const Function& function() const {
        if (!library) return found;
        std::call_once(lookedUp, [this] {
            if (void* const address = library->find(symbol)) {
                found = reinterpret_cast<Address>(address);
            }
        });
        return found;
    }

    const DynamicLibrary* library = nullptr;  ///< none: what was given is all there is
    const char* symbol = nullptr;
    mutable std::once_flag lookedUp;
    mutable Function found;
};

}  // namespace airflow::sensors
