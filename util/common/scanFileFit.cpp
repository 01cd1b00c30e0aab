#include "util/common/scanFileFit.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "util/common/errors.h"

namespace {

constexpr std::string_view kSuffix = ".ZRB";
constexpr std::size_t kNumberDigits = 5;

struct FlagMeaning {
    ScanFileFlag flag;
    const char* text;
};

constexpr FlagMeaning kTroubledSaves[] = {
    {kFlagUserStop, "its save was stopped"},
    {kFlagStateChange, "its save was disturbed by a change of the pool's state"},
    {kFlagError, "its save met an error"},
};

/// The name as it can stand in one line, whatever a damaged header holds.
std::string Quoted(std::string name) {
    std::ranges::replace_if(
        name,
        [](char character) {
            const auto code = static_cast<unsigned char>(character);
            return code < 0x20 || code == 0x7F;
        },
        '?');
    return '"' + name + '"';
}

void CheckHeader(int status, std::vector<std::string>& wrong) {
    if (status == zERR_END_OF_FILE) {
        wrong.emplace_back("it is too short to have a header");
    } else if (status == zERR_MEDIA_CORRUPTED) {
        wrong.emplace_back("its header is damaged");
    } else if (status != 0) {
        wrong.emplace_back("its header cannot be read (status " + std::to_string(status) + ")");
    }
}

void CheckSave(const ScanFileHeader_s& header, std::vector<std::string>& wrong) {
    for (const FlagMeaning& meaning : kTroubledSaves) {
        if ((header.flags & meaning.flag) != 0) {
            wrong.emplace_back(meaning.text);
        }
    }
    // What creating a file writes: no closing time, and no records.
    if (header.closeTime == 0 && RecordsInDataBytes(header.dataBytes) == 0) {
        wrong.emplace_back("it was never closed");
    }
}

}  // namespace

std::optional<std::string> NextScanFile(const std::string& path) {
    if (path.size() < kNumberDigits + kSuffix.size() || !path.ends_with(kSuffix)) {
        return {};
    }
    const std::size_t at = path.size() - kSuffix.size() - kNumberDigits;
    const std::string digits = path.substr(at, kNumberDigits);
    if (!std::ranges::all_of(digits, [](char digit) { return digit >= '0' && digit <= '9'; })) {
        return {};
    }
    const unsigned long next = std::stoul(digits) + 1;
    if (next > kMaxFileNumber) {
        return {};
    }
    char number[kNumberDigits + 1] = "";
    std::snprintf(number, sizeof number, "%05lu", next % (kMaxFileNumber + 1));
    return path.substr(0, at).append(number).append(kSuffix);
}

std::string ScanFileFit::Judge(const std::string& path, int headerStatus,
                               const ScanFileHeader_s& header, bool nextBeside) {
    std::vector<std::string> wrong;
    CheckHeader(headerStatus, wrong);
    // A damaged header is believed all the same: the restore goes by it.
    if (headerStatus == 0 || headerStatus == zERR_MEDIA_CORRUPTED) {
        Compare(header, wrong);
        CheckSave(header, wrong);
        if ((header.flags & kFlagLastFile) != 0 && nextBeside) {
            wrong.emplace_back("it says that it is the last, and the next lies beside it");
        }
    }
    if (!first_ && headerStatus == 0) {
        first_ = First{path, header};
    }
    std::string note;
    for (const std::string& text : wrong) {
        note += note.empty() ? "Note: " + path + " does not fit: " : "; ";
        note += text;
    }
    return note.empty() ? note : note + '\n';
}

void ScanFileFit::Compare(const ScanFileHeader_s& header, std::vector<std::string>& wrong) const {
    if (!first_) {
        return;
    }
    const ScanFileHeader_s& wanted = first_->header;
    const GUID_t scanID = header.scanID;
    const GUID_t wantedID = wanted.scanID;
    if (Ostrel::LB_GUIDCompare(&scanID, &wantedID) != 0) {
        wrong.emplace_back("its scan ID is not that of " + first_->path);
    }
    const std::string name = PoolNameOf(header);
    const std::string wantedName = PoolNameOf(wanted);
    if (name != wantedName) {
        wrong.emplace_back("its pool is " + Quoted(name) + " and not " + Quoted(wantedName));
    }
    if (header.poolBlocks != wanted.poolBlocks) {
        wrong.emplace_back("its pool has " + std::to_string(header.poolBlocks) +
                           " blocks and not " + std::to_string(wanted.poolBlocks));
    }
}
