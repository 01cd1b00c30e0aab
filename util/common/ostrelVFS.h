#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "util/common/guid.h"
#include "util/common/serviceFiles.h"

/// The storage service's management file, opened and switched to a named data stream. One exchange
/// is a `Write` of the request and `Read`s from offset 0 on until one comes back short; the object
/// knows nothing of what is said. It belongs to one thread, and its destructor closes the file.
class OstrelVirtualFileServices {
  public:
    /// Channel flags of an object that was given none.
    static constexpr unsigned kDefaultFlags = 6;
    /// Channel flag: log the path when it is opened.
    static constexpr unsigned kTracePath = 0x40000000;
    /// What the stream's buffer holds, in bytes: the service takes every write for a request, so a
    /// request must leave the buffer in one.
    static constexpr std::size_t kLongestRequest = 65536;

    /// Opens (`server` prefix and) `filePath` and switches it to `dataStream`, the unnamed one when
    /// that is null. `flags` 0 is the default. Throws std::runtime_error when the file does not
    /// open or does not take the switch.
    OstrelVirtualFileServices(unsigned flags, const char* filePath, const char* server,
                              const char* dataStream);
    ~OstrelVirtualFileServices();
    OstrelVirtualFileServices(const OstrelVirtualFileServices&) = delete;
    OstrelVirtualFileServices& operator=(const OstrelVirtualFileServices&) = delete;

    /// Sends one request of `length` bytes. Throws `AdminError` with errno when it does not go out
    /// whole, with EMSGSIZE when it is longer than `kLongestRequest`.
    void Write(const char* text, std::size_t length);

    /// Reads up to `size` bytes of the reply from byte `offset` on; returns the count, 0 at its
    /// end, and writes no terminator. Throws `AdminError` with errno when reading fails, or with
    /// the service's status when the first chunk says that the request was refused.
    unsigned long Read(char* buffer, unsigned long size, std::uint32_t offset);

    /// Whether a reply of `length` bytes says that the write before it was refused; `status` is
    /// then the service's, `zERR_GENERIC_OSTREL_ERROR` if it names none, and otherwise 0.
    static bool IsFunnyErrorPresent(std::size_t length, const char* text, std::uint64_t& status);

    /// The path of the opened file, with the server's prefix.
    const std::string& Path() const { return path_; }
    /// The channel flags, never 0.
    unsigned Flags() const { return flags_; }

  private:
    void SwitchToDataStream(const char* dataStream);

    std::string path_;
    ServiceFile file_;
    std::string serverPrefix_;
    unsigned flags_;
};

/// The management commands of the storage service, one method for each request. Every method is one
/// exchange; it returns when the service says that all is well and throws otherwise: `AdminError`
/// for a failed channel or a malformed reply, `OstrelError` for a refusal.
class VFSManageCmd : public OstrelVirtualFileServices {
  public:
    /// Where a service publishes its management file.
    static constexpr const char* kManagementFile = "/_admin/Manage_OSTREL/manage.cmd";
    /// Command flag: log every reply.
    static constexpr unsigned kTraceReplies = 0x04000000;

    /// Opens the local service's; throws as `OstrelVirtualFileServices` does.
    VFSManageCmd();
    /// `flags` and `server` as `OstrelVirtualFileServices` takes them.
    VFSManageCmd(unsigned flags, const char* server);

    // Queries. A state comes as its word ("mounted" reads as "active") or as its number, 0 for a
    // word that is not known; an identifier as its text or as a GUID. Names are inserted into the
    // request as they are.
    void GetPoolState(const std::string& poolName, std::string& state);
    void GetPoolState(const std::string& poolName, unsigned* state);
    void GetPoolID(const std::string& poolName, std::string& id);
    void GetPoolID(const std::string& poolName, GUID_t* id);
    void GetVolumeState(const std::string& volumeName, std::string& state);
    void GetVolumeState(const std::string& volumeName, unsigned* state);
    void GetVolumeID(const std::string& volumeName, std::string& id);
    void GetVolumeID(const std::string& volumeName, GUID_t* id);
    /// Asks the service to bring the volume into the state of that word; it announces that first,
    /// and a consumer may refuse.
    void ChangeVolumeState(const std::string& volumeName, const std::string& state);

    // The exchanges below the queries: the whole reply, and the content of the element that
    // `replyPath` ends at.
    void PoolGetBasicInfoT(const std::string& request, const char* replyPath, std::string& reply,
                           std::string& value);
    void VolumeGetBasicInfoT(const std::string& request, const char* replyPath, std::string& reply,
                             std::string& value);
    void VolumeModifyStateActionsT(const std::string& request, std::string& reply);

    // Verify and rebuild jobs; a job is known by its user key. Action codes and option bits are in
    // ravCommands.h. A request that a name makes too long throws `OstrelError` "Internal buffer too
    // small" with `zERR_BUFFER_TOO_SMALL`.

