#include "util/common/pvKey.h"

#include <ostream>
#include <stdexcept>

#include "util/common/ostrelVFS.h"

PVKey::PVKey(const GUID_t* guid, bool isPool)
    : IsPool(isPool), AllObjects(false), guid_(*guid), name_("_Unknown_Name_") {
    SetIDString();
}

PVKey::PVKey(const char* name, bool isPool)
    : IsPool(isPool), AllObjects(false), guid_(zZERO_GUID), name_(name) {
    {
        // The management file is open for the question alone.
        VFSManageCmd command;
        if (IsPool) {
            command.GetPoolID(name_, &guid_);
        } else {
            command.GetVolumeID(name_, &guid_);
        }
    }
    SetIDString();
}

PVKey::PVKey(bool isPool) : IsPool(isPool), AllObjects(true), guid_(zZERO_GUID), name_("all") {
    SetIDString();
}

// Asked by the name, which may have passed to another object since the key was made; events go by
// the GUID.
std::uint32_t PVKey::GetState() const {
    VFSManageCmd command;
    unsigned state = 0;
    if (IsPool) {
        command.GetPoolState(name_, &state);
    } else {
        command.GetVolumeState(name_, &state);
    }
    return state;
}

bool PVKey::IsMatch(const GUID_t* guid) const {
    return AllObjects || Ostrel::LB_GUIDCompare(&guid_, guid) == 0;
}

void PVKey::SetIDString() {
    char text[Ostrel::kGUIDTextLength + 1] = "";
    if (Ostrel::LB_GUIDToString(&guid_, sizeof text, text) != 0) {
        throw std::invalid_argument("Could not convert ID into a string");
    }
    idString_ = text;
}

std::ostream& operator<<(std::ostream& stream, const PVKey& key) {
    const auto flag = [](bool value) { return value ? '1' : '0'; };
    return stream << "<PVKey><IsPool>" << flag(key.IsPool) << "</IsPool><AllObjects>"
                  << flag(key.AllObjects) << "</AllObjects>\n<Name>" << key.Name() << "</Name><ID>"
                  << key.IDString() << "</ID></PVKey>\n";
}
