#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "util/common/errors.h"

namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

using Rows = std::span<const ErrorRow>;

constexpr std::size_t kServiceRows = 714;
constexpr std::size_t kNetworkRows = 449;

const Rows kServiceTable(ErrorTable, kServiceRows);
const Rows kNetworkTable(QDS_NIT_ErrorTable, kNetworkRows);

std::string Trimmed(std::string_view name) {
    if (name.ends_with(' ')) {
        name.remove_suffix(1);
    }
    return std::string(name);
}

std::vector<std::string> NamesOf(Rows rows, int code) {
    std::vector<std::string> names;
    for (const ErrorRow& row : rows) {
        if (row.code == code) {
            names.emplace_back(row.name);
        }
    }
    return names;
}

std::ptrdiff_t CountFamily(std::string_view prefix) {
    return std::ranges::count_if(kNetworkTable, [prefix](const ErrorRow& row) {
        return std::string_view(row.name).starts_with(prefix);
    });
}

std::ptrdiff_t CountBlanks(std::string_view prefix) {
    return std::ranges::count_if(kNetworkTable, [prefix](const ErrorRow& row) {
        const std::string_view name = row.name;
        return name.starts_with(prefix) && name.ends_with(' ');
    });
}

void ExpectRow(const ErrorRow& row, int code, const char* name) {
    EXPECT_EQ(row.code, code);
    EXPECT_STREQ(row.name, name);
}

/// Every name is upper-case words joined by single underscores, after `from` characters of prefix.
void ExpectWellFormed(const std::string& name, std::size_t from) {
    ASSERT_GT(name.size(), from) << name;
    EXPECT_EQ(name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_", from),
              std::string::npos)
        << name;
    EXPECT_EQ(name.find("__"), std::string::npos) << name;
    EXPECT_NE(name.back(), '_') << name;
}

void ExpectNoNameRepeated(Rows rows) {
    std::set<std::string> seen;
    for (const ErrorRow& row : rows) {
        EXPECT_TRUE(seen.insert(Trimmed(row.name)).second) << row.name;
    }
}

TEST(ErrorTable, Has714RowsBeforeItsSentinel) {
    static_assert(std::extent_v<decltype(ErrorTable)> == kServiceRows + 1);
    for (const ErrorRow& row : kServiceTable) {
        ASSERT_NE(row.code, 0);
        ASSERT_NE(row.name, nullptr) << row.code;
    }
    ExpectRow(ErrorTable[kServiceRows], 0, "End of table");
}

TEST(ErrorTable, StartsAndEndsAtTheEdgesOfItsRange) {
    ExpectRow(kServiceTable.front(), 20000, "zERR_NO_MEMORY");
    ExpectRow(kServiceTable.back(), 24999, "zERR_GENERIC_OSTREL_ERROR");
}

TEST(ErrorTable, IsStrictlyAscending) {
    for (std::size_t i = 1; i < kServiceTable.size(); ++i) {
        EXPECT_LT(kServiceTable[i - 1].code, kServiceTable[i].code);
    }
}

TEST(ErrorTable, NamesEveryRowInOneFamilyAndOnce) {
    for (const ErrorRow& row : kServiceTable) {
        EXPECT_THAT(row.name, StartsWith("zERR_"));
        ExpectWellFormed(row.name, std::string_view("zERR_").size());
    }
    ExpectNoNameRepeated(kServiceTable);
}

TEST(ErrorTable, LeavesOutTheNumberBeforeTheLastAndTheFallbackName) {
    EXPECT_THAT(NamesOf(kServiceTable, 24998), ElementsAre());
    for (const ErrorRow& row : kServiceTable) {
        EXPECT_STRNE(row.name, "zERR_UNKNOWN_ERROR");
    }
}

struct NamedStatus {
    int constant;
    int number;
    const char* name;
};

class NamedStatuses : public testing::TestWithParam<NamedStatus> {};

