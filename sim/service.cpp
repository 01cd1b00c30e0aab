#include "sim/service.h"

#include <algorithm>
#include <utility>

namespace sim {

std::string_view KindName(ObjectKind kind) {
    return kind == ObjectKind::Pool ? "pool" : "volume";
}

std::uint16_t StateNumber(std::string_view word) {
    if (word == "active" || word == "mounted") {
        return 6;
    }
    if (word == "maintenance") {
        return 3;
    }
    return word == "deactive" ? 2 : 0;
}

bool IsPlainName(std::string_view text) {
    return !text.empty() && std::none_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) <= ' ' || c == '\x7F' ||
               std::string_view("<>&,/").find(c) != std::string_view::npos;
    });
}

// Events know an object by its GUID and requests by its name: neither may be there twice.
bool Service::Add(ObjectKind kind, StoredObject object) {
    const std::scoped_lock lock(mutex_);
    auto& list = List(kind);
    const bool taken = std::any_of(list.begin(), list.end(), [&](const StoredObject& known) {
        return known.name == object.name || known.guid == object.guid;
    });
    if (!taken) {
        list.push_back(std::move(object));
    }
    return !taken;
}

std::optional<StoredObject> Service::Find(ObjectKind kind, std::string_view name) const {
    const std::scoped_lock lock(mutex_);
    for (const StoredObject& object : List(kind)) {
        if (object.name == name) {
            return object;
        }
    }
    return std::nullopt;
}

std::optional<StoredObject> Service::FindByGuid(ObjectKind kind, const Guid& guid) const {
    const std::scoped_lock lock(mutex_);
    for (const StoredObject& object : List(kind)) {
        if (object.guid == guid) {
            return object;
        }
    }
    return std::nullopt;
}

std::vector<StoredObject> Service::All(ObjectKind kind) const {
    const std::scoped_lock lock(mutex_);
    return List(kind);
}

bool Service::SetState(ObjectKind kind, const Guid& guid, const std::string& state) {
    const std::scoped_lock lock(mutex_);
    StoredObject* object = Known(kind, guid);
    if (object != nullptr) {
        object->state = state;
    }
    return object != nullptr;
}

bool Service::Rename(ObjectKind kind, const Guid& guid, const std::string& name) {
    const std::scoped_lock lock(mutex_);
    StoredObject* object = Known(kind, guid);
    if (object != nullptr) {
        object->name = name;
    }
    return object != nullptr;
}

bool Service::Remove(ObjectKind kind, const Guid& guid) {
    const std::scoped_lock lock(mutex_);
    return std::erase_if(List(kind), [&](const auto& known) { return known.guid == guid; }) > 0;
}

StoredObject* Service::Known(ObjectKind kind, const Guid& guid) {
    auto& list = List(kind);
    const auto found = std::find_if(list.begin(), list.end(),
                                    [&](const StoredObject& known) { return known.guid == guid; });
    return found == list.end() ? nullptr : &*found;
}

}  // namespace sim
