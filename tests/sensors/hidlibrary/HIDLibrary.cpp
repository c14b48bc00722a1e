// The stand-in itself. WITHOUT_<function> leaves that function out of the library.
#include "HIDLibrary.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace airflow::tests {

namespace {

using sensors::HIDObject;

enum class Kind { client, dictionary, text, number, array, service, event };

struct Object {
    Kind kind;
    int references = 1;
    std::string text{};
    double value = 0;
    std::map<std::string, std::int64_t> entries{};
    std::vector<Object*> elements{};  ///< one reference to each is held
    HIDLibrary::Service* service = nullptr;
    Object* client = nullptr;  ///< no reference: a service does not keep its client alive
    std::size_t nextEvent = 0;
};

class StandIn final : public HIDLibrary {
public:
    void install(Machine installed) override {
        machine = std::move(installed);
        everything.clear();
        events = Record{};
    }
    const Record& record() const override { return events; }
    int liveObjects() const override {
        return static_cast<int>(std::ranges::count_if(
            everything, [](const auto& object) { return object->references > 0; }));
    }

    HIDObject makeDictionary(const std::vector<Entry>& entries) override {
        ++events.makes;
        Object* const dictionary = make({.kind = Kind::dictionary});
        for (const Entry& entry : entries) {
            dictionary->entries[std::string(entry.name)] = entry.value;
        }
        return dictionary;
    }
    HIDObject makeText(std::string_view utf8) override {
        ++events.makes;
        return make({.kind = Kind::text, .text = std::string(utf8)});
    }
    std::vector<HIDObject> elements(HIDObject array) override {
        const Object& object = use(array);
        return {object.elements.begin(), object.elements.end()};
    }
    std::optional<std::string> text(HIDObject object) override {
        const Object& used = use(object);
        if (used.kind != Kind::text) return std::nullopt;
        return used.text;
    }
    void retain(HIDObject object) override { ++use(object).references; }
    void release(HIDObject object) override {
        Object& released = mutableObject(object);
        if (released.references == 0) {
            ++events.overReleases;
        } else if (--released.references == 0) {
            for (Object* const element : released.elements) release(element);
        }
    }

    HIDObject createClient(HIDObject allocator) {
        events.calls.emplace_back(allocator ? "create client elsewhere" : "create client");
        return machine.givesClient ? make({.kind = Kind::client}) : nullptr;
    }
    void setMatching(HIDObject client, HIDObject dictionary) {
        events.calls.emplace_back("set matching");
        use(client).entries = use(dictionary).entries;
        events.matching = use(dictionary).entries;
    }
    HIDObject copyServices(HIDObject client) {
        events.calls.emplace_back("copy services");
        Object& owner = use(client);
        if (!machine.givesServices) return nullptr;
        Object* const array = make({.kind = Kind::array});
        for (Service& service : machine.services) {
            array->elements.push_back(
                make({.kind = Kind::service, .service = &service, .client = &owner}));
        }
        return array;
    }
    HIDObject copyProperty(HIDObject service, HIDObject name) {
        const std::string& property = use(name).text;
        events.calls.push_back("copy property " + property);
        const Product& product = use(service).service->product;
        if (property != "Product" || std::holds_alternative<std::monostate>(product)) {
            return nullptr;
        }
        if (const auto* const label = std::get_if<std::string>(&product)) {
            return make({.kind = Kind::text, .text = *label});
        }
        return make({.kind = Kind::number});
    }
    HIDObject copyEvent(HIDObject service, std::int64_t type, std::int32_t options,
                        std::int64_t timestamp) {
        Object& used = use(service);
        use(used.client);
        events.calls.push_back("copy event " + std::to_string(type) + " " +
                               std::to_string(options) + " " + std::to_string(timestamp) + " of " +
                               std::get<std::string>(used.service->product));
        const auto& answers = used.service->events;
        if (answers.empty()) return nullptr;
        const auto answer = answers[used.nextEvent++ % answers.size()];
        return answer ? make({.kind = Kind::event, .value = *answer}) : nullptr;
    }
    double floatValue(HIDObject event, std::int32_t field) {
        events.calls.push_back("get field " + std::to_string(field));
        return use(event).value;
    }
    void foundFunction(const char* name) { events.lookUps.emplace_back(name); }

private:
    static Object& mutableObject(HIDObject object) {
        return *static_cast<Object*>(const_cast<void*>(object));
    }
    Object* make(Object object) {
        return everything.emplace_back(std::make_unique<Object>(std::move(object))).get();
    }
    Object& use(HIDObject object) {
        Object& used = mutableObject(object);
        if (used.references == 0) ++events.usesAfterRelease;
        return used;
    }

    Machine machine;
    Record events;
    std::vector<std::unique_ptr<Object>> everything;
};

StandIn& standIn() {
    static StandIn instance;
    return instance;
}

}  // namespace

}  // namespace airflow::tests

using airflow::sensors::HIDObject;
using airflow::tests::standIn;

extern "C" airflow::tests::HIDLibrary* airflowTestsHIDLibrary() {
    return &standIn();
}

// Exports a function indirectly: the dynamic linker calls its resolver whenever somebody looks the
// name up, and so the library knows about every look-up.
#define EXPORT(result, name, parameters, ...)                                           \
    extern "C" [[gnu::visibility("hidden")]] void* resolve_##name() {                   \
        standIn().foundFunction(#name);                                                 \
        result(*const implementation) parameters = [] parameters -> result __VA_ARGS__; \
        return reinterpret_cast<void*>(implementation);                                 \
    }                                                                                   \
    extern "C" result name parameters __attribute__((ifunc("resolve_" #name)));

#ifndef WITHOUT_IOHIDEventSystemClientCreate
EXPORT(HIDObject, IOHIDEventSystemClientCreate, (HIDObject allocator),
       { return standIn().createClient(allocator); })
#endif

#ifndef WITHOUT_IOHIDEventSystemClientSetMatching
EXPORT(void, IOHIDEventSystemClientSetMatching, (HIDObject client, HIDObject matching),
       { standIn().setMatching(client, matching); })
#endif

#ifndef WITHOUT_IOHIDEventSystemClientCopyServices
EXPORT(HIDObject, IOHIDEventSystemClientCopyServices, (HIDObject client),
       { return standIn().copyServices(client); })
#endif

#ifndef WITHOUT_IOHIDServiceClientCopyProperty
EXPORT(HIDObject, IOHIDServiceClientCopyProperty, (HIDObject service, HIDObject name),
       { return standIn().copyProperty(service, name); })
#endif

#ifndef WITHOUT_IOHIDServiceClientCopyEvent
EXPORT(HIDObject, IOHIDServiceClientCopyEvent,
       (HIDObject service, std::int64_t type, std::int32_t options, std::int64_t timestamp),
       { return standIn().copyEvent(service, type, options, timestamp); })
#endif

#ifndef WITHOUT_IOHIDEventGetFloatValue
EXPORT(double, IOHIDEventGetFloatValue, (HIDObject event, std::int32_t field),
       { return standIn().floatValue(event, field); })
#endif
