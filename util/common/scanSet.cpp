#include "util/common/scanSet.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <numeric>
#include <utility>

#include "util/common/scanFileWalk.h"

namespace {

struct FlagWord {
    ScanFileFlag flag;
    const char* word;
};

constexpr FlagWord kFlagWords[] = {
    {kFlagCompressed, "compressed"},    {kFlagLastFile, "last"},
    {kFlagRawAfterAll, "raw-anyway"},   {kFlagUserStop, "stopped"},
    {kFlagStateChange, "state-change"}, {kFlagFourthCondition, "fourth"},
    {kFlagError, "write-error"},        {kFlagUncheckedTypes, "no-system-check"},
    {kFlagBypass, "bypassed"},
};

ScanSetFile DescribeFile(const ScanFileName& name, const ScanFileWalk& walk) {
    ScanSetFile file;
    file.name = name;
    file.bytes = walk.FileBytes();
    file.believable = walk.Believable();
    if (file.believable) {
        const ScanFileHeader_s& header = walk.Header();
        file.flags = header.flags;
        file.createTime = header.createTime;
        file.closeTime = header.closeTime;
        file.fileNumber = header.fileNumber;
        file.dataBytes = header.dataBytes;
        file.crc = header.crc;
        file.scanID = header.scanID;
        file.poolName = PoolNameOf(header);
        file.poolBlocks = header.poolBlocks;
    }
    return file;
}

bool SameScan(const ScanSetFile& a, const ScanSetFile& b) {
    return a.believable && b.believable && Ostrel::LB_GUIDCompare(&a.scanID, &b.scanID) == 0;
}

void BlameFile(ScanSetFile& file, const char* code, const std::string& text) {
    file.problems.push_back({code, file.name.Text(), text});
}

std::string FileRange(std::uint32_t first, std::uint32_t last) {
    return first == last
               ? "file " + std::to_string(first) + " is missing"
               : "files " + std::to_string(first) + " to " + std::to_string(last) + " are missing";
}

}  // namespace

std::vector<std::string> FlagWords(const ScanFileState& state) {
    std::vector<std::string> words;
    for (const FlagWord& row : kFlagWords) {
        if ((state.flags & row.flag) != 0) {
            words.emplace_back(row.word);
        }
    }
    if (state.closeTime == 0) {
        words.emplace_back("never-closed");
    }
    return words;
}

std::vector<ScanProblem> HeaderProblems(const ScanFileWalk& walk, const std::string& name) {
    std::vector<ScanProblem> problems;
    const auto blame = [&](const char* code, const std::string& text) {
        problems.push_back({code, name, text});
    };
    if (walk.Ended() == ScanFileWalk::End::kUnreadable) {
        blame(ScanCode::kUnreadable, std::strerror(walk.SystemError()));
        return problems;
    }
    if (!walk.HasHeader()) {
        blame(ScanCode::kShortHeader, "it has " + std::to_string(walk.FileBytes()) +
                                          " bytes, and a header has " +
                                          std::to_string(kScanFileHeaderSize));
        return problems;
    }
    const ScanFileHeader_s& header = walk.Header();
    if (header.signature != kScanFileSignature || header.trailerSignature != kScanFileSignature) {
        blame(ScanCode::kBadSignature, "its header is not that of a scan file");
    }
    if (!walk.Believable()) {
        return problems;
    }
    if (header.headerVersion < kScanFileOldestVersion || header.headerVersion > kScanFileVersion) {
        blame(ScanCode::kBadVersion,
              "its header is of version " + std::to_string(header.headerVersion));
    }
    if (walk.NeverClosed()) {
        blame(ScanCode::kNeverClosed, "it was never closed: the save that wrote it died");
    }
    if ((header.flags & kFlagUserStop) != 0) {
        blame(ScanCode::kStopped, "its save was stopped");
    }
    if ((header.flags & kFlagStateChange) != 0) {
        blame(ScanCode::kStateChange, "a change of the pool's state ended its save");
    }
    if ((header.flags & kFlagError) != 0) {
        blame(ScanCode::kWriteError, "its save met an error when it wrote the file");
    }
    return problems;
}

ScanSet::ScanSet(ScanSetListing listing) : listing_(std::move(listing)) {
    for (const ScanFileName& name : listing_.names) {
        const ScanFileWalk walk(listing_.folder + name.Text());
        ScanSetFile file = DescribeFile(name, walk);
        if (name.setNumber != listing_.first.setNumber) {
            BlameFile(file, ScanCode::kStrayFile, "it is of another set number");
            strays_.push_back(std::move(file));
            continue;
        }
        file.problems = HeaderProblems(walk, name.Text());
        files_.push_back(std::move(file));
    }
    PartStrays();
    CheckNumbers();
    CheckLast();
    CheckCommon();
    CollectWarnings();
}

