#include "util/common/ravCommands.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "util/common/errors.h"
#include "util/common/lbpMisc.h"
#include "util/common/log.h"
#include "util/common/ostrelVFS.h"
#include "util/common/tXML.h"

namespace {

// The fixed-form requests, as printf knows them.
constexpr char kItemRemoveRequest[] =
    "<ostrelRequest><pool><poolVerify><userKey>%llu</userKey><action>%u</action>"
    "<itemKey>%llu</itemKey><itemType>%u</itemType></poolVerify></pool></ostrelRequest>";
constexpr char kDetailsMultipleRequest[] =
    "<ostrelRequest><pool><poolVerify><userKey>%llu</userKey><action>%u</action><multiple/>"
    "</poolVerify></pool></ostrelRequest>";
constexpr char kActionRequest[] =
    "<ostrelRequest><pool><poolVerify><action>%u</action></poolVerify></pool></ostrelRequest>";
constexpr char kPoolRequest[] =
    "<ostrelRequest><pool><poolVerify><poolName>%s</poolName><action>%u</action>"
    "</poolVerify></pool></ostrelRequest>";
constexpr char kJobRequest[] =
    "<ostrelRequest><pool><poolVerify><userKey>%llu</userKey><action>%u</action>"
    "</poolVerify></pool></ostrelRequest>";
constexpr char kFileRequest[] =
    "<ostrelRequest><pool><poolVerify><fileName>%s</fileName><userKey>%llu</userKey>"
    "<action>%u</action></poolVerify></pool></ostrelRequest>";

// The others are put together from their elements.
constexpr const char* kRequestStart = "<ostrelRequest><pool><poolVerify>";
constexpr const char* kRequestEnd = "</poolVerify></pool></ostrelRequest>";

constexpr const char* kReplyPath = "<ostrelReply><pool><poolVerify>";
constexpr const char* kVerifyEntry = "<ostrelReply><pool><poolVerify><verifyDetails><entry>";
constexpr const char* kRebuildEntry = "<ostrelReply><pool><poolVerify><rebuildDetails><entry>";

constexpr std::size_t kReplyChunk = 2048;
constexpr std::size_t kRequestSize = 1024;

constexpr struct {
    std::uint32_t flag;
    const char* element;
} kRebuildElements[] = {{kRAVRebuildPruneWait, "<uiPruneWait/>"},
                        {kRAVRebuildPurge, "<purge/>"},
                        {kRAVRebuildPruneIV, "<pruneIV/>"},
                        {kRAVRebuildPruneUnknownLosses, "<pruneUnknownLosses/>"}};

/// One number of a job's details: the element whose value it is, and what its failures say.
struct StatusElement {
    const char* name;
    const char* obtainMessage;
    const char* obtainPosition;
    const char* parseMessage;
    const char* parsePosition;
};

constexpr StatusElement kRAVStatus{
    "ravStatus", "Could not obtain rav thread status", "util/common/ostrelVFS[534]",
    "Could not parse rav thread status", "util/common/ostrelVFS[541]"};
constexpr StatusElement kFinalStatus{
    "finalStatus", "Could not obtain rav thread final status", "util/common/ostrelVFS[582]",
    "Could not parse rav thread final status", "util/common/ostrelVFS[589]"};
constexpr StatusElement kFinalStatusSetter{
    "finalStatusSetter", "Could not obtain rav thread final status", "util/common/ostrelVFS[597]",
    "Could not parse rav thread final status", "util/common/ostrelVFS[604]"};
constexpr StatusElement kState{"state", "Could not obtain rav thread state",
                               "util/common/ostrelVFS[645]", "Could not parse rav thread state",
                               "util/common/ostrelVFS[652]"};

[[noreturn]] void ThrowBufferTooSmall() {
    throw OstrelError("Internal buffer too small", zERR_BUFFER_TOO_SMALL,
                      "util/common/ostrelVFS[702]");
}

template <std::size_t size, typename... Arguments>
std::string Formatted(const char (&form)[size], Arguments... arguments) {
    char request[kRequestSize] = "";
    const int length = std::snprintf(request, sizeof request, form, arguments...);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof request) {
        ThrowBufferTooSmall();
    }
    return request;
}

unsigned long long Wide(std::uint64_t number) {
    return number;
}

