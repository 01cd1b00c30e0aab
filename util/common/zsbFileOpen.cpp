#include <cstdio>

#include "util/common/errors.h"
#include "util/common/log.h"
#include "util/common/zsbFile.h"

namespace {

constexpr std::size_t kMaxPathLength = 1023;
/// The files that are read are those of the set that a process writes first.
constexpr unsigned long kReadSetNumber = 0;

constexpr const char* kRawZSB = "T%02lu%05lu.ZSB";
constexpr const char* kCompressedZSB = "C%02lu%05lu.ZSB";
constexpr const char* kRawZRB = "T%02lu%05lu.ZRB";
constexpr const char* kCompressedZRB = "C%02lu%05lu.ZRB";

/// The patterns that an `OpenMode` tries, in order; a mode of one pattern is no choice.
struct Mode {
    const char* patterns[4];
    std::size_t count;
};

constexpr Mode kModes[] = {
    {{kRawZSB, kCompressedZSB, kRawZRB, kCompressedZRB}, 4},
    {{kRawZSB}, 1},
    {{kCompressedZSB}, 1},
    {{kRawZRB}, 1},
    {{kCompressedZRB}, 1},
    {{kRawZSB, kCompressedZSB}, 2},
    {{kRawZRB, kCompressedZRB}, 2},
    {{kRawZSB, kRawZRB}, 2},
    {{kCompressedZSB, kCompressedZRB}, 2},
};

bool NamesZSB(const std::string& name) {
    const std::size_t restorable = name.rfind(".ZRB");
    return restorable == std::string::npos || name.find(".ZSB", restorable) != std::string::npos;
}

}  // namespace

int ZSBFile::Open(const char* name, const char* directory) {
    return Open(std::string(directory) + name);
}

int ZSBFile::Open(const std::string& path) {
    if (AnyFileOpen()) {
        return zERR_INVALID_STATE;
    }
    if (path.size() > kMaxPathLength) {
        return zERR_BAD_PARAMETER_VALUE;
    }
    SetName(path, NamesZSB(path));
    if (trace) {
        LogLine() << "Opening ZSB File -- " << fullName << '\n';
    }
    const int status = reader_.Open(path);
    if (status == 0) {
        read_ = true;
        warnings = 0;
    }
    return status;
}

// NOLINTNEXTLINE(bugprone-easily-swappable-parameters): a fixed signature
int ZSBFile::Open(int mode, int file, int set) {
    if (set < 0 || set > kMaxSetNumber || file < 0 ||
        static_cast<std::uint32_t>(file) > kMaxFileNumber) {
        return zERR_BAD_PARAMETER_VALUE;
    }
    if (AnyFileOpen()) {
        return zERR_INVALID_STATE;
    }
    if (mode < 0 || static_cast<std::size_t>(mode) >= std::size(kModes)) {
        return zERR_BAD_PARAMETER_VALUE;
    }
    const Mode& tried = kModes[mode];
    return tried.count == 1 ? OpenByPattern(tried.patterns[0])
                            : OpenFirst({tried.patterns, tried.count});
}

int ZSBFile::OpenByPattern(const char* pattern) {
    char name[32] = "";
    std::snprintf(name, sizeof name, pattern, kReadSetNumber,
                  static_cast<unsigned long>(readFileNumber));
    return Open(name, ZF_Path.c_str());
}

int ZSBFile::OpenFirst(std::span<const char* const> patterns) {
    if (namePattern != nullptr) {
        return OpenByPattern(namePattern);
    }
    for (const char* pattern : patterns) {
        const int status = OpenByPattern(pattern);
        if (status != zERR_ZID_NOT_FOUND) {
            namePattern = pattern;
            return status;
        }
    }
    // Also a kind that was not there is kept: a set does not change its names on the way.
    namePattern = patterns.front();
    return zERR_ZID_NOT_FOUND;
}

int ZSBFile::OpenNext(int mode) {
    if (reader_.IsOpen()) {
        return zERR_INVALID_STATE;
    }
    return Open(mode, static_cast<int>(readFileNumber), kReadSetNumber);
}

int ZSBFile::OpenNextClose() {
    if (!reader_.IsOpen()) {
        return zERR_INVALID_STATE;
    }
    const int status = OpenClose();
    readFileNumber += 1;
    return status;
}

int ZSBFile::RandomOpen(const std::string& path) {
    if (reader_.IsOpen()) {
        OpenClose();
    }
    const int status = Open(path);
    if (status == 0 && reader_.Inflating()) {
        OpenClose();
        return zERR_COMPRESSION_NOT_ENABLED;
    }
    return status;
}
