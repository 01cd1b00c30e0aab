// Values behind a key: "text\0key\0", in all the types that there are.

#include <cstdlib>
#include <cstring>

#include "fuzz/input.h"
#include "fuzz/property.h"
#include "util/common/errors.h"
#include "util/common/lbpMisc.h"

namespace {

template <typename Number, typename Converted>
void CheckNumber(const std::string& text, const std::string& key,
                 Converted (*convert)(const char*, char**, int)) {
    auto value = static_cast<Number>(77);
    const int status = LBP_GetValue(text.c_str(), key.c_str(), value);
    const std::size_t at = text.find(key);
    fuzz::Require((status == 0) == (at != std::string::npos), "found where the key is");
    const auto wanted =
        status == 0 ? static_cast<Number>(convert(text.c_str() + at + key.size(), nullptr, 0))
                    : static_cast<Number>(77);
    fuzz::Require(value == wanted, "the number behind the key, and none without");
}

void CheckText(const std::string& text, const std::string& key) {
    std::string value = "as it was";
    const int status = LBP_GetValue(text.c_str(), key.c_str(), value);
    const std::size_t at = text.find(key);
    const std::size_t from = at == std::string::npos ? at : at + key.size();
    const std::size_t quote = from == std::string::npos ? from : text.find('"', from);
    if (quote == std::string::npos) {
        fuzz::Require(status == (from == std::string::npos ? zERR_LIB_SEARCH_STRING_NOT_FOUND
                                                           : zERR_LIB_QUOTE_NOT_FOUND),
                      "a text that is not there");
        fuzz::Require(value == "as it was", "changes nothing");
        return;
    }
    fuzz::Require(status == 0 && value == text.substr(from, quote - from),
                  "a text up to its quote");
    for (const std::size_t room : {value.size(), value.size() + 1}) {
        const auto buffer = std::make_unique<char[]>(room);
        const int held = LBP_GetValue(text.c_str(), key.c_str(), buffer.get(), room);
        fuzz::Require((held == 0) == (room > value.size()), "fits with its end, or not at all");
        fuzz::Require(held != 0 || value == buffer.get(), "the text in a buffer");
    }
    GUID_t guid{};
    GUID_t other{};
    fuzz::Require(LBP_GetValue(text.c_str(), key.c_str(), guid) ==
                      Ostrel::LB_GUIDFromUTF8(value.c_str(), &other),
                  "a GUID where the text is one");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string text = input.Word('\0');
    const std::string key = input.Word('\0');
    CheckNumber<std::uint32_t>(text, key, std::strtoul);
    CheckNumber<std::int32_t>(text, key, std::strtol);
    CheckNumber<long>(text, key, std::strtol);
    CheckNumber<unsigned long>(text, key, std::strtoul);
    CheckNumber<unsigned long long>(text, key, std::strtoull);
    CheckNumber<bool>(text, key, std::strtoul);
    CheckText(text, key);
    return 0;
}