std::string Element(const std::string& name, const std::string& content) {
    return "<" + name + ">" + content + "</" + name + ">";
}

std::string Element(const std::string& name, std::uint64_t number) {
    return Element(name, std::to_string(number));
}

std::string Request(const std::string& elements) {
    return kRequestStart + elements + kRequestEnd;
}

/// The number in the "value" attribute of an element of the commands' reply.
std::uint64_t ReplyNumber(const std::string& reply, const char* tag) {
    std::uint64_t value = 0;
    const int status = TXML::MOSTREL_GetTagAttributeAttribute(kReplyPath, tag, "value",
                                                              reply.size(), reply.data(), value);
    if (status != 0) {
        throw AdminError(std::string("Unable to parse XML tag ") + tag, status,
                         "util/common/ostrelVFS[731]");
    }
    return value;
}

std::string ReplyText(const std::string& reply, const char* tag) {
    std::string content;
    const int status = TXML::MOSTREL_GetSpecificTemplate((std::string(kReplyPath) + tag).c_str(),
                                                         reply.size(), reply.data(), content);
    if (status != 0) {
        throw AdminError(std::string("Unable to parse XML tag ") + tag, status,
                         "util/common/ostrelVFS[742]");
    }
    return content;
}

/// The number in the "value" attribute of the element that `info` describes.
int StatusValue(TXML::XML_ElementInfo_s& info, std::int32_t& value) {
    if (const int status = TXML::XML_GetTagAttribute("value", info); status != 0) {
        return status;
    }
    const char* start = info.attributeValueStart;
    std::int64_t wide = 0;
    if (const int status = TXML::XML_UTF8ToSQUAD(start, start + info.attributeValueLength, wide);
        status != 0) {
        return status;
    }
    value = static_cast<std::int32_t>(wide);
    return TXML::FitsStatus(wide) ? 0 : zERR_QUAD_TOO_BIG_FOR_LONG;
}

std::int32_t EntryValue(const std::string& details, const char* entryPath,
                        const StatusElement& element) {
    TXML::XML_ElementInfo_s info;
    int status = TXML::MOSTREL_GetSpecificTemplate(entryPath, details.size(), details.data(), info);
    if (status != 0) {
        LogLine() << "util/common/ostrelVFS[688] Matching operation key not found\n";
    } else {
        const char* start = info.contentStart;
        status = TXML::XML_GetTagElementAtCurrentLevel(element.name, start,
                                                       start + info.contentLength, info);
    }
    if (status != 0) {
        throw OstrelError(element.obtainMessage, status, element.obtainPosition);
    }
    std::int32_t value = 0;
    if (status = StatusValue(info, value); status != 0) {
        throw OstrelError(element.parseMessage, status, element.parsePosition);
    }
    return value;
}

std::int32_t FinalStatus(const std::string& details, const char* entryPath, std::int32_t& setter) {
    const std::int32_t status = EntryValue(details, entryPath, kFinalStatus);
    setter = EntryValue(details, entryPath, kFinalStatusSetter);
    return status;
}

void LogChannelException(const char* what, const OstrelError& error) {
    LogLine() << "Exception while attempting to " << what
              << " VFSManageCmd Object:  " << error.what() << " (" << error.status << ")\n";
}

/// The whole file, or `AdminError` with errno.
std::string ReadWhole(const std::string& path) {
    constexpr const char* kFailure = "Unable to read XML file";
    constexpr const char* kPosition = "util/common/ostrelVFS[1718]";
    const ServiceFile file = OpenServiceFile(path.c_str(), "rb");
    if (file == nullptr) {
        throw AdminError(kFailure, kPosition, errno);
    }
    std::string text;
    char chunk[kReplyChunk];
    for (std::size_t count = sizeof chunk; count == sizeof chunk;) {
        count = std::fread(chunk, 1, sizeof chunk, file.get());
        text.append(chunk, count);
    }
    if (std::ferror(file.get()) != 0) {
        throw AdminError(kFailure, kPosition, errno);
    }
    return text;
}

}  // namespace

void VFSManageCmd::PoolVerifyActionsT(const std::string& request, std::string& reply) {
    try {
        Write(request.data(), request.size());
    } catch (const OstrelError& error) {
        LogChannelException("write to", error);
        throw;
    }
    try {
        reply = ReadReply(kReplyChunk);
    } catch (const OstrelError& error) {
        LogChannelException("read from", error);
        throw;
    }
    Trace("util/common/ostrelVFS[768]", reply);
    TXML::GetOstrelReplyResultValueT(reply);
    TXML::GetPoolVerifyReplyResultValueT(reply);
}

