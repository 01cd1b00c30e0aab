#include <vector>

#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/ostrelVFS.h"
#include "util/common/tXML.h"

/// What differs between asking after a pool and after a volume. The start tags of the requests are
/// closed right behind their names and the type stands in the content: the service relies on the
/// request in this form, byte for byte.
struct VFSManageCmd::InfoQuery {
    const char* requestStart;
    const char* requestEnd;
    const char* statePath;
    const char* idPath;
    void (*checkResult)(const std::string& reply);
    const char* parseMessage;
    const char* parsePosition;
    const char* idMessage;
    const char* idPosition;
    const char* tracePosition;

    static const InfoQuery kPool;
    static const InfoQuery kVolume;
};

constexpr VFSManageCmd::InfoQuery VFSManageCmd::InfoQuery::kPool{
    "<ostrelRequest><pool><getPoolInfo> type=\"basic\"><poolName>",
    "</poolName></getPoolInfo></pool></ostrelRequest>",
    "<ostrelReply><pool><getPoolInfo><basicInfo><poolState>",
    "<ostrelReply><pool><getPoolInfo><basicInfo><poolGUID>",
    TXML::GetPoolBasicInfoReplyResultValueT,
    "Unable to parse XML tag <getPoolInfo>",
    "util/common/ostrelVFS[1612]",
    "Unable to parse Pool ID string",
    "util/common/ostrelVFS[1661]",
    "util/common/ostrelVFS[1603]"};

constexpr VFSManageCmd::InfoQuery VFSManageCmd::InfoQuery::kVolume{
    "<ostrelRequest><volume><getVolumeInfo> type=\"basic\"><volumeName>",
    "</volumeName></getVolumeInfo></volume></ostrelRequest>",
    "<ostrelReply><volume><getVolumeInfo><basicInfo><volumeState>",
    "<ostrelReply><volume><getVolumeInfo><basicInfo><volumeGUID>",
    TXML::GetVolumeBasicInfoReplyResultValueT,
    "Unable to parse XML tag <getVolumeInfo>",
    "util/common/ostrelVFS[1503]",
    "Unable to parse Volume ID string",
    "util/common/ostrelVFS[1519]",
    "util/common/ostrelVFS[1494]"};

namespace {

constexpr const char* kDataStream = "command";
constexpr unsigned kLocalFlags = 4;
constexpr std::size_t kInfoChunk = 2048;
constexpr std::size_t kModifyChunk = 1024;

unsigned StateNumber(const std::string& word) {
    return Ostrel::LB_VolumeStateStringToVolumeStateNumber(word.c_str());
}

}  // namespace

VFSManageCmd::VFSManageCmd() : VFSManageCmd(kLocalFlags, nullptr) {}

VFSManageCmd::VFSManageCmd(unsigned flags, const char* server)
    : OstrelVirtualFileServices(flags, kManagementFile, server, kDataStream) {}

void VFSManageCmd::GetPoolState(const std::string& poolName, std::string& state) {
    state = State(InfoQuery::kPool, poolName);
}

void VFSManageCmd::GetPoolState(const std::string& poolName, unsigned* state) {
    *state = StateNumber(State(InfoQuery::kPool, poolName));
}

void VFSManageCmd::GetPoolID(const std::string& poolName, std::string& id) {
    id = ID(InfoQuery::kPool, poolName);
}

void VFSManageCmd::GetPoolID(const std::string& poolName, GUID_t* id) {
    ConvertID(InfoQuery::kPool, ID(InfoQuery::kPool, poolName), id);
}

void VFSManageCmd::GetVolumeState(const std::string& volumeName, std::string& state) {
    state = State(InfoQuery::kVolume, volumeName);
}

void VFSManageCmd::GetVolumeState(const std::string& volumeName, unsigned* state) {
    *state = StateNumber(State(InfoQuery::kVolume, volumeName));
}

void VFSManageCmd::GetVolumeID(const std::string& volumeName, std::string& id) {
    id = ID(InfoQuery::kVolume, volumeName);
}

