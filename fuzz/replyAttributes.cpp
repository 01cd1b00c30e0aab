// Attributes of a reply's elements: "path\nattribute\nreply".

#include "fuzz/input.h"
#include "fuzz/property.h"
#include "fuzz/quiet.h"
#include "util/common/tXML.h"

namespace {

void CheckFound(const fuzz::TightText& text, const TXML::XML_ElementInfo_s& info,
                const std::string& attribute) {
    const char* start = info.attributeValueStart;
    const char* end = start + info.attributeValueLength;
    fuzz::Require(text.Holds(info.nameEnd, start) && text.Holds(start, end), "in the text");
    fuzz::Require(info.attributeValueEnd + 1 == end, "its last byte");
    fuzz::Require(start[-1] == '"' && end < text.End() && *end == '"', "between two quotes");
    const std::string_view value(start, info.attributeValueLength);
    fuzz::Require(value.find('"') == std::string_view::npos, "up to the first of them");
    const std::string_view before(info.nameEnd, static_cast<std::size_t>(start - info.nameEnd));
    fuzz::Require(before.find(attribute) != std::string_view::npos, "behind its name");
    const char* tagEnd = info.contentStart != nullptr ? info.contentStart - 1 : info.elementEnd;
    fuzz::Require(end < tagEnd, "within the start tag");
}

void CheckForms(const fuzz::TightText& text, const std::string& path, const std::string& attribute,
                int status, std::string_view value) {
    std::string asText;
    fuzz::Require(TXML::MOSTREL_GetAttribute(path.c_str(), "", attribute.c_str(), text.Size(),
                                             text.Begin(), asText) == status,
                  "the forms find the same");
    fuzz::Require(status != 0 || asText == value, "as text");
    std::int64_t number = 0;
    std::uint64_t unsignedNumber = 0;
    const int asNumber = TXML::MOSTREL_GetAttribute(path.c_str(), "", attribute.c_str(),
                                                    text.Size(), text.Begin(), number);
    fuzz::Require(
        TXML::MOSTREL_GetTagAttributeAttribute(path.c_str(), "", attribute.c_str(), text.Size(),
                                               text.Begin(), unsignedNumber) == asNumber,
        "both kinds of numbers are read alike");
    fuzz::Require(static_cast<std::uint64_t>(number) == unsignedNumber, "and are the same bits");
    std::uint64_t wanted = 0;
    const int converted =
        TXML::XML_UTF8ToQUAD(value.data(), value.data() + value.size(), wanted, nullptr);
    fuzz::Require(status != 0 || (asNumber == converted && unsignedNumber == wanted),
                  "as a number");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Quiet::Please();
    fuzz::Input input(data, size);
    const std::string path = input.Line();
    const std::string attribute = input.Line();
    const fuzz::TightText text(input.Rest());
    TXML::XML_ElementInfo_s info;
    int status = TXML::MOSTREL_GetSpecificTemplate(path.c_str(), text.Size(), text.Begin(), info);
    if (status == 0) {
        status = TXML::XML_GetTagAttribute(attribute.c_str(), info);
        if (status == 0) {
            CheckFound(text, info, attribute);
        }
    }
    const std::string_view value(info.attributeValueStart,
                                 status == 0 ? info.attributeValueLength : 0);
    CheckForms(text, path, attribute, status, value);
    return 0;
}