void VFSManageCmd::PoolRAVItemRemove(std::uint64_t userKey, std::uint32_t action,
                                     std::uint64_t itemKey, std::uint32_t itemType) {
    std::string reply;
    PoolVerifyActionsT(
        Formatted(kItemRemoveRequest, Wide(userKey), action, Wide(itemKey), itemType), reply);
}

void VFSManageCmd::PoolRAVDetails(std::uint64_t userKey, std::uint32_t action, char* buffer,
                                  std::size_t size, bool multiple) {
    const std::string details = JobDetails(userKey, action, multiple);
    if (details.size() >= size) {
        ThrowBufferTooSmall();
    }
    std::memcpy(buffer, details.c_str(), details.size() + 1);
}

std::string VFSManageCmd::JobDetails(std::uint64_t userKey, std::uint32_t action, bool multiple) {
    std::string reply;
    PoolVerifyActionsT(multiple ? Formatted(kDetailsMultipleRequest, Wide(userKey), action)
                                : Formatted(kJobRequest, Wide(userKey), action),
                       reply);
    return reply;
}

void VFSManageCmd::PoolVerifyActions(std::uint32_t action, std::string& reply) {
    PoolVerifyActionsT(Formatted(kActionRequest, action), reply);
}

void VFSManageCmd::PoolVerifyActions(const std::string& poolName, std::uint32_t action,
                                     std::string& reply) {
    PoolVerifyActionsT(Formatted(kPoolRequest, poolName.c_str(), action), reply);
}

void VFSManageCmd::PoolVerifyActions(std::uint64_t userKey, std::uint32_t action,
                                     std::string& reply) {
    PoolVerifyActionsT(Formatted(kJobRequest, Wide(userKey), action), reply);
}

void VFSManageCmd::PoolVerifyActions(std::uint64_t userKey, const std::string& fileName,
                                     std::uint32_t action, std::string& reply) {
    PoolVerifyActionsT(Formatted(kFileRequest, fileName.c_str(), Wide(userKey), action), reply);
}

void VFSManageCmd::PoolVerifyActionsSet(std::uint32_t action, std::string& reply, bool reset,
                                        bool reconfigure) {
    PoolVerifyActionsT(Request(Element("action", action) + (reset ? "<reset/>" : "") +
                               (reconfigure ? "<reconfigure/>" : "")),
                       reply);
}

void VFSManageCmd::RAVSet(std::uint64_t userKey, const std::string& setting) {
    std::string reply;
    PoolVerifyActionsT(
        Request(Element("userKey", userKey) + Element("action", kRAVSetOptions) + setting), reply);
}

void VFSManageCmd::RAVSetUIPruneStatus(std::uint64_t userKey, std::uint32_t value) {
    RAVSet(userKey, Element("uiPruneStatus", value));
}

void VFSManageCmd::RAVSetUIOptions(std::uint64_t userKey, std::uint32_t value) {
    RAVSet(userKey, Element("uiOptions", value));
}

void VFSManageCmd::RAVSetDebugLevel(std::uint64_t userKey, std::uint32_t value) {
    RAVSet(userKey, Element("debugLevel", value));
}

void VFSManageCmd::ReverseNameLookup(
    std::uint64_t zid, std::uint32_t nameSpace, std::uint32_t nameType, const GUID_t& volumeID,
    // NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
    std::string& volume, std::string& path) {
    char volumeText[Ostrel::kGUIDTextLength + 1] = "";
    Ostrel::LB_GUIDToString(&volumeID, sizeof volumeText, volumeText);
    std::string reply;
    PoolVerifyActionsT(Request(Element("action", kRAVReverseNameLookup) + Element("zid", zid) +
                               Element("nameSpace", nameSpace) + Element("nameType", nameType) +
                               Element("volumeID", volumeText)),
                       reply);
    volume = ReplyText(reply, "<volume>");
    path = ReplyText(reply, "<path>");
}

