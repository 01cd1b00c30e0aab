#include "util/common/blockTypes.h"
#include "util/common/errors.h"
#include "util/common/zsbFile.h"

namespace {

constexpr int kBlockNotFound = -1;  // 0xFFFFFFFF

}  // namespace

/// Starts a pass over the whole file; `records` receives how many it should hold.
int ZSBFile::BeginCheck(std::uint64_t* records) {
    if (!open) {
        return zERR_INVALID_STATE;
    }
    int status = openStatus;
    if (status == 0) {
        RewindRecords();
        *records = RecordsInDataBytes(header.dataBytes);
        status = *records == 0 ? zSCAN_FILE_INVALID : 0;
    }
    if (status != 0) {
        QuadAndBlockErrorSet(status);
    }
    return status;
}

void ZSBFile::WarnAboutType(const QuadAndBlock_s& record) {
    if ((header.flags & kFlagUncheckedTypes) == 0 &&
        ClassifyBlock(ReadBlockWords(record.block)) == kUserType) {
        QuadAndBlockWarningSet("Non-system block found");
    }
}

void ZSBFile::WarnAboutOrder(const QuadAndBlock_s& record) {
    if (lastBlockNumber != 0 && lastBlockNumber >= record.blockNumber) {
        QuadAndBlockWarningSet("Out of order blocks found");
    } else {
        lastBlockNumber = record.blockNumber;
    }
}

int ZSBFile::CheckCRC() {
    if (crc == header.crc) {
        return 0;
    }
    QuadAndBlockErrorSet(zSCAN_FILE_INVALID);
    return zSCAN_FILE_INVALID;
}

int ZSBFile::OpenValidate() {
    std::uint64_t records = 0;
    int status = BeginCheck(&records);
    QuadAndBlock_s record;
    for (; status == 0 && records > 0; --records) {
        status = QuadAndBlockRead(&record, nullptr);
        if (status == 0) {
            WarnAboutType(record);
            WarnAboutOrder(record);
        }
    }
    return status != 0 ? status : CheckCRC();
}

int ZSBFile::OpenSearch(QuadAndBlock_s* out, unsigned long long block) {
    std::uint64_t records = 0;
    int status = BeginCheck(&records);
    QuadAndBlock_s record;
    for (; status == 0 && records > 0; --records) {
        status = QuadAndBlockRead(&record, nullptr);
        if (status != 0) {
            break;
        }
        WarnAboutType(record);
        if (record.blockNumber == block) {
            *out = record;
            return 0;
        }
        WarnAboutOrder(record);
    }
    if (status == 0) {
        status = CheckCRC();
    }
    return status != 0 ? status : kBlockNotFound;
}

int ZSBFile::RandomOpen(const std::string& path) {
    if (open) {
        OpenClose();
    }
    const int status = Open(path);
    if (status == 0 && inflating) {
        OpenClose();
        return zERR_COMPRESSION_NOT_ENABLED;
    }
    return status;
}

int ZSBFile::RandomRead(unsigned offset, QuadAndBlock_s* out) {
    if (!open) {
        return zERR_INVALID_STATE;
    }
    ZF_DataOffset = offset;
    return QuadAndBlockRead(out, nullptr);
}
