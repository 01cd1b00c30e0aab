#include "util/common/scanFileCheck.h"

#include "util/common/blockTypes.h"
#include "util/common/errors.h"

namespace {

constexpr int kBlockNotFound = -1;  // 0xFFFFFFFF

}  // namespace

int ScanFileCheck::Begin() {
    fault_ = 0;
    lastBlock_ = 0;
    if (!reader_.IsOpen()) {
        return zERR_INVALID_STATE;
    }
    if (reader_.HeaderStatus() != 0) {
        return Faulty(reader_.HeaderStatus());
    }
    reader_.Rewind();
    recordsLeft_ = RecordsInDataBytes(reader_.Header().dataBytes);
    return recordsLeft_ == 0 ? Faulty(zSCAN_FILE_INVALID) : 0;
}

int ScanFileCheck::Next(QuadAndBlock_s* record) {
    const int status = reader_.Read(record);
    if (status == 0 && (reader_.Header().flags & kFlagUncheckedTypes) == 0 &&
        ClassifyBlock(ReadBlockWords(record->block)) == kUserType) {
        warn_("Non-system block found", record->blockNumber);
    }
    return status;
}

void ScanFileCheck::CheckOrder(std::uint64_t block) {
    if (lastBlock_ != 0 && lastBlock_ >= block) {
        warn_("Out of order blocks found", block);
    } else {
        lastBlock_ = block;
    }
}

int ScanFileCheck::CheckCrc() {
    return reader_.Crc() == reader_.Header().crc ? 0 : Faulty(zSCAN_FILE_INVALID);
}

int ScanFileCheck::Validate() {
    QuadAndBlock_s record;
    int status = Begin();
    for (; status == 0 && recordsLeft_ > 0; --recordsLeft_) {
        status = Next(&record);
        if (status == 0) {
            CheckOrder(record.blockNumber);
        }
    }
    return status != 0 ? status : CheckCrc();
}

int ScanFileCheck::Search(QuadAndBlock_s* out, std::uint64_t block) {
    QuadAndBlock_s record;
    int status = Begin();
    for (; status == 0 && recordsLeft_ > 0; --recordsLeft_) {
        status = Next(&record);
        // What is looked for is found, in order or not.
        if (status == 0 && record.blockNumber == block) {
            *out = record;
            return 0;
        }
        if (status == 0) {
            CheckOrder(record.blockNumber);
        }
    }
    if (status == 0) {
        status = CheckCrc();
    }
    return status != 0 ? status : kBlockNotFound;
}
