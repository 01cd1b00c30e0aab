#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>

#include "util/common/guid.h"

/// Names one pool or volume, or all of them, by the operator's name and by the GUID that events
/// carry: a snapshot of the moment it was made. Read-only afterwards, so any thread may use it.
class PVKey {
  public:
    /// A key that knows no name, "_Unknown_Name_": the service cannot tell its state.
    PVKey(const GUID_t* guid, bool isPool);
    /// Asks the service for the GUID; throws what the query throws (`AdminError`, `OstrelError`,
    /// std::runtime_error).
    PVKey(const char* name, bool isPool);
    /// The key of all pools or all volumes, "all".
    explicit PVKey(bool isPool);
    /// A name or a GUID alone would pass for that bool, and stand for every object.
    explicit PVKey(const void*) = delete;

    /// Asks the service for the present state's number: 6 active, 2 deactive, 3 maintenance, 0 any
    /// other. Throws as the query does.
    std::uint32_t GetState() const;

    /// Whether the key stands for the object of that GUID; the key of all does for every one.
    bool IsMatch(const GUID_t* guid) const;

    /// Makes the text of the GUID; throws std::invalid_argument when there is none.
    void SetIDString();

    /// All 0 for the key of all.
    const GUID_t& ID() const { return guid_; }
    /// `ID` in the text form of 37 characters.
    const std::string& IDString() const { return idString_; }
    const std::string& Name() const { return name_; }

    bool IsPool;      ///< false: a volume
    bool AllObjects;  ///< the key of all pools or of all volumes

  private:
    GUID_t guid_;
    std::string idString_;
    std::string name_;
};

/// Writes the key as two lines of elements; flags print as 0 or 1.
std::ostream& operator<<(std::ostream& stream, const PVKey& key);

/// The key of a pool, by the same three ways.
class PoolKey : public PVKey {
  public:
    PoolKey() : PVKey(true) {}
    explicit PoolKey(const GUID_t* guid) : PVKey(guid, true) {}
    explicit PoolKey(const char* name) : PVKey(name, true) {}
};

/// The key of a volume, by the same three ways.
class VolumeKey : public PVKey {
  public:
    VolumeKey() : PVKey(false) {}
    explicit VolumeKey(const GUID_t* guid) : PVKey(guid, false) {}
    explicit VolumeKey(const char* name) : PVKey(name, false) {}
};
