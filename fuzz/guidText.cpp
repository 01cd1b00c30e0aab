// The text of a GUID: two parsers that share no code agree on every text, and what is printed is
// read back.

#include "sim/guidText.h"

#include <array>
#include <cstring>
#include <sstream>

#include "fuzz/input.h"
#include "fuzz/property.h"
#include "util/common/guid.h"

namespace {

sim::Guid BytesOf(const GUID_t& guid) {
    sim::Guid bytes{};
    std::memcpy(bytes.data(), &guid, bytes.size());
    return bytes;
}

std::string TextOf(const GUID_t& guid) {
    std::array<char, Ostrel::kGUIDTextLength + 1> text{};
    fuzz::Require(Ostrel::LB_GUIDToString(&guid, text.size(), text.data()) == 0,
                  "a GUID has a text");
    return text.data();
}

void CheckPrinting(const GUID_t& guid) {
    const std::string text = TextOf(guid);
    std::ostringstream stream;
    stream << guid;
    fuzz::Require(stream.str() == text, "both ways of printing agree");
    fuzz::Require(sim::TextOfGuid(BytesOf(guid)) == text, "both printers agree");
    GUID_t again{};
    fuzz::Require(Ostrel::LB_GUIDFromUTF8(text.c_str(), &again) == 0,
                  "what is printed can be read");
    fuzz::Require(Ostrel::LB_GUIDCompare(&guid, &again) == 0, "and is the same then");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string text = input.Word('\0');
    GUID_t guid{};
    const bool good = Ostrel::LB_GUIDFromUTF8(text.c_str(), &guid) == 0;
    const auto other = sim::GuidFromText(text);
    // A group may begin with "0x": the C library takes that for a part of a hexadecimal number.
    const bool prefixed = text.find_first_of("xX") != std::string::npos;
    fuzz::Require(prefixed || good == other.has_value(), "both parsers take the same texts");
    if (good) {
        fuzz::Require(prefixed || BytesOf(guid) == *other, "and make the same of them");
        CheckPrinting(guid);
    }
    std::string_view raw(reinterpret_cast<const char*>(data), size);
    if (raw.size() >= sizeof guid) {
        raw.copy(reinterpret_cast<char*>(&guid), sizeof guid);
        CheckPrinting(guid);
    }
    return 0;
}
