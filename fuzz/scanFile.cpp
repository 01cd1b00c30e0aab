// One scan file, header and records, raw or compressed: the reader and the check against an
// unpacker that shares no code with them.

#include "fuzz/memoryFile.h"
#include "fuzz/property.h"
#include "fuzz/quiet.h"
#include "fuzz/unpacked.h"
#include "util/common/errors.h"
#include "util/common/scanFileCheck.h"
#include "util/common/scanFileReader.h"

namespace {

constexpr std::uint64_t kMostRecords = fuzz::Unpacked::kMost / fuzz::Unpacked::kRecord;

std::string_view BytesOf(const QuadAndBlock_s& record) {
    return {reinterpret_cast<const char*>(&record), sizeof record};
}

int StatusOf(const fuzz::Unpacked& file) {
    if (!file.HasHeader()) {
        return zERR_END_OF_FILE;
    }
    return file.Signed() ? 0 : zERR_MEDIA_CORRUPTED;
}

/// Reads all records, and says how many there were.
std::uint64_t CheckRecords(ScanFileReader& reader, const fuzz::Unpacked& wanted) {
    QuadAndBlock_s record;
    std::uint64_t count = 0;
    while (count < kMostRecords && reader.Read(&record) == 0) {
        fuzz::Require(count < wanted.Records(), "no more records than there are");
        fuzz::Require(BytesOf(record) == wanted.Record(count), "each as it was packed");
        ++count;
        fuzz::Require(reader.Crc() == wanted.Crc(count), "the checksum so far");
    }
    const bool all = !wanted.Compressed() || wanted.Whole();
    fuzz::Require(!all || count == std::min<std::uint64_t>(wanted.Records(), kMostRecords),
                  "every record that is there");
    return count;
}

void CheckValidation(ScanFileReader& reader, const fuzz::Unpacked& wanted, std::uint64_t records) {
    if (wanted.Told() > kMostRecords) {
        return;  // more than is looked at here
    }
    ScanFileCheck check(reader, [](const char*, std::uint64_t) {});
    const int status = check.Validate();
    const bool sound = wanted.Signed() && wanted.Told() > 0 && wanted.Told() <= records &&
                       wanted.Crc(wanted.Told()) == wanted.Field(56, 4);
    fuzz::Require((status == 0) == sound, "a file validates where it is sound");
    fuzz::Require(StatusOf(wanted) == 0 || status == StatusOf(wanted), "a bad header comes first");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Quiet::Please();
    static const fuzz::MemoryFile file;
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    file.Fill(bytes);
    const fuzz::Unpacked wanted(bytes);
    ScanFileReader reader;
    fuzz::Require(reader.Open(file.Path()) == 0, "every file opens");
    fuzz::Require(reader.HeaderStatus() == StatusOf(wanted), "what its header is");
    const std::uint64_t records = CheckRecords(reader, wanted);
    CheckValidation(reader, wanted, records);
    fuzz::Require(reader.Close() == 0, "and closes");
    return 0;
}
