#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/capturedLog.h"
#include "tests/support/openFiles.h"
#include "tests/support/scanFileImage.h"
#include "tests/support/temporaryDirectory.h"
#include "util/common/zsbFile.h"

namespace {

using support::MakeTestRecord;
using support::ScanFileImage;
using support::TestRecord;
using ::testing::EndsWith;
using ::testing::HasSubstr;

constexpr int kBufferTooSmall = 20004;
constexpr int kBadParameter = 20008;
constexpr int kInvalidState = 20010;
constexpr int kEndOfFile = 20100;
constexpr int kNotFound = 20444;
constexpr int kNotUncompressed = 21209;
constexpr std::size_t kRecordBytes = 4104;
constexpr int kSystemError = 0x22BA5000;
constexpr int kInflateError = 0x22115000;

bool operator==(const QuadAndBlock_s& read, const TestRecord& wanted) {
    return read.blockNumber == wanted.number &&
           std::string_view(read.block, sizeof read.block) == wanted.block;
}

/// A reader on a directory of its own.
class ZSBFileReader : public testing::Test {
  protected:
    static std::unique_ptr<ZSBFile> MakeReader(const std::string& path) {
        return std::make_unique<ZSBFile>(path.c_str(), nullptr, false, nullptr, false, 0, 0, -1,
                                         10'485'760);
    }

    std::string Path(const std::string& name) const { return directory_.File(name); }

    void WriteEmpty(const std::string& name) const { ScanFileImage::Raw({}).Write(Path(name)); }

    void Remove(const std::string& name) const { std::filesystem::remove(Path(name)); }

    /// Opens a file of its own making.
    void OpenImage(const ScanFileImage& image) {
        image.Write(Path("image.ZRB"));
        ASSERT_EQ(file_->Open(Path("image.ZRB")), 0);
    }

    std::string CurrentName() const {
        std::string name;
        file_->CurrentFullName(name);
        return std::filesystem::path(name).filename();
    }

    void ExpectRecord(const TestRecord& wanted) {
        QuadAndBlock_s record{};
        ASSERT_EQ(file_->QuadAndBlockRead(&record, nullptr), 0);
        EXPECT_TRUE(record == wanted) << "block " << record.blockNumber;
    }

    int ReadStatus() {
        QuadAndBlock_s record{};
        return file_->QuadAndBlockRead(&record, nullptr);
    }

