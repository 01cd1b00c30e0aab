// A whole set, made by a small program: file by file a byte of what it is, its blocks, and damage.
// A sound set, put together without the product's code, is called restorable and read back record
// for record; the product's own writer makes files that an unpacker of its own finds sound; and
// whatever lies in the folder, a check says the same on one thread as on several.

#include <filesystem>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/property.h"
#include "fuzz/quiet.h"
#include "fuzz/unpacked.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/scanSetCheck.h"
#include "util/common/zsbFile.h"

namespace {

using support::ScanFileImage;
using support::TestRecord;

constexpr unsigned kMostFiles = 5;
constexpr std::size_t kPoolBlocksAt = 32;
constexpr std::size_t kCloseTimeAt = 12;
constexpr std::size_t kFileNumberAt = 64;
constexpr std::uint64_t kPoolBlocks = 4096;

enum Said : unsigned {
    kCompressed = 0x01,
    kOtherLetter = 0x02,
    kOtherEnding = 0x04,
    kSkip = 0x08,
    kLastHere = 0x10,
    kDamage = 0x20,
    kBackwards = 0x40,
    kUnclosed = 0x80,
};

/// What the program made, and whether it kept to the rules of a set.
struct Made {
    std::vector<TestRecord> records;
    bool sound = true;
    bool damagedData = false;
    unsigned files = 0;
    bool compressed = false;
};

class Program {
  public:
    Program(fuzz::Input& input, std::string folder) : input_(input), folder_(std::move(folder)) {}

    Made Run() {
        made_.compressed = (input_.Byte() & 1) != 0;
        bool last = false;
        while (made_.files < kMostFiles && !last) {
            const unsigned said = input_.Byte();
            last = (said & kLastHere) != 0 || input_.Empty() || made_.files + 1 == kMostFiles;
            MakeFile(said, last);
        }
        return std::move(made_);
    }

  private:
    std::vector<TestRecord> MakeRecords(bool backwards) {
        std::vector<TestRecord> records;
        for (unsigned count = input_.Byte() % 4U + 1; count > 0; --count) {
            made_.sound = made_.sound && !backwards;
            block_ += input_.Byte() % 16U + 1;
            records.push_back(support::MakeTestRecord(backwards ? 2 : block_));
        }
        return records;
    }

