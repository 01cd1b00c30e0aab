#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the name of a scan file tells, as in "T0000012.ZSB".
struct ScanFileName {
    char letter = 'T';        ///< 'T' or 'C'; the header decides whether the data is compressed
    bool restorable = false;  ///< .ZRB, else .ZSB
    unsigned setNumber = 0;
    std::uint32_t fileNumber = 0;

    /// Nothing for a name that is not built so.
    static std::optional<ScanFileName> Parse(std::string_view name);
    std::string Text() const;

    bool SameKind(const ScanFileName& other) const {
        return letter == other.letter && restorable == other.restorable;
    }
};

/// Which of the sets that lie together is meant; what is not given is chosen as a restore chooses.
struct ScanSetChoice {
    std::optional<char> letter;
    std::optional<bool> restorable;
};

/// The scan files of one letter and ending in a folder.
struct ScanSetListing {
    std::string folder;               ///< ends in "/"
    ScanFileName first;               ///< the name of the set's file 0
    std::vector<ScanFileName> names;  ///< by set number and file number, other set numbers too
    bool otherLetter = false;         ///< files of the other letter lie beside
    bool otherEnding = false;         ///< files of the other ending lie beside

    /// Whether there was a choice, which is told then.
    bool Chosen() const { return otherLetter || otherEnding; }
};

/// Finds the set of a folder, or that of a file, whose name says which it is. In a folder a restore
/// takes .ZRB before .ZSB and T before C, by which file 0 is there; without any file 0, by which
/// files are. Throws std::system_error when the folder or the file cannot be opened, and
/// std::runtime_error when there is no scan file or the file is not named as one.
ScanSetListing ListScanSet(const std::string& path, const ScanSetChoice& choice = {});