TEST_P(NamedStatuses, StandInTheCatalogueUnderTheirNumbers) {
    EXPECT_EQ(GetParam().constant, GetParam().number);
    EXPECT_THAT(NamesOf(kServiceTable, GetParam().number), ElementsAre(GetParam().name));
    EXPECT_STREQ(Ostrel::GetErrorFromNumber(GetParam().constant), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(
    ErrorTable, NamedStatuses,
    testing::Values(
        NamedStatus{zERR_NO_MEMORY, 20000, "zERR_NO_MEMORY"},
        NamedStatus{zERR_BUFFER_TOO_SMALL, 20004, "zERR_BUFFER_TOO_SMALL"},
        NamedStatus{zERR_RETURN_PARA_NULL, 20005, "zERR_RETURN_PARA_NULL"},
        NamedStatus{zERR_QUAD_TOO_BIG_FOR_LONG, 20006, "zERR_QUAD_TOO_BIG_FOR_LONG"},
        NamedStatus{zERR_BAD_PARAMETER_VALUE, 20008, "zERR_BAD_PARAMETER_VALUE"},
        NamedStatus{zERR_INVALID_STATE, 20010, "zERR_INVALID_STATE"},
        NamedStatus{zERR_NOT_SUPPORTED, 20011, "zERR_NOT_SUPPORTED"},
        NamedStatus{zERR_MEDIA_CORRUPTED, 20012, "zERR_MEDIA_CORRUPTED"},
        NamedStatus{zERR_USER_ABORTED, 20017, "zERR_USER_ABORTED"},
        NamedStatus{zERR_END_OF_FILE, 20100, "zERR_END_OF_FILE"},
        NamedStatus{zERR_BAD_TRANSFORMATION, 20150, "zERR_BAD_TRANSFORMATION"},
        NamedStatus{zERR_FILE_ACCESS_REFUSED, 20401, "zERR_FILE_ACCESS_REFUSED"},
        NamedStatus{zERR_NO_FILES_FOUND, 20424, "zERR_NO_FILES_FOUND"},
        NamedStatus{zERR_UNABLE_TO_OPEN_BEAST, 20431, "zERR_UNABLE_TO_OPEN_BEAST"},
        NamedStatus{zERR_ZID_NOT_FOUND, 20444, "zERR_ZID_NOT_FOUND"},
        NamedStatus{zERR_POOL_STATE_INCOMPATIBLE, 20813, "zERR_POOL_STATE_INCOMPATIBLE"},
        NamedStatus{zERR_INVALID_VOLUME_ID, 20821, "zERR_INVALID_VOLUME_ID"},
        NamedStatus{zERR_VOLUME_STATE_CHANGE_REQUESTED, 20826,
                    "zERR_VOLUME_STATE_CHANGE_REQUESTED"},
        NamedStatus{zERR_POOL_CONSUMER_PREVENTED, 20880, "zERR_POOL_CONSUMER_PREVENTED"},
        NamedStatus{zERR_VOLUME_CONSUMER_PREVENTED, 20881, "zERR_VOLUME_CONSUMER_PREVENTED"},
        NamedStatus{zERR_COMPRESSION_NOT_ENABLED, 21209, "zERR_COMPRESSION_NOT_ENABLED"},
        NamedStatus{zERR_XML_IS_INCOMPLETE, 21703, "zERR_XML_IS_INCOMPLETE"},
        NamedStatus{zERR_LIB_SEARCH_STRING_NOT_FOUND, 21820, "zERR_LIB_SEARCH_STRING_NOT_FOUND"},
        NamedStatus{zERR_LIB_QUOTE_NOT_FOUND, 21821, "zERR_LIB_QUOTE_NOT_FOUND"},
        NamedStatus{zERR_SUPERBLOCK_BAD_BLOCK_SIGNATURE, 24861,
                    "zERR_SUPERBLOCK_BAD_BLOCK_SIGNATURE"},
        NamedStatus{zERR_SUPERBLOCK_MISMATCH, 24865, "zERR_SUPERBLOCK_MISMATCH"},
        NamedStatus{zERR_GENERIC_OSTREL_ERROR, 24999, "zERR_GENERIC_OSTREL_ERROR"}),
    [](const testing::TestParamInfo<NamedStatus>& status) { return status.param.name; });

TEST(QdsNitErrorTable, Has449RowsBeforeItsSentinel) {
    static_assert(std::extent_v<decltype(QDS_NIT_ErrorTable)> == kNetworkRows + 1);
    for (const ErrorRow& row : kNetworkTable) {
        ASSERT_LT(row.code, 0);
        ASSERT_NE(row.name, nullptr) << row.code;
    }
    ExpectRow(QDS_NIT_ErrorTable[kNetworkRows], 0, "End of table");
}

TEST(QdsNitErrorTable, StartsAndEndsAtTheEdgesOfItsRange) {
    ExpectRow(kNetworkTable.front(), -9014, "NITERR_INVALID_PARAMETER");
    ExpectRow(kNetworkTable.back(), -1, "DSERR_INSUFFICIENT_SPACE");
}

TEST(QdsNitErrorTable, IsAscendingButNotUnique) {
    std::set<int> doubled;
    for (std::size_t i = 1; i < kNetworkTable.size(); ++i) {
        EXPECT_LE(kNetworkTable[i - 1].code, kNetworkTable[i].code);
        if (kNetworkTable[i - 1].code == kNetworkTable[i].code) {
            doubled.insert(kNetworkTable[i].code);
        }
    }
    EXPECT_GT(doubled.size(), 2U);
    for (const int code : doubled) {
        EXPECT_LE(NamesOf(kNetworkTable, code).size(), 3U) << code;
    }
}

TEST(QdsNitErrorTable, GivesMinus150ItsThreeNamesInOrder) {
    EXPECT_THAT(NamesOf(kNetworkTable, -150),
                ElementsAre("DSERR_NO_ALLOC_SPACE", "DSERR_TARGET_NOT_A_SUBDIR",
                            "ERR_INSUFFICIENT_MEMORY "));
}

TEST(QdsNitErrorTable, FallsIntoThreeFamilies) {
    EXPECT_EQ(CountFamily("NITERR_"), 14);
    EXPECT_EQ(CountFamily("ERR_"), 306);
    EXPECT_EQ(CountFamily("DSERR_"), 129);
}

TEST(QdsNitErrorTable, KeepsTheNetworkInterfaceFamilyAtItsFront) {
    for (std::size_t i = 0; i < 14; ++i) {
        EXPECT_EQ(kNetworkTable[i].code, -9014 + static_cast<int>(i));
        EXPECT_THAT(kNetworkTable[i].name, StartsWith("NITERR_"));
    }
}

TEST(QdsNitErrorTable, KeepsTheTrailingBlanksOf75Names) {
    EXPECT_EQ(CountBlanks(""), 75);
    EXPECT_EQ(CountBlanks("ERR_"), 45);
    EXPECT_EQ(CountBlanks("DSERR_"), 30);
    for (const char* name :
         {"ERR_PARTIAL_RESULTS ", "ERR_INSUFFICIENT_MEMORY ", "ERR_REQUEST_UNKNOWN "}) {
        EXPECT_EQ(
            std::ranges::count(kNetworkTable, std::string_view(name),
                               [](const ErrorRow& row) { return std::string_view(row.name); }),
            1)
            << name;
    }
}

TEST(QdsNitErrorTable, RepeatsNoNameNotEvenWithoutItsBlank) {
    ExpectNoNameRepeated(kNetworkTable);
    for (const ErrorRow& row : kNetworkTable) {
        ExpectWellFormed(Trimmed(row.name), 0);
    }
}

TEST(GetErrorFromNumber, AnswersSuccessAndPlainFailureWithoutTheCatalogue) {
    EXPECT_STREQ(Ostrel::GetErrorFromNumber(0), "zOK");
    EXPECT_STREQ(Ostrel::GetErrorFromNumber(-1), "zFAILURE");
}

TEST(GetErrorFromNumber, LeavesNumbersBelowTheCatalogueToTheMmLookup) {
    for (const int code : {19999, 1, -2, -5, -150, INT_MIN}) {
        EXPECT_STREQ(Ostrel::GetErrorFromNumber(code), "MM_UNKNOWN_ERROR") << code;
    }
}

TEST(GetErrorFromNumber, GivesTheFirstAndTheLastRow) {
    EXPECT_STREQ(Ostrel::GetErrorFromNumber(20000), "zERR_NO_MEMORY");
    EXPECT_STREQ(Ostrel::GetErrorFromNumber(24999), "zERR_GENERIC_OSTREL_ERROR");
}

TEST(GetErrorFromNumber, GivesEveryRowItsName) {
    for (const ErrorRow& row : kServiceTable) {
        EXPECT_STREQ(Ostrel::GetErrorFromNumber(row.code), row.name);
    }
}

TEST(GetErrorFromNumber, DoesNotKnowNumbersThatTheCatalogueLacks) {
    for (const int code : {24998, 25000, zFILE_BEING_WRITTEN, zSHORT_DEVICE_WRITE,
                           zSCAN_FILE_INVALID, SystemErrorStatus(EIO), INT_MAX}) {
        EXPECT_STREQ(Ostrel::GetErrorFromNumber(code), "zERR_UNKNOWN_ERROR") << code;
    }
}

TEST(QdsNitGetErrorFromNumber, AnswersSuccessWithoutTheCatalogue) {
    EXPECT_STREQ(QDS_NIT_GetErrorFromNumber(0), "ERR_OK");
}

TEST(QdsNitGetErrorFromNumber, GivesTheFirstOfThreeNames) {
    EXPECT_STREQ(QDS_NIT_GetErrorFromNumber(-150), "DSERR_NO_ALLOC_SPACE");
}

TEST(QdsNitGetErrorFromNumber, GivesEveryCodeTheNameOfItsFirstRow) {
    for (const ErrorRow& row : kNetworkTable) {
        EXPECT_EQ(QDS_NIT_GetErrorFromNumber(row.code), NamesOf(kNetworkTable, row.code).front());
    }
}

TEST(QdsNitGetErrorFromNumber, GivesANameWithItsTrailingBlank) {
    const auto* const row = std::ranges::find(
        QDS_NIT_ErrorTable, std::string_view("ERR_REQUEST_UNKNOWN "),
        [](const ErrorRow& candidate) { return std::string_view(candidate.name); });
    ASSERT_NE(row, std::end(QDS_NIT_ErrorTable));
    EXPECT_STREQ(QDS_NIT_GetErrorFromNumber(row->code), "ERR_REQUEST_UNKNOWN ");
}

TEST(QdsNitGetErrorFromNumber, ComparesTheWholeNumberAndNotItsLow32Bits) {
    EXPECT_STREQ(QDS_NIT_GetErrorFromNumber(0x1FFFFFF6A), "ERR_UNKNOWN_ERROR");
    EXPECT_STREQ(QDS_NIT_GetErrorFromNumber(0xFFFFFF6A), "ERR_UNKNOWN_ERROR");
}

TEST(QdsNitGetErrorFromNumber, DoesNotKnowNumbersThatTheCatalogueLacks) {
    for (const long code : {-9015L, -9000L, 1L, 150L, 20000L, 0x100000000L, LONG_MIN, LONG_MAX}) {
        EXPECT_STREQ(QDS_NIT_GetErrorFromNumber(code), "ERR_UNKNOWN_ERROR") << code;
    }
}

TEST(MmGetErrorFromNumber, KnowsNoNumber) {
    for (const unsigned long code : {0UL, 1UL, 20000UL, ULONG_MAX}) {
        EXPECT_STREQ(MM_GetErrorFromNumber(code), "MM_UNKNOWN_ERROR") << code;
    }
}

TEST(CompositeStatuses, WrapSystemAndZlibErrors) {
    EXPECT_EQ(zSYSTEM_ERROR_BASE, 0x22BA5000);
    EXPECT_EQ(SystemErrorStatus(ENOENT), 0x22BA5002);
    EXPECT_EQ(SystemErrorStatus(ENOSPC), 0x22BA501C);
    EXPECT_EQ(zINFLATE_ERROR_BASE, 0x22115000);
    EXPECT_EQ(zINFLATE_ERROR_BASE + -3, 0x22114FFD);
}

TEST(CompositeStatuses, StandOutsideTheCatalogue) {
    EXPECT_EQ(zSCAN_FILE_INVALID, 0x22DA5E25);
    EXPECT_EQ(zSHORT_DEVICE_READ, 0x22DA67F3);
    EXPECT_EQ(zEVENT_REGISTRATION_FAILED, 584738804);
    EXPECT_EQ(zFILE_BEING_WRITTEN, 28001);
    EXPECT_EQ(zSHORT_DEVICE_WRITE, 28576);
}

OstrelError RefusedRequest() {
    return {"getPoolInfo results", 20401, "util/common/tXML[1401]"};
}

AdminError BrokenChannel() {
    return {"Could not write command", "util/common/ostrelVFS[312]", EPIPE};
}

void ExpectRefusedRequest(const OstrelError& error) {
    EXPECT_STREQ(error.what(), "getPoolInfo results");
    EXPECT_EQ(error.status, 20401);
    EXPECT_EQ(error.where, "util/common/tXML[1401]");
    EXPECT_EQ(error.isOstrelStatus, 1);
    EXPECT_EQ(error.systemError, 0);
}

void ExpectBrokenChannel(const OstrelError& error) {
    EXPECT_STREQ(error.what(), "Could not write command");
    EXPECT_EQ(error.status, 0);
    EXPECT_EQ(error.where, "util/common/ostrelVFS[312]");
    EXPECT_EQ(error.isOstrelStatus, 0);
    EXPECT_EQ(error.systemError, EPIPE);
}

TEST(OstrelError, CarriesMessageStatusAndPosition) {
    ExpectRefusedRequest(RefusedRequest());
}

TEST(AdminError, CarriesTheSystemErrorAndIsNoServiceStatus) {
    ExpectBrokenChannel(BrokenChannel());
}

TEST(AdminError, TakesTheSystemErrorAsItIsWhenItIsNotGiven) {
    errno = EPIPE;
    ExpectBrokenChannel(AdminError("Could not write command", "util/common/ostrelVFS[312]"));
    ExpectBrokenChannel(
        AdminError("Could not write command", 0, "util/common/ostrelVFS[312]", EPIPE));
}

TEST(AdminError, CarriesAStatusWhenAReplyWasMalformed) {
    const AdminError error("Unable to parse XML tag <getPoolInfo>", zERR_XML_IS_INCOMPLETE,
                           "util/common/tXML[1390]");
    EXPECT_STREQ(error.what(), "Unable to parse XML tag <getPoolInfo>");
    EXPECT_EQ(error.status, 21703);
    EXPECT_EQ(error.where, "util/common/tXML[1390]");
    EXPECT_EQ(error.isOstrelStatus, 0);
    EXPECT_EQ(error.systemError, 0);
}

TEST(OstrelError, KeepsItsFieldsInOrderAfterTheStandardBase) {
    const OstrelError error = RefusedRequest();
    const std::less<const void*> before;
    EXPECT_TRUE(before(static_cast<const std::runtime_error*>(&error), &error.status));
    EXPECT_TRUE(before(&error.status, &error.where));
    EXPECT_TRUE(before(&error.where, &error.isOstrelStatus));
    EXPECT_TRUE(before(&error.isOstrelStatus, &error.systemError));
    EXPECT_EQ(sizeof(AdminError), sizeof(OstrelError));
}

TEST(OstrelError, ACopyOwnsItsTextsAndOutlivesTheOriginal) {
    auto original = std::make_unique<OstrelError>(RefusedRequest());
    const OstrelError copy = *original;
    original->where = "elsewhere";
    original.reset();
    ExpectRefusedRequest(copy);
}

TEST(AdminError, ACopyOwnsItsTextsAndOutlivesTheOriginal) {
    auto original = std::make_unique<AdminError>(BrokenChannel());
    const AdminError copy = *original;
    original.reset();
    ExpectBrokenChannel(copy);
}

/// Throws `error` and tells which handler of an access-layer caller gets it.
template <class Error>
std::string CaughtAs(const Error& error) {
    try {
        throw error;
    } catch (const AdminError& caught) {
        ExpectBrokenChannel(caught);
        return "channel";
    } catch (const OstrelError& caught) {
        ExpectRefusedRequest(caught);
        return "service";
    } catch (const std::runtime_error&) {
        return "neither";
    }
}

TEST(AdminError, IsCaughtApartFromTheServicesErrors) {
    EXPECT_EQ(CaughtAs(BrokenChannel()), "channel");
    EXPECT_EQ(CaughtAs(RefusedRequest()), "service");
    EXPECT_EQ(CaughtAs(std::runtime_error("Could not open command file")), "neither");
}

TEST(AdminError, IsCaughtWholeWithTheServicesErrorsWhereTheyAreNotToldApart) {
    try {
        throw BrokenChannel();
    } catch (const OstrelError& caught) {
        ExpectBrokenChannel(caught);
        EXPECT_NE(dynamic_cast<const AdminError*>(&caught), nullptr);
    }
}

TEST(OstrelError, IsARuntimeErrorThatKeepsItsMessage) {
    static_assert(std::has_virtual_destructor_v<OstrelError>);
    EXPECT_THROW(
        {
            try {
                throw RefusedRequest();
            } catch (const std::runtime_error& caught) {
                EXPECT_STREQ(caught.what(), "getPoolInfo results");
                throw;
            }
        },
        OstrelError);
}

}  // namespace