    void MakeFile(unsigned said, bool last) {
        number_ += (said & kSkip) != 0 ? 1 : 0;
        const std::vector<TestRecord> records = MakeRecords((said & kBackwards) != 0);
        const bool packed = made_.compressed != ((said & kCompressed) != 0);
        ScanFileImage image =
            packed ? ScanFileImage::Compressed(records) : ScanFileImage::Raw(records);
        image.SetFlags((packed ? 0x041U : 0U) | (last ? 0x002U : 0U));
        image.SetNumber(kPoolBlocksAt, 8, kPoolBlocks);
        image.SetNumber(kFileNumberAt, 4, number_);
        image.SetNumber(kCloseTimeAt, 4, (said & kUnclosed) != 0 ? 0 : 1'700'000'000);
        made_.sound = made_.sound && (said & ~kLastHere) == 0;
        if ((said & kDamage) != 0) {
            Damage(image);
        }
        image.Write(folder_ + Name(said));
        made_.records.insert(made_.records.end(), records.begin(), records.end());
        ++number_;
        ++made_.files;
    }

    void Damage(ScanFileImage& image) {
        const std::size_t at = (input_.Byte() * 256U + input_.Byte()) % image.Size();
        const unsigned mask = input_.Byte();
        image.FlipByte(at, mask);
        made_.damagedData = made_.damagedData || (mask != 0 && at >= ScanFileImage::kHeaderBytes);
    }

    std::string Name(unsigned said) const {
        const std::string digits = std::to_string(number_);
        const bool packed = made_.compressed != ((said & kOtherLetter) != 0);
        return std::string(packed ? "C" : "T") + "00" + std::string(5 - digits.size(), '0') +
               digits + ((said & kOtherEnding) != 0 ? ".ZSB" : ".ZRB");
    }

    fuzz::Input& input_;
    std::string folder_;
    Made made_;
    std::uint32_t number_ = 0;
    std::uint64_t block_ = 0;
};

std::string TextOf(const std::vector<ScanProblem>& problems) {
    std::string text;
    for (const ScanProblem& problem : problems) {
        text += std::string(problem.code) + '|' + problem.file + '|' + problem.text + '\n';
    }
    return text;
}

void CheckReports(const std::string& folder, const Made& made) {
    const ScanSet set(folder);
    const ScanSetReport one = CheckScanSet(set, 1);
    const ScanSetReport several = CheckScanSet(set, 3);
    fuzz::Require(TextOf(one.problems) == TextOf(several.problems) &&
                      TextOf(one.warnings) == TextOf(several.warnings) &&
                      one.records == several.records && one.types == several.types,
                  "the report does not depend on the threads");
    fuzz::Require(one.files.size() == set.Files().size(), "a report for each file");
    if (made.sound) {
        fuzz::Require(one.Restorable(), "a sound set is restorable");
        fuzz::Require(one.records == made.records.size(), "all its records are there");
        fuzz::Require(one.types[2] == one.records, "and counted by their type");
    }
    fuzz::Require(!made.damagedData || set.Files().size() != made.files || !one.Restorable(),
                  "damaged data is found");
}

/// The records of the set as a restore reads them.
std::vector<TestRecord> Restored(const std::string& folder) {
    std::vector<TestRecord> records;
    const std::unique_ptr<ZSBFile> file = ZSBFile::ForReading(folder.c_str());
    bool last = false;
    for (unsigned files = 0; !last && files <= kMostFiles; ++files) {
        if (file->OpenNext(ZSBFile::kOpenAnyZRB) != 0) {
            break;
        }
        last = file->LastFile() != 0;
        QuadAndBlock_s record;
        while (records.size() < 64 && file->QuadAndBlockRead(&record, nullptr) == 0) {
            records.push_back({record.blockNumber, std::string(record.block, sizeof record.block)});
        }
        fuzz::Require(file->OpenNextClose() == 0, "an open file closes");
    }
    return records;
}

bool Same(const std::vector<TestRecord>& one, const std::vector<TestRecord>& other) {
    return std::ranges::equal(one, other, [](const TestRecord& a, const TestRecord& b) {
        return a.number == b.number && a.block == b.block;
    });
}

void Write(ZSBFile& file, const TestRecord& record) {
    QuadAndBlock_s bytes{.blockNumber = record.number, .block = {}};
    record.block.copy(bytes.block, sizeof bytes.block);
    fuzz::Require(file.QuadAndBlockWrite(&bytes) == 0, "a record can be written");
}

/// The product's writer, read by an unpacker that shares nothing with it.
void CheckWriter(const std::string& folder, const Made& made) {
    const std::string pool = "POOL";
    ZSBFile file(folder.c_str(), &pool, false, nullptr, made.compressed, 99, kPoolBlocks, -1,
                 kScanFileSizeLimit);
    fuzz::Require(file.CreateNext(true) == 0, "a file can be made");
    for (const TestRecord& record : made.records) {
        Write(file, record);
    }
    unsigned long crc = 0;
    fuzz::Require(file.CreateClose(true, false, false, false, &crc) == 0, "and closed");
    const fuzz::Unpacked written(
        support::ReadFile(folder + (made.compressed ? 'C' : 'T') + "9900000.ZSB"));
    fuzz::Require(written.Signed() && written.Whole(), "it is a whole scan file");
    fuzz::Require(written.Told() == made.records.size() && written.Records() == written.Told(),
                  "with as many records as it tells");
    fuzz::Require(
        written.Crc(written.Records()) == written.Field(56, 4) && crc == written.Field(56, 4),
        "and their checksum");
    for (std::size_t i = 0; i < made.records.size(); ++i) {
        const std::string_view record = written.Record(i);
        fuzz::Require(support::U64At(record, 0) == made.records[i].number &&
                          record.substr(8) == made.records[i].block,
                      "each as it was given");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Quiet::Please();
    static const support::TemporaryDirectory folder;
    for (const auto& entry : std::filesystem::directory_iterator(folder.Path())) {
        std::filesystem::remove(entry.path());
    }
    fuzz::Input input(data, size);
    const Made made = Program(input, folder.Path()).Run();
    CheckReports(folder.Path(), made);
    const std::vector<TestRecord> restored = Restored(folder.Path());
    fuzz::Require(!made.sound || Same(restored, made.records), "read back as it was packed");
    CheckWriter(folder.Path(), made);
    return 0;
}
