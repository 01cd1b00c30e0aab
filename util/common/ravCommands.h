#pragma once

#include <cstdint>

// What the verify and rebuild commands of `VFSManageCmd` put into their requests: the only place
// that knows the numbers.

/// What a request asks of a job.
enum RAVAction : std::uint32_t {
    kRAVVerifyStart = 1,
    kRAVRebuildStart = 2,
    kRAVVerifyDetails = 3,
    kRAVRebuildDetails = 4,
    kRAVRemoveItem = 5,
    kRAVSetOptions = 6,
    kRAVReverseNameLookup = 7,
    kRAVVersionInformation = 8,
    kRAVPause = 9,
    kRAVResume = 10,
    kRAVCancel = 11,
};

/// Bits of a job's options.
enum RAVUIOption : std::uint32_t {
    kRAVOptionReportErrors = 0x01,
    kRAVOptionReportWarnings = 0x02,
    kRAVOptionReportProgress = 0x04,
    kRAVOptionCountObjects = 0x08,
    kRAVOptionKeepLog = 0x10,
};

/// What a rebuild does beyond repairing; bits of the start's flags.
enum RAVRebuildFlag : std::uint32_t {
    kRAVRebuildPruneWait = 0x1,           ///< stops before pruning until it is told how
    kRAVRebuildPurge = 0x2,               ///< purges deleted objects first
    kRAVRebuildPruneIV = 0x4,             ///< prunes invalid objects
    kRAVRebuildPruneUnknownLosses = 0x8,  ///< prunes what was lost without a trace
};
