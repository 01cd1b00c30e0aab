#pragma once

#include <optional>
#include <string>
#include <vector>

#include "util/common/scanFileFormat.h"

/// The path of the file that follows in a set, none behind the last number or where `path` is not
/// named as the files of a set are.
std::optional<std::string> NextScanFile(const std::string& path);

/// Judges the files of one set, in the order in which they are read, by their headers. A restore
/// takes what it finds; this tells what of it does not fit together.
class ScanFileFit {
  public:
    /// A note for the log, a line with its end, about all that is wrong with the file at `path`;
    /// empty when it fits. `headerStatus` is how reading the header ended, and `nextBeside` whether
    /// the file that follows in the set is there.
    std::string Judge(const std::string& path, int headerStatus, const ScanFileHeader_s& header,
                      bool nextBeside);

  private:
    struct First {
        std::string path;
        ScanFileHeader_s header;
    };

    void Compare(const ScanFileHeader_s& header, std::vector<std::string>& wrong) const;

    std::optional<First> first_;  // the first file whose header is sound
};