void VFSManageCmd::GetVolumeID(const std::string& volumeName, GUID_t* id) {
    ConvertID(InfoQuery::kVolume, ID(InfoQuery::kVolume, volumeName), id);
}

void VFSManageCmd::ChangeVolumeState(const std::string& volumeName, const std::string& state) {
    std::string reply;
    VolumeModifyStateActionsT("<ostrelRequest><volume><modifyState><volumeName>" + volumeName +
                                  "</volumeName><volumeState>" + state +
                                  "</volumeState></modifyState></volume></ostrelRequest>",
                              reply);
}

void VFSManageCmd::PoolGetBasicInfoT(const std::string& request, const char* replyPath,
                                     std::string& reply, std::string& value) {
    GetBasicInfo(InfoQuery::kPool, request, replyPath, reply, value);
}

void VFSManageCmd::VolumeGetBasicInfoT(const std::string& request, const char* replyPath,
                                       std::string& reply, std::string& value) {
    GetBasicInfo(InfoQuery::kVolume, request, replyPath, reply, value);
}

void VFSManageCmd::VolumeModifyStateActionsT(const std::string& request, std::string& reply) {
    reply = Exchange(request, kModifyChunk, "util/common/ostrelVFS[1433]");
    TXML::GetOstrelReplyResultValueT(reply);
    TXML::GetVolumeModifyStateReplyResultValueT(reply);
}

void VFSManageCmd::GetBasicInfo(const InfoQuery& query, const std::string& request,
                                const char* replyPath, std::string& reply, std::string& value) {
    // From the outside in: a reply that failed as a whole need not have the operation's element.
    reply = Exchange(request, kInfoChunk, query.tracePosition);
    TXML::GetOstrelReplyResultValueT(reply);
    query.checkResult(reply);
    const int status =
        TXML::MOSTREL_GetSpecificTemplate(replyPath, reply.size(), reply.data(), value);
    if (status != 0) {
        throw AdminError(query.parseMessage, status, query.parsePosition);
    }
}

std::string VFSManageCmd::State(const InfoQuery& query, const std::string& name) {
    std::string reply;
    std::string state;
    GetBasicInfo(query, query.requestStart + name + query.requestEnd, query.statePath, reply,
                 state);
    // The service has two words for one state.
    return state == "mounted" ? "active" : state;
}

std::string VFSManageCmd::ID(const InfoQuery& query, const std::string& name) {
    std::string reply;
    std::string id;
    GetBasicInfo(query, query.requestStart + name + query.requestEnd, query.idPath, reply, id);
    return id;
}

void VFSManageCmd::ConvertID(const InfoQuery& query, const std::string& text, GUID_t* id) {
    if (const int status = Ostrel::LB_GUIDFromUTF8(text.c_str(), id); status != 0) {
        throw AdminError(query.idMessage, status, query.idPosition);
    }
}

std::string VFSManageCmd::Exchange(const std::string& request, std::size_t chunkSize,
                                   const char* tracePosition) {
    Write(request.data(), request.size());
    std::string reply = ReadReply(chunkSize);
    Trace(tracePosition, reply);
    return reply;
}

std::string VFSManageCmd::ReadReply(std::size_t chunkSize) {
    std::string reply;
    std::vector<char> chunk(chunkSize + 1);
    std::uint32_t offset = 0;
    for (std::size_t count = chunkSize; count == chunkSize;) {
        // A chunk that is full does not tell whether it was the last.
        count = Read(chunk.data(), chunkSize, offset);
        offset += static_cast<std::uint32_t>(count);
        chunk[count] = '\0';
        // A reply is text: a zero byte ends what its chunk has to say.
        reply += chunk.data();
    }
    return reply;
}

void VFSManageCmd::Trace(const char* position, const std::string& reply) const {
    if ((commandFlags_ & kTraceReplies) != 0) {
        LogLine() << position << " -->" << reply << "<--\n";
    }
}