void VFSManageCmd::PoolVerifyStartT(const std::string& poolName, std::uint64_t& userKey,
                                    bool crossValidation, std::uint32_t options,
                                    std::uint32_t debugLevel) {
    userKey = StartJob(Request(Element("action", kRAVVerifyStart) + Element("poolName", poolName) +
                               Element("uiOptions", options) + Element("debugLevel", debugLevel) +
                               (crossValidation ? "<crossValidation/>" : "")));
}

void VFSManageCmd::PoolRebuildStartT(const std::string& poolName, std::uint64_t& userKey,
                                     std::uint64_t threshold, std::uint32_t options,
                                     std::uint32_t debugLevel, std::uint64_t fileLossMax,
                                     std::uint32_t flags) {
    std::string elements = Element("action", kRAVRebuildStart) + Element("poolName", poolName) +
                           Element("rezidThreshold", threshold) + Element("uiOptions", options) +
                           Element("debugLevel", debugLevel) + Element("fileLossMax", fileLossMax);
    for (const auto& [flag, element] : kRebuildElements) {
        elements += (flags & flag) != 0 ? element : "";
    }
    userKey = StartJob(Request(elements));
}

std::uint64_t VFSManageCmd::StartJob(const std::string& request) {
    std::string reply;
    PoolVerifyActionsT(request, reply);
    return ReplyNumber(reply, "<userKey>");
}

void VFSManageCmd::zPoolVersionInformationT(std::uint32_t& major, std::uint32_t& minor,
                                            std::uint32_t& xmlMajor, std::uint32_t& xmlMinor) {
    std::string reply;
    PoolVerifyActions(kRAVVersionInformation, reply);
    const struct {
        const char* tag;
        std::uint32_t& number;
    } numbers[] = {{"<versionMajor>", major},
                   {"<versionMinor>", minor},
                   {"<xmlVersionMajor>", xmlMajor},
                   {"<xmlVersionMinor>", xmlMinor}};
    for (const auto& [tag, number] : numbers) {
        number = static_cast<std::uint32_t>(ReplyNumber(reply, tag));
    }
}

std::int32_t VFSManageCmd::PoolVerifyStatusFromCommonLayer(std::uint64_t userKey) {
    return EntryValue(JobDetails(userKey, kRAVVerifyDetails, false), kVerifyEntry, kRAVStatus);
}

std::int32_t VFSManageCmd::PoolRebuildStatusFromCommonLayer(std::uint64_t userKey) {
    return EntryValue(JobDetails(userKey, kRAVRebuildDetails, false), kRebuildEntry, kRAVStatus);
}

std::int32_t VFSManageCmd::PoolVerifyFinalStatusFromCommonLayer(std::uint64_t userKey,
                                                                std::int32_t& setter) {
    return FinalStatus(JobDetails(userKey, kRAVVerifyDetails, false), kVerifyEntry, setter);
}

std::int32_t VFSManageCmd::PoolRebuildFinalStatusFromCommonLayer(std::uint64_t userKey,
                                                                 std::int32_t& setter) {
    return FinalStatus(JobDetails(userKey, kRAVRebuildDetails, false), kRebuildEntry, setter);
}

std::int32_t VFSManageCmd::PoolVerifyStateFromCommonLayer(std::uint64_t userKey) {
    return EntryValue(JobDetails(userKey, kRAVVerifyDetails, false), kVerifyEntry, kState);
}

std::int32_t VFSManageCmd::PoolRebuildStateFromCommonLayer(std::uint64_t userKey) {
    return EntryValue(JobDetails(userKey, kRAVRebuildDetails, false), kRebuildEntry, kState);
}

void VFSManageCmd::OpenAndReadXMLT(const std::string& poolName, const std::string& file,
                                   std::uint64_t userKey, std::string& contents, bool layout64) {
    contents = ReadWhole("/_admin/Manage_OSTREL/Pool/" + poolName +
                         (layout64 ? "/KUVO64/" : "/KUVO/") + file);
    // A file of that name may be an older job's: the key in it says whose it is.
    unsigned long long key = 0;
    if (LBP_GetValue(contents.c_str(), "<userKey value=\"", key) != 0) {
        throw AdminError("XML file must have <userKey>, but none found.", zERR_XML_IS_INCOMPLETE,
                         "util/common/ostrelVFS[1731]");
    }
    if (key != userKey) {
        throw AdminError("XML file is not for specified key", zERR_XML_IS_INCOMPLETE,
                         "util/common/ostrelVFS[1737]");
    }
}