    support::TemporaryDirectory directory_;
    support::CapturedLog log_;
    std::unique_ptr<ZSBFile> file_ = MakeReader(directory_.Path());
    const std::vector<TestRecord> records_{MakeTestRecord(3), MakeTestRecord(7, "BRCH")};
};

struct ModeCase {
    int mode;
    const char* name;
    std::vector<std::string> tried;  // in this order
};

void PrintTo(const ModeCase& row, std::ostream* stream) {
    *stream << row.name;
}

class ZSBFileReaderMode : public ZSBFileReader, public testing::WithParamInterface<ModeCase> {};

const std::vector<std::string> kAllNames{"T0000000.ZSB", "C0000000.ZSB", "T0000000.ZRB",
                                         "C0000000.ZRB"};

TEST_P(ZSBFileReaderMode, OpensTheFirstOfItsNamesThatIsThere) {
    for (const std::string& name : kAllNames) {
        WriteEmpty(name);
    }
    for (const std::string& name : GetParam().tried) {
        file_ = MakeReader(directory_.Path());
        EXPECT_EQ(file_->OpenNext(GetParam().mode), 0);
        EXPECT_EQ(CurrentName(), name);
        Remove(name);
    }
    file_ = MakeReader(directory_.Path());
    EXPECT_EQ(file_->OpenNext(GetParam().mode), kNotFound);
}

INSTANTIATE_TEST_SUITE_P(
    Modes, ZSBFileReaderMode,
    testing::Values(ModeCase{0, "Any", kAllNames}, ModeCase{1, "RawZSB", {"T0000000.ZSB"}},
                    ModeCase{2, "CompressedZSB", {"C0000000.ZSB"}},
                    ModeCase{3, "RawZRB", {"T0000000.ZRB"}},
                    ModeCase{4, "CompressedZRB", {"C0000000.ZRB"}},
                    ModeCase{5, "AnyZSB", {"T0000000.ZSB", "C0000000.ZSB"}},
                    ModeCase{6, "AnyZRB", {"T0000000.ZRB", "C0000000.ZRB"}},
                    ModeCase{7, "AnyRaw", {"T0000000.ZSB", "T0000000.ZRB"}},
                    ModeCase{8, "AnyCompressed", {"C0000000.ZSB", "C0000000.ZRB"}}),
    [](const testing::TestParamInfo<ModeCase>& row) { return std::string(row.param.name); });

TEST_F(ZSBFileReader, RefusesModesThatThereAreNot) {
    WriteEmpty("T0000000.ZRB");
    for (const int mode : {-1, 9, INT_MIN, INT_MAX}) {
        EXPECT_EQ(file_->Open(mode, 0, 0), kBadParameter) << mode;
        EXPECT_EQ(file_->OpenNext(mode), kBadParameter) << mode;
    }
}

TEST_F(ZSBFileReader, KeepsTheRawPatternWhenNoZRBFileIsThere) {
    EXPECT_EQ(file_->OpenNext(6), kNotFound);
    EXPECT_STREQ(file_->NamePattern(), "T%02lu%05lu.ZRB");
    WriteEmpty("C0000000.ZRB");
    EXPECT_EQ(file_->OpenNext(6), kNotFound);
    WriteEmpty("T0000000.ZRB");
    EXPECT_EQ(file_->OpenNext(6), 0);
}

TEST_F(ZSBFileReader, KeepsTheFirstPatternOfEachListWhenNothingIsThere) {
    const std::vector<std::pair<int, std::string>> kept{{0, "T%02lu%05lu.ZSB"},
                                                        {5, "T%02lu%05lu.ZSB"},
                                                        {6, "T%02lu%05lu.ZRB"},
                                                        {7, "T%02lu%05lu.ZSB"},
                                                        {8, "C%02lu%05lu.ZSB"}};
    for (const auto& [mode, pattern] : kept) {
        file_ = MakeReader(directory_.Path());
        EXPECT_EQ(file_->NamePattern(), nullptr);
        EXPECT_EQ(file_->OpenNext(mode), kNotFound);
        EXPECT_EQ(file_->NamePattern(), pattern) << mode;
    }
}

TEST_F(ZSBFileReader, LooksForTheNextFileOnlyUnderThePatternOfTheFirst) {
    WriteEmpty("C0000000.ZRB");
    WriteEmpty("T0000001.ZRB");
    ASSERT_EQ(file_->OpenNext(6), 0);
    EXPECT_STREQ(file_->NamePattern(), "C%02lu%05lu.ZRB");
    ASSERT_EQ(file_->OpenNextClose(), 0);
    EXPECT_EQ(file_->OpenNext(6), kNotFound);
    EXPECT_EQ(CurrentName(), "C0000001.ZRB");
    WriteEmpty("C0000001.ZRB");
    EXPECT_EQ(file_->OpenNext(6), 0);
    EXPECT_EQ(CurrentName(), "C0000001.ZRB");
}

TEST_F(ZSBFileReader, UsesTheChosenPatternInEveryOtherChoosingMode) {
    WriteEmpty("C0000000.ZRB");
    WriteEmpty("T0000000.ZSB");
    ASSERT_EQ(file_->OpenNext(8), 0);
    ASSERT_EQ(file_->OpenClose(), 0);
    for (const int mode : {0, 5, 6, 7, 8}) {
        ASSERT_EQ(file_->OpenNext(mode), 0);
        EXPECT_EQ(CurrentName(), "C0000000.ZRB") << mode;
        ASSERT_EQ(file_->OpenClose(), 0);
    }
}

TEST_F(ZSBFileReader, AModeOfOnePatternChoosesNothing) {
    WriteEmpty("C0000000.ZSB");
    WriteEmpty("T0000000.ZRB");
    ASSERT_EQ(file_->OpenNext(2), 0);
    ASSERT_EQ(file_->OpenClose(), 0);
    EXPECT_EQ(file_->NamePattern(), nullptr);
    EXPECT_EQ(file_->OpenNext(6), 0);
    ASSERT_EQ(file_->OpenClose(), 0);
    EXPECT_EQ(file_->OpenNext(2), 0);
    EXPECT_EQ(CurrentName(), "C0000000.ZSB");
}

TEST_F(ZSBFileReader, TheFirstFileThatIsThereDecidesEvenWhenItIsDamaged) {
    support::WriteFile(Path("T0000000.ZRB"), "SCAN");
    WriteEmpty("C0000000.ZRB");
    EXPECT_EQ(file_->OpenNext(6), 0);
    EXPECT_STREQ(file_->NamePattern(), "T%02lu%05lu.ZRB");
}

TEST_F(ZSBFileReader, ChecksTheNumbersForWhatANameCanHoldAndOpensItsOwn) {
    WriteEmpty("T0000000.ZRB");
    for (const auto& [file, set] : {std::pair{0, 100}, {100'000, 0}, {-1, 0}, {0, -1}}) {
        EXPECT_EQ(file_->Open(3, file, set), kBadParameter) << file << ' ' << set;
    }
    EXPECT_EQ(file_->Open(3, 99'999, 99), 0);
    EXPECT_EQ(CurrentName(), "T0000000.ZRB");
}

TEST_F(ZSBFileReader, ChecksNumbersBeforeItsStateAndItsStateBeforeTheMode) {
    WriteEmpty("T0000000.ZRB");
    ASSERT_EQ(file_->OpenNext(6), 0);
    EXPECT_EQ(file_->Open(6, 100'000, 0), kBadParameter);
    EXPECT_EQ(file_->Open(9, 0, 0), kInvalidState);
}

TEST_F(ZSBFileReader, WalksASetFileByFile) {
    ScanFileImage::Raw({records_[0]}, 0).Write(Path("T0000000.ZRB"));
    ScanFileImage::Raw({records_[1]}).Write(Path("T0000001.ZRB"));
    ASSERT_EQ(file_->OpenNext(6), 0);
    EXPECT_EQ(file_->LastFile(), 0U);
    ExpectRecord(records_[0]);
    EXPECT_EQ(ReadStatus(), kEndOfFile);
    ASSERT_EQ(file_->OpenNextClose(), 0);
    ASSERT_EQ(file_->OpenNext(6), 0);
    EXPECT_EQ(file_->LastFile(), 0x002U);
    ExpectRecord(records_[1]);
    EXPECT_EQ(file_->OpenNextClose(), 0);
    EXPECT_EQ(file_->OpenNext(6), kNotFound);
    EXPECT_EQ(CurrentName(), "T0000002.ZRB");
}

TEST_F(ZSBFileReader, JoinsDirectoryAndNameAsTheyStand) {
    WriteEmpty("prefixT0000000.ZRB");
    file_ = MakeReader(Path("prefix"));
    EXPECT_EQ(file_->OpenNext(6), 0);
    ASSERT_EQ(file_->OpenClose(), 0);
    EXPECT_EQ(file_->Open("T0000000.ZRB", Path("prefix").c_str()), 0);
}

/// A path of so many characters to a file that is there.
std::string LongPath(const std::string& directory, const std::string& name, std::size_t length) {
    std::string path = directory;
    while (path.size() + name.size() < length) {
        path += '/';
    }
    return path + name;
}

TEST_F(ZSBFileReader, TakesAPathOf1023CharactersAndNoLongerOne) {
    WriteEmpty("file.ZRB");
    EXPECT_EQ(file_->Open(LongPath(directory_.Path(), "file.ZRB", 1024)), kBadParameter);
    EXPECT_FALSE(file_->HasName());
    EXPECT_EQ(file_->Open(LongPath(directory_.Path(), "file.ZRB", 1023)), 0);
}

TEST_F(ZSBFileReader, SaysWhyAFileCouldNotBeOpened) {
    EXPECT_EQ(file_->Open(Path("missing.ZRB")), kNotFound);
    EXPECT_EQ(log_.Text(),
              "warning: different zlib version\n"
              "util/common/zsbFile[1782] Could not open " +
                  Path("missing.ZRB") + " because No such file or directory\n");
}

TEST_F(ZSBFileReader, RefusesADirectory) {
    std::filesystem::create_directory(Path("T0000000.ZRB"));
    EXPECT_EQ(file_->OpenNext(3), kNotFound);
    EXPECT_THAT(log_.Text(), EndsWith("T0000000.ZRB because Is a directory\n"));
}

TEST_F(ZSBFileReader, RefusesAFifoWithoutWaitingForItsWriter) {
    ASSERT_EQ(mkfifo(Path("T0000000.ZRB").c_str(), 0600), 0);
    EXPECT_EQ(file_->OpenNext(3), kNotFound);
    EXPECT_THAT(log_.Text(), EndsWith("T0000000.ZRB because Illegal seek\n"));
}

/// Lets go of root's right to read everything, where this is root.
class AsAnotherUser {
  public:
    AsAnotherUser() { changed_ = geteuid() == 0 && seteuid(kNobody) == 0; }
    ~AsAnotherUser() {
        if (changed_ && seteuid(0) != 0) {
            std::abort();
        }
    }
    AsAnotherUser(const AsAnotherUser&) = delete;
    AsAnotherUser& operator=(const AsAnotherUser&) = delete;

  private:
    static constexpr uid_t kNobody = 65'534;
    bool changed_ = false;
};

TEST_F(ZSBFileReader, RefusesAFileThatMayNotBeRead) {
    WriteEmpty("T0000000.ZRB");
    ASSERT_EQ(chmod(directory_.Path().c_str(), 0755), 0);
    ASSERT_EQ(chmod(Path("T0000000.ZRB").c_str(), 0), 0);
    const AsAnotherUser other;
    EXPECT_EQ(file_->OpenNext(3), kNotFound);
    EXPECT_THAT(log_.Text(), EndsWith("T0000000.ZRB because Permission denied\n"));
}

TEST_F(ZSBFileReader, TellsTheKindOfAFileByItsName) {
    const std::vector<std::pair<std::string, bool>> kinds{
        {"a.ZSB", true},      {"a.ZRB", false},    {"a", true},
        {"a.ZSB.ZRB", false}, {"a.ZRB.ZSB", true}, {"a.ZRB.ZSB.ZRB", false}};
    for (const auto& [name, isZSB] : kinds) {
        WriteEmpty(name);
        ASSERT_EQ(file_->Open(Path(name)), 0);
        EXPECT_EQ(file_->IsZSB(), isZSB) << name;
        ASSERT_EQ(file_->OpenClose(), 0);
    }
}

TEST_F(ZSBFileReader, HasNoNameBeforeTheFirstOpen) {
    std::string name;
    EXPECT_THROW(file_->CurrentFullName(name), std::runtime_error);
    EXPECT_THROW(static_cast<void>(file_->IsZSB()), std::runtime_error);
}

TEST_F(ZSBFileReader, LogsWhatItOpensWhenItIsTraced) {
    WriteEmpty("a.ZRB");
    file_->Trace(true);
    ASSERT_EQ(file_->Open(Path("a.ZRB")), 0);
    EXPECT_THAT(log_.Text(), EndsWith("Opening ZSB File -- " + Path("a.ZRB") + "\n"));
}

TEST_F(ZSBFileReader, RefusesToOpenAnotherFileBesideTheOpenOne) {
    WriteEmpty("T0000000.ZRB");
    ASSERT_EQ(file_->OpenNext(6), 0);
    EXPECT_EQ(file_->Open(Path("T0000000.ZRB")), kInvalidState);
    EXPECT_EQ(file_->Open("T0000000.ZRB", directory_.Path().c_str()), kInvalidState);
    EXPECT_EQ(file_->Open(6, 0, 0), kInvalidState);
    EXPECT_EQ(file_->OpenNext(6), kInvalidState);
    EXPECT_EQ(support::DescriptorsOf(Path("T0000000.ZRB")).size(), 1U);
}

TEST_F(ZSBFileReader, RefusesToReadWithoutAFile) {
    QuadAndBlock_s record{};
    auto* bytes = reinterpret_cast<unsigned char*>(&record);
    const auto refuses_everything = [&] {
        EXPECT_EQ(file_->QuadAndBlockRead(&record, nullptr), kInvalidState);
        EXPECT_EQ(file_->QuadAndBlockReadAndInflate(bytes), kInvalidState);
        EXPECT_EQ(file_->ReadAndValidateHeader(), kInvalidState);
        EXPECT_EQ(file_->DataRead(bytes, 8), kInvalidState);
        EXPECT_EQ(file_->DataRead2(bytes, 8), 0U);
        EXPECT_EQ(file_->OpenValidate(), kInvalidState);
        EXPECT_EQ(file_->OpenSearch(&record, 3), kInvalidState);
        EXPECT_EQ(file_->RandomRead(660, &record), kInvalidState);
        EXPECT_EQ(file_->OpenClose(), kInvalidState);
        EXPECT_EQ(file_->OpenNextClose(), kInvalidState);
        EXPECT_EQ(file_->RandomClose(), kInvalidState);
        EXPECT_EQ(file_->LastFile(), 0U);
        EXPECT_EQ(file_->BlocksInFileGet(), 0U);
    };
    refuses_everything();
    OpenImage(ScanFileImage::Compressed(records_));
    ExpectRecord(records_[0]);
    ASSERT_EQ(file_->OpenClose(), 0);
    refuses_everything();
}

TEST_F(ZSBFileReader, RefusesToInflateRawRecords) {
    OpenImage(ScanFileImage::Raw(records_));
    unsigned char bytes[kRecordBytes];
    EXPECT_EQ(file_->QuadAndBlockReadAndInflate(bytes), kInvalidState);
}

TEST_F(ZSBFileReader, RefusesToReadWhileItWrites) {
    ASSERT_EQ(file_->CreateNext(true), 0);
    EXPECT_EQ(file_->OpenNext(0), kInvalidState);
    EXPECT_EQ(file_->Open(Path("T0000000.ZSB")), kInvalidState);
    EXPECT_EQ(file_->OpenClose(), kInvalidState);
}

TEST_F(ZSBFileReader, LetsGoOfAnOpenFileWhenItGoes) {
    OpenImage(ScanFileImage::Compressed(records_));
    file_.reset();
    EXPECT_TRUE(support::DescriptorsOf(Path("image.ZRB")).empty());
}

TEST_F(ZSBFileReader, ReadsRawRecordsAndTheirOffsetsToTheEnd) {
    OpenImage(ScanFileImage::Raw(records_));
    QuadAndBlock_s record{};
    unsigned long long offset = 0;
    for (std::size_t i = 0; i < records_.size(); ++i) {
        ASSERT_EQ(file_->QuadAndBlockRead(&record, &offset), 0);
        EXPECT_TRUE(record == records_[i]);
        EXPECT_EQ(offset, 660 + i * 4104);
    }
    for (int again = 0; again < 3; ++again) {
        EXPECT_EQ(file_->QuadAndBlockRead(&record, &offset), kEndOfFile);
        EXPECT_EQ(offset, 660U + 2 * 4104);
    }
}

TEST_F(ZSBFileReader, ReadsCompressedRecordsToTheEnd) {
    const ScanFileImage image = ScanFileImage::Compressed(records_);
    OpenImage(image);
    QuadAndBlock_s record{};
    unsigned long long offset = 0;
    ASSERT_EQ(file_->QuadAndBlockRead(&record, &offset), 0);
    EXPECT_EQ(offset, 660U);
    EXPECT_TRUE(record == records_[0]);
    ASSERT_EQ(file_->QuadAndBlockRead(&record, &offset), 0);
    EXPECT_EQ(offset, image.Size());
    EXPECT_TRUE(record == records_[1]);
    for (int again = 0; again < 3; ++again) {
        EXPECT_EQ(ReadStatus(), kEndOfFile);
    }
}

TEST_F(ZSBFileReader, ReadsManyCompressedRecordsThroughItsSmallBuffer) {
    std::vector<TestRecord> many;
    unsigned seed = 1;
    for (std::uint64_t number = 0; number < 60; ++number) {
        many.push_back(MakeTestRecord(number));
        for (std::size_t i = 100; i < 4096; ++i) {
            seed = seed * 1'103'515'245 + 12'345;
            many.back().block[i] = static_cast<char>(seed >> 16);
        }
    }
    const ScanFileImage image = ScanFileImage::Compressed(many);
    ASSERT_GT(image.Size(), 10U * 16'384);
    OpenImage(image);
    for (const TestRecord& record : many) {
        ExpectRecord(record);
    }
    EXPECT_EQ(ReadStatus(), kEndOfFile);
}

TEST_F(ZSBFileReader, AFileWithoutRecordsEndsAtOnce) {
    OpenImage(ScanFileImage::Raw({}));
    EXPECT_EQ(ReadStatus(), kEndOfFile);
    ASSERT_EQ(file_->OpenClose(), 0);
    OpenImage(ScanFileImage::Compressed({}));
    EXPECT_EQ(ReadStatus(), kEndOfFile);
}

TEST_F(ZSBFileReader, ReadsFromTheStartAgainAfterReopening) {
    OpenImage(ScanFileImage::Compressed(records_));
    ExpectRecord(records_[0]);
    ASSERT_EQ(file_->OpenClose(), 0);
    OpenImage(ScanFileImage::Compressed(records_));
    ExpectRecord(records_[0]);
}

TEST_F(ZSBFileReader, BothDataFlagsMakeRawRecordsThatEndAtDataBytes) {
    ScanFileImage image = ScanFileImage::Raw(records_, 0x005);
    image.SetDataBytes(660 + 4104);
    OpenImage(image);
    ExpectRecord(records_[0]);
    EXPECT_EQ(ReadStatus(), kEndOfFile);
}

TEST_F(ZSBFileReader, TheRawFlagAloneLeavesTheEndAtFileEof) {
    ScanFileImage image = ScanFileImage::Raw(records_, 0x004);
    image.SetDataBytes(660);
    OpenImage(image);
    ExpectRecord(records_[0]);
    ExpectRecord(records_[1]);
    EXPECT_EQ(ReadStatus(), kEndOfFile);
}

TEST_F(ZSBFileReader, DataReadTakesExactlyAndDataRead2AtMostWhatIsAsked) {
    OpenImage(ScanFileImage::Raw({records_[0]}));
    unsigned char bytes[5000];
    ASSERT_EQ(file_->DataRead(bytes, 8), 0);
    EXPECT_EQ(bytes[0], 3);
    EXPECT_EQ(file_->DataRead2(bytes, 4), 4U);
    EXPECT_EQ(std::string_view(reinterpret_cast<char*>(bytes), 4), "LEAF");
    EXPECT_EQ(file_->DataRead2(bytes, sizeof bytes), 4092U);
    EXPECT_EQ(file_->DataRead2(bytes, sizeof bytes), 0U);
    EXPECT_THAT(log_.Text(), EndsWith("ZSBFile::DataRead:: Success\n"
                                      "util/common/zsbFile[1869] Error reading destination file "
                                      "1388 status = 22ba5000\n"));
    EXPECT_EQ(file_->DataRead(bytes, 1), kSystemError);
    EXPECT_THAT(log_.Text(), EndsWith("ZSBFile::DataRead:: Success\n"
                                      "util/common/zsbFile[1837] Error reading destination file "
                                      "1\n"));
}

TEST_F(ZSBFileReader, DataReadOffsetUpdateSkipsBytes) {
    OpenImage(ScanFileImage::Raw(records_));
    file_->DataReadOffsetUpdate(4104);
    ExpectRecord(records_[1]);
}

TEST_F(ZSBFileReader, ARecordOfAnotherLengthIsToldAndNothingFollowsIt) {
    const ScanFileImage whole = ScanFileImage::Raw({records_[0]});
    OpenImage(ScanFileImage::CompressedBytes(whole.Bytes().substr(660) + std::string(1000, 'x')));
    ExpectRecord(records_[0]);
    EXPECT_EQ(ReadStatus(), kBufferTooSmall);
    EXPECT_THAT(
        log_.Text(),
        EndsWith("util/common/zsbFile[1946] Size should be 4104 but is 3e8.  Error: 4e24\n"));
    EXPECT_EQ(ReadStatus(), kEndOfFile);
    unsigned char bytes[kRecordBytes];
    EXPECT_EQ(file_->QuadAndBlockReadAndInflate(bytes), kInvalidState);
    EXPECT_THAT(log_.Text(), EndsWith("util/common/zsbFile[1889] Error: 20010\n"));
}

TEST_F(ZSBFileReader, AnIncompleteRecordStaysIncomplete) {
    const ScanFileImage whole = ScanFileImage::Raw({records_[0]});
    ScanFileImage image = ScanFileImage::CompressedBytes(whole.Bytes().substr(660, 1000));
    OpenImage(image.Append("tail").SetFileEof(image.Size()));
    EXPECT_EQ(ReadStatus(), kBufferTooSmall);
    EXPECT_EQ(ReadStatus(), kInvalidState);
    EXPECT_EQ(ReadStatus(), kInvalidState);
}

TEST_F(ZSBFileReader, TellsZlibsResultForDamagedData) {
    ScanFileImage image = ScanFileImage::Compressed(records_);
    OpenImage(image.FlipByte(660));
    EXPECT_EQ(ReadStatus(), kInflateError - 3);
    EXPECT_THAT(log_.Text(),
                EndsWith("util/common/zsbFile[1924] Error: 22114ffd(err is fffffffd).\n"));
}

TEST_F(ZSBFileReader, ReportsTheLastFileFlagAsItStands) {
    for (const auto& [flags, last] :
         {std::pair{0x000U, 0x000U}, {0x002U, 0x002U}, {0x3FFU & ~0x002U, 0x000U}}) {
        OpenImage(ScanFileImage::Raw({}, flags));
        EXPECT_EQ(file_->LastFile(), last) << flags;
        ASSERT_EQ(file_->OpenClose(), 0);
        EXPECT_EQ(file_->LastFile(), 0U);
    }
}

TEST_F(ZSBFileReader, CountsTheRecordsThatDataBytesClaims) {
    const std::vector<std::pair<std::uint64_t, unsigned long long>> claims{
        {0, 0},
        {659, 0},
        {660, 0},
        {660 + 4103, 0},
        {660 + 4104, 1},
        {10'486'380, 2555},
        {~std::uint64_t{0}, (~std::uint64_t{0} - 660) / 4104}};
    for (const auto& [claim, count] : claims) {
        OpenImage(ScanFileImage::Raw({}).SetDataBytes(claim));
        EXPECT_EQ(file_->BlocksInFileGet(), count) << claim;
        ASSERT_EQ(file_->OpenClose(), 0);
        EXPECT_EQ(file_->BlocksInFileGet(), 0U);
    }
}

TEST_F(ZSBFileReader, CopiesThePoolNameIntoABufferOfAnySize) {
    OpenImage(ScanFileImage::Raw({}).SetPoolName(u"DATA"));
    for (const unsigned size : {1U, 2U, 4U, 5U, 64U, 128U}) {
        std::string buffer(size + 8, '#');
        file_->SFHGet_PoolName(buffer.data(), size);
        std::string wanted = std::string("DATA").substr(0, size - 1);
        wanted.resize(size, '\0');
        EXPECT_EQ(buffer, wanted + "########") << size;
    }
    char untouched = '#';
    file_->SFHGet_PoolName(&untouched, 0);
    EXPECT_EQ(untouched, '#');
}

TEST_F(ZSBFileReader, CopiesAPoolNameThatFillsAllItsUnits) {
    OpenImage(ScanFileImage::Raw({}).SetPoolName(std::u16string(256, u'x')));
    std::string buffer(300, '#');
    file_->SFHGet_PoolName(buffer.data(), 300);
    EXPECT_STREQ(buffer.c_str(), std::string(256, 'x').c_str());
    EXPECT_EQ(buffer.back(), '\0');
    file_->SFHGet_PoolName(buffer.data(), 128);
    EXPECT_STREQ(buffer.c_str(), std::string(127, 'x').c_str());
}

TEST_F(ZSBFileReader, TakesTheLowByteOfEachUnitOfThePoolName) {
    OpenImage(ScanFileImage::Raw({}).SetPoolName(u"\u0144\u0161t\u00E9"));
    char buffer[8];
    file_->SFHGet_PoolName(buffer, sizeof buffer);
    EXPECT_STREQ(buffer, "Dat\xE9");
}

TEST_F(ZSBFileReader, ReadsSingleRecordsByTheOffsetsItReported) {
    ScanFileImage::Raw(records_).Write(Path("a.ZRB"));
    ASSERT_EQ(file_->RandomOpen(Path("a.ZRB")), 0);
    QuadAndBlock_s record{};
    for (const std::size_t i : {1, 0, 1, 1}) {
        ASSERT_EQ(file_->RandomRead(static_cast<unsigned>(660 + i * 4104), &record), 0);
        EXPECT_TRUE(record == records_[i]);
    }
    EXPECT_EQ(file_->RandomRead(660 + 2 * 4104, &record), kEndOfFile);
    EXPECT_EQ(file_->RandomRead(0xFFFFFFFF, &record), kEndOfFile);
    EXPECT_EQ(file_->RandomRead(660 + 4104 + 1, &record), kSystemError);
    EXPECT_EQ(file_->RandomClose(), 0);
}

TEST_F(ZSBFileReader, RandomOpenClosesWhatIsOpen) {
    ScanFileImage::Raw({records_[0]}).Write(Path("a.ZRB"));
    ScanFileImage::Raw({records_[1]}).Write(Path("b.ZRB"));
    ASSERT_EQ(file_->RandomOpen(Path("a.ZRB")), 0);
    ASSERT_EQ(file_->RandomOpen(Path("b.ZRB")), 0);
    QuadAndBlock_s record{};
    ASSERT_EQ(file_->RandomRead(660, &record), 0);
    EXPECT_TRUE(record == records_[1]);
    EXPECT_TRUE(support::DescriptorsOf(Path("a.ZRB")).empty());
    EXPECT_EQ(file_->RandomOpen(Path("missing.ZRB")), kNotFound);
    EXPECT_EQ(file_->RandomRead(660, &record), kInvalidState);
}

TEST_F(ZSBFileReader, RandomOpenRefusesACompressedFileAndLeavesNoneOpen) {
    ScanFileImage::Compressed(records_).Write(Path("C0000000.ZRB"));
    EXPECT_EQ(file_->RandomOpen(Path("C0000000.ZRB")), kNotUncompressed);
    EXPECT_EQ(file_->OpenClose(), kInvalidState);
    EXPECT_TRUE(support::DescriptorsOf(Path("C0000000.ZRB")).empty());
    ScanFileImage::Raw(records_, 0x005).Write(Path("C0000000.ZRB"));
    EXPECT_EQ(file_->RandomOpen(Path("C0000000.ZRB")), 0);
}

TEST_F(ZSBFileReader, ReadsASetThatItsOwnWriterMade) {
    const std::string pool = "DATA";
    ZSBFile writer(directory_.Path().c_str(), &pool, false, nullptr, true, 0, 16, -1, 10'485'760);
    ASSERT_EQ(writer.CreateNext(false), 0);
    QuadAndBlock_s record{};
    record.blockNumber = records_[0].number;
    records_[0].block.copy(record.block, sizeof record.block);
    ASSERT_EQ(writer.QuadAndBlockWrite(&record), 0);
    ASSERT_EQ(writer.CreateClose(true, false, false, false, nullptr), 0);
    ASSERT_EQ(file_->OpenNext(6), 0);
    EXPECT_EQ(CurrentName(), "C0000000.ZRB");
    EXPECT_EQ(file_->BlocksInFileGet(), 1U);
    ExpectRecord(records_[0]);
    EXPECT_EQ(ReadStatus(), kEndOfFile);
}

}  // namespace
