#pragma once

#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/deviceFile.h"
#include "sim/guidText.h"

namespace sim {

/// What the service keeps.
enum class ObjectKind { Pool, Volume };

/// "pool" or "volume".
std::string_view KindName(ObjectKind kind);

/// A pool or a volume as the service knows it.
struct StoredObject {
    std::string name;  ///< unique among its kind
    Guid guid{};
    std::string state;                    ///< a word, such as "maintenance"
    std::string device;                   ///< a path, or empty
    std::shared_ptr<DeviceFile> image{};  ///< null where `device` is not served
};

/// The number by which events name a state: 6 for "active" and "mounted", 2 for "deactive",
/// 3 for "maintenance", 0 for any other word.
std::uint16_t StateNumber(std::string_view word);

/// True for a text that can be a name or a state: not empty, printable, none of "<>&,/" and blank.
bool IsPlainName(std::string_view text);

/// The pools and volumes. Any thread may call it; what it hands out are copies.
class Service {
  public:
    /// False when the name is taken.
    bool Add(ObjectKind kind, StoredObject object);

    // What is known now: one by its name or its GUID, nothing when there is none, or all in the
    // order in which they were added.
    std::optional<StoredObject> Find(ObjectKind kind, std::string_view name) const;
    std::optional<StoredObject> FindByGuid(ObjectKind kind, const Guid& guid) const;
    std::vector<StoredObject> All(ObjectKind kind) const;

    /// The changes give false when there is no such object; the GUID tells it, since its name may
    /// have changed meanwhile.
    bool SetState(ObjectKind kind, const Guid& guid, const std::string& state);
    bool Rename(ObjectKind kind, const Guid& guid, const std::string& name);
    bool Remove(ObjectKind kind, const Guid& guid);

  private:
    std::vector<StoredObject>& List(ObjectKind kind) { return lists_.at(kind == ObjectKind::Pool); }
    const std::vector<StoredObject>& List(ObjectKind kind) const {
        return lists_.at(kind == ObjectKind::Pool);
    }
    StoredObject* Known(ObjectKind kind, const Guid& guid);

    mutable std::mutex mutex_;
    std::array<std::vector<StoredObject>, 2> lists_;
};

}  // namespace sim