    /// The exchange below all of them. A channel that fails is logged before the exception goes on.
    void PoolVerifyActionsT(const std::string& request, std::string& reply);

    /// Removes an item of a job, item 0 the whole job.
    void PoolRAVItemRemove(std::uint64_t userKey, std::uint32_t action, std::uint64_t itemKey,
                           std::uint32_t itemType = 0);
    /// Copies the reply to `buffer`; one that does not fit there with its terminator fails as a
    /// request that is too long. `multiple` asks for the entries of all the job's runs.
    void PoolRAVDetails(std::uint64_t userKey, std::uint32_t action, char* buffer, std::size_t size,
                        bool multiple);

    // An action that needs nothing but the job it concerns: all of them, those of a pool, the one
    // of a key, or the one that writes a result file. The whole reply goes to `reply`.
    void PoolVerifyActions(std::uint32_t action, std::string& reply);
    void PoolVerifyActions(const std::string& poolName, std::uint32_t action, std::string& reply);
    void PoolVerifyActions(std::uint64_t userKey, std::uint32_t action, std::string& reply);
    void PoolVerifyActions(std::uint64_t userKey, const std::string& fileName, std::uint32_t action,
                           std::string& reply);
    /// An action on the service's settings for jobs, which resets or reconfigures them as asked.
    void PoolVerifyActionsSet(std::uint32_t action, std::string& reply, bool reset,
                              bool reconfigure);

    /// Sends one setting, an element, to a running job.
    void RAVSet(std::uint64_t userKey, const std::string& setting);
    // The settings that are known; options are bits of `RAVUIOption`.
    void RAVSetUIPruneStatus(std::uint64_t userKey, std::uint32_t value);
    void RAVSetUIOptions(std::uint64_t userKey, std::uint32_t value);
    void RAVSetDebugLevel(std::uint64_t userKey, std::uint32_t value);

    /// The volume and the path of the object of that internal number.
    void ReverseNameLookup(std::uint64_t zid, std::uint32_t nameSpace, std::uint32_t nameType,
                           const GUID_t& volumeID, std::string& volume, std::string& path);

    /// Starts to verify a pool, which must be in maintenance; `userKey` receives the job's key.
    void PoolVerifyStartT(const std::string& poolName, std::uint64_t& userKey, bool crossValidation,
                          std::uint32_t options, std::uint32_t debugLevel);
    /// Starts to rebuild a pool, which must be in maintenance; `userKey` receives the job's key and
    /// `flags` are bits of `RAVRebuildFlag`.
    void PoolRebuildStartT(const std::string& poolName, std::uint64_t& userKey,
                           std::uint64_t threshold, std::uint32_t options, std::uint32_t debugLevel,
                           std::uint64_t fileLossMax, std::uint32_t flags);
    /// The versions of the commands and of their XML.
    void zPoolVersionInformationT(std::uint32_t& major, std::uint32_t& minor,
                                  std::uint32_t& xmlMajor, std::uint32_t& xmlMinor);

    // Each reads one number of the first entry of a job's details, and throws `OstrelError` when
    // there is none. Who set a final status is told beside it.
    std::int32_t PoolVerifyStatusFromCommonLayer(std::uint64_t userKey);
    std::int32_t PoolRebuildStatusFromCommonLayer(std::uint64_t userKey);
    std::int32_t PoolVerifyFinalStatusFromCommonLayer(std::uint64_t userKey, std::int32_t& setter);
    std::int32_t PoolRebuildFinalStatusFromCommonLayer(std::uint64_t userKey, std::int32_t& setter);
    std::int32_t PoolVerifyStateFromCommonLayer(std::uint64_t userKey);
    std::int32_t PoolRebuildStateFromCommonLayer(std::uint64_t userKey);

    /// Reads a job's result file from the service's name space, that of 64-bit identifiers with
    /// `layout64`. Throws `AdminError` when it cannot be read or does not belong to `userKey`.
    static void OpenAndReadXMLT(const std::string& poolName, const std::string& file,
                                std::uint64_t userKey, std::string& contents, bool layout64);

  protected:
    /// For subclasses that trace.
    void SetCommandFlags(unsigned flags) { commandFlags_ = flags; }

  private:
    struct InfoQuery;

    void GetBasicInfo(const InfoQuery& query, const std::string& request, const char* replyPath,
                      std::string& reply, std::string& value);
    std::string State(const InfoQuery& query, const std::string& name);
    std::string ID(const InfoQuery& query, const std::string& name);
    void ConvertID(const InfoQuery& query, const std::string& text, GUID_t* id);
    std::string Exchange(const std::string& request, std::size_t chunkSize,
                         const char* tracePosition);
    std::string ReadReply(std::size_t chunkSize);
    void Trace(const char* position, const std::string& reply) const;

    std::uint64_t StartJob(const std::string& request);
    std::string JobDetails(std::uint64_t userKey, std::uint32_t action, bool multiple);

    unsigned commandFlags_ = 6;
};
