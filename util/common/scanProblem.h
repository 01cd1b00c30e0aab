#pragma once

#include <cstdint>
#include <string>

/// The stable words for what can be wrong with a set of scan files.
namespace ScanCode {

// Of a file.

inline constexpr const char* kShortHeader = "short-header";    ///< the file ends in its header
inline constexpr const char* kBadSignature = "bad-signature";  ///< no scan file, or damaged
inline constexpr const char* kBadVersion = "bad-version";      ///< of a format nobody knows
inline constexpr const char* kNeverClosed = "never-closed";    ///< its writer died
inline constexpr const char* kCrc = "crc";                     ///< the records are not those saved
inline constexpr const char* kTruncated = "truncated";         ///< it ends before its data does
inline constexpr const char* kDeflate = "deflate";             ///< the compressed stream is broken
inline constexpr const char* kTrailingData = "trailing-data";  ///< it goes on behind its data
inline constexpr const char* kBlockOrder = "block-order";      ///< block numbers do not ascend
inline constexpr const char* kBlockTwice = "block-twice";      ///< a block was there before
inline constexpr const char* kBlockRange = "block-range";      ///< a block is behind the pool's end
inline constexpr const char* kStopped = "stopped";             ///< the save was stopped
inline constexpr const char* kStateChange = "state-change";    ///< a state change ended the save
inline constexpr const char* kWriteError = "write-error";      ///< the save met an error
inline constexpr const char* kUnreadable = "unreadable";       ///< it cannot be opened or read

// Of the set.

inline constexpr const char* kNoFirstFile = "no-first-file";
inline constexpr const char* kGap = "gap";                        ///< a file is missing
inline constexpr const char* kNoLastFile = "no-last-file";        ///< no file says it is the last
inline constexpr const char* kEarlyLastFile = "early-last-file";  ///< files follow the last one
inline constexpr const char* kMixedScan = "mixed-scan";           ///< files of another save
inline constexpr const char* kMixedPool = "mixed-pool";           ///< files of another pool
inline constexpr const char* kMixedCompression = "mixed-compression";
inline constexpr const char* kStrayFile = "stray-file";  ///< it belongs to no set or another

// Warnings, which say nothing against the set.

inline constexpr const char* kUserBlocks = "user-blocks";    ///< blocks of no known type
inline constexpr const char* kOtherFormat = "other-format";  ///< leaves of the other pool format
inline constexpr const char* kBothLetters = "both-letters";  ///< T and C files lie together
inline constexpr const char* kBothEndings = "both-endings";  ///< .ZSB and .ZRB files lie together
inline constexpr const char* kBypassed = "bypassed";         ///< saved without the service

}  // namespace ScanCode

/// What is wrong with a set or one of its files.
struct ScanProblem {
    const char* code;  ///< one of `ScanCode`
    std::string file;  ///< its name without folder; empty for the set as a whole
    std::string text;  ///< for people; names in it stand as they are
};

/// How many blocks a problem is about: "1 block behind the pool's end", "2 blocks ...".
inline std::string BlocksText(std::uint64_t count, const char* what) {
    return std::to_string(count) + (count == 1 ? " block " : " blocks ") + what;
}