const ScanSetFile* ScanSet::Model() const {
    const auto model = std::ranges::find_if(files_, &ScanSetFile::believable);
    return model == files_.end() ? nullptr : &*model;
}

std::uint64_t ScanSet::Bytes() const {
    const auto add = [](std::uint64_t sum, const ScanSetFile& file) { return sum + file.bytes; };
    return std::accumulate(files_.begin(), files_.end(), std::uint64_t{0}, add);
}

/// Behind the last file lies what is of the same save, and then what is not.
void ScanSet::PartStrays() {
    const auto last = std::ranges::find_if(files_, &ScanSetFile::Last);
    if (last == files_.end()) {
        return;
    }
    const ScanSetFile& model = *Model();
    const auto isOfTheSave = [&model](const ScanSetFile& file) { return SameScan(file, model); };
    const auto end =
        std::find_if(files_.rbegin(), std::make_reverse_iterator(last + 1), isOfTheSave).base();
    for (auto file = end; file != files_.end(); ++file) {
        file->problems.clear();
        BlameFile(*file, ScanCode::kStrayFile, "it lies behind the last file of the set");
    }
    strays_.insert(strays_.begin(), std::make_move_iterator(end),
                   std::make_move_iterator(files_.end()));
    files_.erase(end, files_.end());
}

void ScanSet::CheckNumbers() {
    std::uint32_t expected = 0;
    for (ScanSetFile& file : files_) {
        const std::uint32_t number = file.name.fileNumber;
        if (expected == 0 && number != 0) {
            Blame(ScanCode::kNoFirstFile, FileRange(0, number - 1));
        } else if (number != expected) {
            Blame(ScanCode::kGap, FileRange(expected, number - 1));
        }
        if (file.believable && file.fileNumber != number) {
            BlameFile(file, ScanCode::kGap,
                      "its header says that it is file " + std::to_string(file.fileNumber));
        }
        expected = number + 1;
    }
    if (files_.empty()) {
        Blame(ScanCode::kNoFirstFile, FileRange(0, 0));
    }
}

void ScanSet::CheckLast() {
    if (files_.empty() || !files_.back().Last()) {
        Blame(ScanCode::kNoLastFile, "no file at the end says that it is the last");
    }
    for (std::size_t i = 0; i + 1 < files_.size(); ++i) {
        if (files_[i].Last()) {
            BlameFile(files_[i], ScanCode::kEarlyLastFile,
                      "it says that it is the last, and more of its save follow");
        }
    }
}

void ScanSet::CheckCommon() {
    const ScanSetFile* model = Model();
    for (ScanSetFile& file : files_) {
        if (model == nullptr || !file.believable) {
            continue;
        }
        if (!SameScan(file, *model)) {
            BlameFile(file, ScanCode::kMixedScan,
                      "it is of another save than " + model->name.Text());
        }
        if (file.poolName != model->poolName) {
            BlameFile(file, ScanCode::kMixedPool,
                      "its pool is \"" + file.poolName + "\", and that of " + model->name.Text() +
                          " is \"" + model->poolName + "\"");
        } else if (file.poolBlocks != model->poolBlocks) {
            BlameFile(file, ScanCode::kMixedPool,
                      "its pool has " + std::to_string(file.poolBlocks) + " blocks, and that of " +
                          model->name.Text() + " has " + std::to_string(model->poolBlocks));
        }
        if (file.Compressed() != model->Compressed()) {
            BlameFile(file, ScanCode::kMixedCompression,
                      file.Compressed() ? "it is compressed, and others are not"
                                        : "it is not compressed, and others are");
        }
    }
}

void ScanSet::CollectWarnings() {
    const auto warn = [this](const char* code, const char* text) {
        warnings_.push_back({code, "", text});
    };
    if (listing_.otherLetter) {
        warn(ScanCode::kBothLetters, "T and C files lie in one folder");
    }
    if (listing_.otherEnding) {
        warn(ScanCode::kBothEndings, ".ZSB and .ZRB files lie in one folder");
    }
    const auto bypassed = [](const ScanSetFile& file) { return (file.flags & kFlagBypass) != 0; };
    if (std::ranges::any_of(files_, bypassed)) {
        warn(ScanCode::kBypassed,
             "it was saved without the storage service: the pool was not held");
    }
}
