#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Scans the service's replies in place, without a tree and without allocating. A range runs from
/// `from` up to, and not including, `end`: nothing at or behind `end` is ever read, so a text needs
/// no terminator. Statuses are 0 or a catalogue number, `zERR_XML_IS_INCOMPLETE` whenever a tag is
/// not there or the range ends too early. The functions keep no state: any thread may call them.
///
/// A tag path is a text of tags one after the other, such as "<ostrelReply><pool>"; it names every
/// level from the root down, and each name is compared byte for byte.
namespace TXML {

/// Where an element stands in its text. The ends of content and value are their last bytes, so the
/// lengths say more: an empty one ends before it starts.
struct XML_ElementInfo_s {
    const char* nameEnd = nullptr;       ///< behind the name in the start tag: the attributes
    const char* elementEnd = nullptr;    ///< the element's last ">"
    const char* contentStart = nullptr;  ///< null for a self-closing element
    const char* contentEnd = nullptr;    ///< null for a self-closing element
    std::uint64_t contentLength = 0;
    const char* attributeValueStart = nullptr;  ///< of the attribute last looked up
    const char* attributeValueEnd = nullptr;
    std::uint64_t attributeValueLength = 0;
};
static_assert(sizeof(XML_ElementInfo_s) == 64);

// Elements.

/// Finds the next start tag and its element's end; `name` and `nameLength` give its name, empty
/// where the "<" is followed by "/" or ">".
int XML_GetNextTag(const char* from, const char* end, XML_ElementInfo_s& info, const char*& name,
                   std::size_t& nameLength);

/// Completes `info` for the element of that name whose start tag is being read at `from`, which
/// lies at or behind `name`.
int XML_FindEndOfElement(const char* name, std::size_t nameLength, const char* from,
                         const char* end, XML_ElementInfo_s& info);

/// Finds the element of that name among the siblings from `from` on; what stands inside a sibling
/// is not looked at.
int XML_GetTagElementAtCurrentLevel(const char* name, const char* from, const char* end,
                                    XML_ElementInfo_s& info);

/// Finds the first element of that name in the text, however deep it stands.
int XML_GetTagElement(const char* text, const char* name, const char* end, XML_ElementInfo_s& info);

/// The last "[" of a "<![CDATA[" at `at`, else null.
const char* XML_atStartCDATA(const char* at, const char* end);

/// The ">" of a "]]>" at `at`, else null.
const char* XML_atEndCDATA(const char* at, const char* end);

/// The content from `start` up to `end` without a CDATA wrapper around it.
std::string_view XML_stripCDATA(const char* start, const char* end);

/// Advances the cursor over white space, to `end` at most.
void XML_skipWhiteSpace(const char*& cursor, const char* end);

/// Advances the cursor to the last byte before the next white space or `end`.
void XML_findEndOfNonWhiteSpace(const char*& cursor, const char* end);

/// Logs the text from `start` up to `end` as one entry.
void XML_Display(const char* start, const char* end);

// Attributes and numbers.

/// Locates an attribute's value in the start tag of the element that `info` describes. Only double
/// quotes are known, and the name may be the tail of a longer one.
int XML_GetTagAttribute(const char* attribute, XML_ElementInfo_s& info);

/// Converts the run of non-blank bytes behind white space, with the base of its prefix (decimal,
/// 0x, 0); what follows the digits is ignored. `next`, when given, receives the end of the run.
/// `zERR_BAD_TRANSFORMATION` when there is no run, `zERR_BUFFER_TOO_SMALL` when it is longer than
/// 79 bytes.
int XML_UTF8ToQUAD(const char* start, const char* end, std::uint64_t& value,
                   const char** next = nullptr);

/// `XML_UTF8ToQUAD` with the same 64 bits as a signed number.
int XML_UTF8ToSQUAD(const char* start, const char* end, std::int64_t& value,
                    const char** next = nullptr);

// Tag paths. A reply is `text` of `length` bytes.

/// Copies the next tag name of a path; `next` receives the ">" behind it, or the path's end.
/// `zERR_RETURN_PARA_NULL` when the path has no further tag, `zERR_BUFFER_TOO_SMALL` for a long
/// name, `zERR_BAD_PARAMETER_VALUE` without a path or a buffer.
int MOSTREL_GetNextTagString(const char* path, const char** next, std::size_t size, char* buffer);

/// Finds the element that a path ends at; the empty path stands for the whole text.
int MOSTREL_GetSpecificTemplate(const char* path, std::size_t length, const char* text,
                                XML_ElementInfo_s& info);

/// The content of the element that a path ends at, without a CDATA wrapper; white space and
/// entities stay as they are.
int MOSTREL_GetSpecificTemplate(const char* path, std::size_t length, const char* text,
                                std::string& content);

/// Finds the "<result>" right below the element that a path ends at.
int MOSTREL_GetResultTemplate(const char* path, std::size_t length, const char* text,
                              XML_ElementInfo_s& info);

/// Finds the element of a second path `tag` inside the element that `path` ends at.
int MOSTREL_GetTagTemplate(const char* path, const char* tag, std::size_t length, const char* text,
                           XML_ElementInfo_s& info);

/// `MOSTREL_GetTagTemplate` under its second name.
int MOSTREL_GetTemplate(const char* path, const char* tag, std::size_t length, const char* text,
                        XML_ElementInfo_s& info);

/// An attribute's value as text.
int MOSTREL_GetAttribute(const char* path, const char* tag, const char* attribute,
                         std::size_t length, const char* text, std::string& value);

/// An attribute's value as a signed number.
int MOSTREL_GetAttribute(const char* path, const char* tag, const char* attribute,
                         std::size_t length, const char* text, std::int64_t& value);

/// An attribute's value as an unsigned number, for keys that use all 64 bits.
int MOSTREL_GetTagAttributeAttribute(const char* path, const char* tag, const char* attribute,
                                     std::size_t length, const char* text, std::uint64_t& value);

/// Fills one content for each path of `requests` below the element that `info` describes, empty
/// where there is none; the status is that of the first one missing.
int MOSTREL_GetTagContents(const XML_ElementInfo_s& info, std::span<const char* const> requests,
                           std::vector<std::string>& contents);

/// The number in the "value" attribute of the "<result>" below the path's element. A missing or
/// empty attribute is a success that leaves `value` as it was.
int MOSTREL_GetResultValueAttribute(const char* path, std::size_t length, const char* text,
                                    std::int64_t& value);

// Reply checks. The throwing ones (...T) return when the result is 0, and otherwise throw
// `AdminError` for a reply that holds no result, `OstrelError` with `zERR_QUAD_TOO_BIG_FOR_LONG`
// for one beyond 32 bits, and `OstrelError` with the service's own status for a refusal.

/// Whether a number that the service sent is one of 32 bits, as statuses are.
bool FitsStatus(std::int64_t value);

/// Checks the result right below the element that `path` ends at.
void GetReplyResultValueT(const std::string& reply, const char* path);

/// `GetReplyResultValueT` for the path `tag` below the reply's root.
void GetReplyResultValueForTag(const std::string& reply, const char* tag);

/// Checks the result of the reply as a whole, right below its root.
void GetOstrelReplyResultValueT(const std::string& reply);

/// 0 and the result in `value`, or the status that the throwing form would carry.
int GetOstrelReplyResultValue(const std::string& reply, int& value);

// The operations' own results; a refusal logs the whole reply.
void GetPoolBasicInfoReplyResultValueT(const std::string& reply);
void GetVolumeBasicInfoReplyResultValueT(const std::string& reply);
void GetVolumeModifyStateReplyResultValueT(const std::string& reply);
void GetPoolVerifyReplyResultValueT(const std::string& reply);

/// As `GetOstrelReplyResultValue`, for the verify and rebuild commands' own result.
int GetPoolVerifyReplyResultValue(const std::string& reply, int& value);

}  // namespace TXML
