#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "util/common/scanFileFormat.h"
#include "util/common/scanFileReader.h"

/// Goes over all records of an open file, from the first, and checks them on the way. What may well
/// be so is a warning, which changes no status: a block of no known type, a block number that is
/// not above the one before.
class ScanFileCheck {
  public:
    /// Is told the text of each warning and the record's block number.
    using Warn = std::function<void(const char* text, std::uint64_t block)>;

    /// `reader` must outlive the check.
    ScanFileCheck(ScanFileReader& reader, Warn warn) : reader_(reader), warn_(std::move(warn)) {}

    /// Reads every record and checks the file's CRC: `zSCAN_FILE_INVALID` when it does not match or
    /// there are no records; the header's status, or a failed read's.
    int Validate();

    /// Finds the first record of a block, without reading on behind it; 0xFFFFFFFF when there is
    /// none. What is wrong up to there, and with the CRC when there is none, is told as by
    /// `Validate`.
    int Search(QuadAndBlock_s* out, std::uint64_t block);

    /// What the last pass found wrong with the file itself; 0 also where a read failed.
    int Fault() const { return fault_; }

  private:
    int Begin();
    int Next(QuadAndBlock_s* record);
    void CheckOrder(std::uint64_t block);
    int CheckCrc();
    int Faulty(int status) { return fault_ = status; }

    ScanFileReader& reader_;
    Warn warn_;
    int fault_ = 0;
    std::uint64_t recordsLeft_ = 0;
    std::uint64_t lastBlock_ = 0;  // of the previous record; 0 for none
};
