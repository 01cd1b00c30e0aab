#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <iostream>
#include <string>
#include <vector>

#include "tests/support/fileBytes.h"
#include "tests/support/temporaryDirectory.h"
#include "util/ostrelscan/commandLine.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

constexpr const char* kHint = "Try 'ostrelscan --help' for more information.\n";

/// What a program is started with; its texts can be changed in place.
class Arguments {
  public:
    Arguments(std::initializer_list<std::string> texts) : texts_(texts) {
        texts_.insert(texts_.begin(), "ostrelscan");
        for (std::string& text : texts_) {
            pointers_.push_back(text.data());
        }
        pointers_.push_back(nullptr);
    }
    Arguments(Arguments&&) = default;
    Arguments& operator=(Arguments&&) = default;
    ~Arguments() = default;
    Arguments(const Arguments&) = delete;  // the pointers would still be those of the other
    Arguments& operator=(const Arguments&) = delete;

    int Count() const { return static_cast<int>(texts_.size()); }
    char** Pointers() { return pointers_.data(); }

  private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};

class CommandLine : public testing::Test {
  protected:
    /// The exit status, or -1 when a run is to follow.
    int Parse(Arguments arguments) {
        arguments_ = std::move(arguments);
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        settings_ = RunSettings();
        const std::optional<int> status =
            ParseCommandLine(arguments_.Count(), arguments_.Pointers(), settings_);
        std::cout.flush();
        output_ = testing::internal::GetCapturedStdout();
        errors_ = testing::internal::GetCapturedStderr();
        return status.value_or(-1);
    }

    void ExpectRefused(Arguments arguments, const std::string& output, const std::string& errors) {
        EXPECT_EQ(Parse(std::move(arguments)), 1);
        EXPECT_EQ(output_, output);
        EXPECT_EQ(errors_, errors + kHint);
    }

    Arguments arguments_{};
    RunSettings settings_;
    std::string output_;
    std::string errors_;
};

TEST_F(CommandLine, TakesASaveWithItsDefaults) {
    EXPECT_EQ(Parse({"save", "data", "/dev/pool/data"}), -1);
    EXPECT_EQ(settings_.path, "./");
    EXPECT_FALSE(settings_.automatic);
    EXPECT_FALSE(settings_.allBlocks);
    EXPECT_FALSE(settings_.bypass);
    EXPECT_FALSE(settings_.compress);
    EXPECT_FALSE(settings_.danger);
    EXPECT_TRUE(settings_.validate);
    EXPECT_STREQ(settings_.action, "save");
    EXPECT_STREQ(settings_.poolName, "DATA");
    EXPECT_STREQ(settings_.device, "/dev/pool/data");
    EXPECT_EQ(output_ + errors_, "");
}

TEST_F(CommandLine, TakesEveryOptionByItsLongName) {
    EXPECT_EQ(Parse({"--automatic", "--all-blocks", "--bypass-ostrel", "--compress", "--danger",
                     "--path=out", "--validation-skip", "restore", "P", "/dev/x"}),
              -1);
    EXPECT_TRUE(settings_.automatic);
    EXPECT_TRUE(settings_.allBlocks);
    EXPECT_TRUE(settings_.bypass);
    EXPECT_TRUE(settings_.compress);
    EXPECT_TRUE(settings_.danger);
    EXPECT_FALSE(settings_.validate);
    EXPECT_EQ(settings_.path, "out/");
    EXPECT_STREQ(settings_.action, "restore");
}

TEST_F(CommandLine, SetsWithEachOptionItsOwnSwitch) {
    const struct {
        const char* option;
        bool RunSettings::*setting;
        bool value;
    } rows[] = {{"--automatic", &RunSettings::automatic, true},
                {"--all-blocks", &RunSettings::allBlocks, true},
                {"-a", &RunSettings::allBlocks, true},
                {"--bypass-ostrel", &RunSettings::bypass, true},
                {"--compress", &RunSettings::compress, true},
                {"-c", &RunSettings::compress, true},
                {"--danger", &RunSettings::danger, true},
                {"--validation-skip", &RunSettings::validate, false}};
    bool RunSettings::*all[] = {&RunSettings::automatic, &RunSettings::allBlocks,
                                &RunSettings::bypass,    &RunSettings::compress,
                                &RunSettings::danger,    &RunSettings::validate};
    const RunSettings defaults;
    for (const auto& row : rows) {
        EXPECT_EQ(Parse({row.option, "save", "P", "/dev/x"}), -1) << row.option;
        for (bool RunSettings::*setting : all) {
            EXPECT_EQ(settings_.*setting, setting == row.setting ? row.value : defaults.*setting)
                << row.option;
        }
    }
}

TEST_F(CommandLine, TakesOptionsAnywhere) {
    EXPECT_EQ(Parse({"save", "-c", "data", "--automatic", "/dev/x", "-aPout"}), -1);
    EXPECT_TRUE(settings_.compress);
    EXPECT_TRUE(settings_.automatic);
    EXPECT_TRUE(settings_.allBlocks);
    EXPECT_EQ(settings_.path, "out/");
    EXPECT_STREQ(settings_.poolName, "DATA");
    EXPECT_STREQ(settings_.device, "/dev/x");
}

TEST_F(CommandLine, EndsThePathWithASlash) {
    const struct {
        const char* given;
        const char* path;
    } rows[] = {
        {"/tmp/scans", "/tmp/scans/"}, {"dir/", "dir/"}, {"", "/"}, {"/", "/"}, {"x", "x/"}};
    for (const auto& row : rows) {
        EXPECT_EQ(Parse({"-P", row.given, "save", "P", "/dev/x"}), -1);
        EXPECT_EQ(settings_.path, row.path);
        EXPECT_EQ(Parse({std::string("--path=") + row.given, "save", "P", "/dev/x"}), -1);
        EXPECT_EQ(settings_.path, row.path);
    }
}

TEST_F(CommandLine, TurnsThePoolNameIntoUpperCaseWhereItStands) {
    EXPECT_EQ(Parse({"save", "aZ09_-z\xE9", "/dev/Abc"}), -1);
    EXPECT_STREQ(settings_.poolName, "AZ09_-Z\xE9");
    EXPECT_EQ(settings_.poolName, arguments_.Pointers()[2]);
    EXPECT_STREQ(settings_.device, "/dev/Abc");
}

TEST_F(CommandLine, MissesTheAction) {
    ExpectRefused({}, "", "ostrelscan: missing ACTION argument.\n");
}

TEST_F(CommandLine, RefusesAnUnknownAction) {
    ExpectRefused({"Save", "data", "/dev/x"}, "ACTION Save is not legal.\n", "");
    ExpectRefused({"saves"}, "ACTION saves is not legal.\n", "");
    ExpectRefused({""}, "ACTION  is not legal.\n", "");
}

TEST_F(CommandLine, RefusesARestoreWithoutDangerBeforeLookingAtTheRest) {
    const std::string message =
        "ACTION restore is legal, but you have not read usage well enough.\n";
    ExpectRefused({"restore", "data", "/dev/x"}, message, "");
    ExpectRefused({"restore"}, message, "");
    ExpectRefused({"restore", "data", "/dev/x", "extra"}, message, "");
}

TEST_F(CommandLine, MissesThePoolName) {
    ExpectRefused({"save"}, "", "ostrelscan: missing POOLNAME argument.\n");
    ExpectRefused({"--danger", "restore"}, "", "ostrelscan: missing POOLNAME argument.\n");
}

TEST_F(CommandLine, MissesTheDevice) {
    ExpectRefused({"save", "data"}, "", "ostrelscan: missing DEVICE argument.\n");
    EXPECT_STREQ(arguments_.Pointers()[2], "DATA");
}

TEST_F(CommandLine, RefusesAFourthArgument) {
    ExpectRefused({"save", "data", "/dev/x", "extra"}, "",
                  "ostrelscan: unexpected argument - extra.\n");
    ExpectRefused({"save", "data", "/dev/x", "one", "two"}, "",
                  "ostrelscan: unexpected argument - one.\n");
}

TEST_F(CommandLine, GivesTheHintBehindGetoptsOwnComplaint) {
    for (const char* option : {"--unknown", "-x", "--path", "-P", "--compress=yes"}) {
        EXPECT_EQ(Parse({option}), 1) << option;
        EXPECT_THAT(errors_, StartsWith("ostrelscan: ")) << option;
        EXPECT_THAT(errors_, EndsWith(std::string("\n") + kHint)) << option;
        EXPECT_EQ(errors_.find("missing ACTION"), std::string::npos) << option;
        EXPECT_EQ(output_, "");
    }
}

TEST_F(CommandLine, PrintsItsVersionAndOneLineMore) {
    for (const char* option : {"-v", "--version"}) {
        EXPECT_EQ(Parse({option, "--unknown"}), 0);
        EXPECT_THAT(output_, MatchesRegex("ostrelscan \\(OSTREL\\) 2\\.00\n[^\n]+\n"));
        EXPECT_EQ(errors_, "");
    }
}

TEST_F(CommandLine, PrintsTheUsageAndLooksAtNothingBehind) {
    EXPECT_EQ(Parse({"-h", "--unknown", "nonsense"}), 0);
    EXPECT_THAT(output_, HasSubstr("\n                                     Default is \"./\"\n"));
    EXPECT_EQ(errors_, "");
    EXPECT_EQ(Parse({"--help"}), 0);
    EXPECT_THAT(output_, StartsWith("Usage: ostrelscan "));
}

TEST_F(CommandLine, BeginsAnewAfterAWordOfOptionsThatWasLeftHalfway) {
    EXPECT_EQ(Parse({"-hac"}), 0);
    EXPECT_EQ(Parse({"save", "data", "/dev/x"}), -1);
    EXPECT_FALSE(settings_.allBlocks);
    EXPECT_FALSE(settings_.compress);
}

TEST_F(CommandLine, ShowsThePathGivenBeforeTheHelpAsTheDefault) {
    EXPECT_EQ(Parse({"-P", "x", "-h"}), 0);
    EXPECT_THAT(output_, HasSubstr("Default is \"x/\"\n"));
    EXPECT_EQ(Parse({"-h", "-P", "x"}), 0);
    EXPECT_THAT(output_, HasSubstr("Default is \"./\"\n"));
}

TEST_F(CommandLine, KeepsTheUsageTextLineByLine) {
    EXPECT_EQ(Parse({"--help"}), 0);
    EXPECT_EQ(
        output_,
        "Usage: ostrelscan [OPTION]... [ROPTION]... restore POOLNAME DEVICE\n"
        "   or: ostrelscan [OPTION]... [SOPTION]... save POOLNAME DEVICE\n"
        "     Scans or restores a OSTREL pool.\n"
        "\n"
        "Mandatory arguments to long options are mandatory for short options too.\n"
        "\n"
        " OPTION:  General options.\n"
        "      -a, --all-blocks             Include non-metadata blocks.\n"
        "      -h, --help                   Displays this help information and exits.\n"
        "          --automatic              Run without user interaction (use is not\n"
        "                                   recommended).\n"
        "          --bypass-ostrel          Bypass OSTREL (use is not recommended).\n"
        "      -P, --path=PATH              Specifies path to ZSB files.\n"
        "                                     Default is \"./\"\n"
        "          --validation-skip        Skip validation of OSTREL Pool's superblock header.\n"
        "      -v, --version                Displays version information and exits.\n"
        "\n"
        " ROPTION: Restore specific options.\n"
        "          --danger                 Indicates that you are aware of the dangers\n"
        "                                   of the restore feature.\n"
        "\n"
        " SOPTION: Save specific options\n"
        "      -c, --compress               Compress the generated ZSB files.\n"
        "\n"
        "The first argument is the ACTION to perform.  This can either be 'restore' or\n"
        "'save'.  POOLNAME is a name of a OSTREL pool.  DEVICE is the name of the device.\n"
        "Under Linux, this is normally /dev/pool/POOLNAME.  DEVICE is not needed under Vantor.\n"
        "\n"
        "The 'save' ACTION is used to copy file system internal blocks.  These files\n"
        "can be used to help resolve issues with OSTREL.\n"
        "\n"
        "The 'restore' ACTION will overwrite any current data on the specified POOL and\n"
        "DEVICE.  This can destroy your data if not done correctly.  The --danger option\n"
        "is required to indicate that you understand that using 'restore' can result in\n"
        "massive data loss. Rename ZSB files to ZRB files before restoring.\n"
        "\n");
}

TEST(ShortOptions, AreNamedOnce) {
    EXPECT_STREQ(SCAN_ShortOptions, "achP:v");
}

/// Runs the whole program where it finds no terminal, in a directory of its own.
class Program : public testing::Test {
  protected:
    Program() {
        std::filesystem::current_path(directory_.Path());
        unsetenv("TERM");
    }
    void TearDown() override {
        std::filesystem::current_path(old_);
        if (!term_.empty()) {
            setenv("TERM", term_.c_str(), 1);
        }
    }

    int Run(Arguments arguments) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        const int status = RunProgram(arguments.Count(), arguments.Pointers());
        std::cout.flush();
        output_ = testing::internal::GetCapturedStdout();
        errors_ = testing::internal::GetCapturedStderr();
        return status;
    }

    static std::string TermOfTheProcess() {
        const char* term = std::getenv("TERM");
        return term != nullptr ? term : "";
    }

    support::TemporaryDirectory directory_;
    std::filesystem::path old_ = std::filesystem::current_path();
    std::string term_ = TermOfTheProcess();
    std::string log_ = directory_.File("ostrelscan.log");
    std::string output_;
    std::string errors_;
};

TEST_F(Program, LeavesNoLogOfWrongUse) {
    EXPECT_EQ(Run({}), 1);
    EXPECT_EQ(errors_, std::string("ostrelscan: missing ACTION argument.\n") + kHint);
    EXPECT_EQ(Run({"--help"}), 0);
    EXPECT_EQ(Run({"save", "data"}), 1);
    EXPECT_TRUE(std::filesystem::is_empty(directory_.Path()));
}

TEST_F(Program, EndsWhenTheLogCannotBeOpened) {
    std::filesystem::create_directory(log_);
    EXPECT_EQ(Run({"save", "data", "/dev/x"}), 1);
    EXPECT_EQ(errors_, "  Log file error: Is a directory\n");
    EXPECT_EQ(output_, "\n");
}

TEST_F(Program, LogsItsHeaderAndLeavesTheElementOpenWithoutAScreen) {
    EXPECT_EQ(Run({"--automatic", "--bypass-ostrel", "-c", "-a", "-a", "-a", "-a", "save", "data",
                   "/dev/\"x\""}),
              1);
    EXPECT_EQ(output_, "");
    const char* form =
        "<ostrelscan>\n"
        "ostrelscan - KUVO Pool Scanner\n"
        "  Version: 2\\.00\n"
        "  Build: [A-Z][a-z]{2} [ 1-3][0-9] [0-9]{4} at [0-9]{2}:[0-9]{2}:[0-9]{2}\n"
        "<CommandLine>\n"
        " <argv index=\"0x0\" argv=\"ostrelscan\" />\n"
        " <argv index=\"0x1\" argv=\"--automatic\" />\n"
        "( <argv index=\"0x[2-7]\" argv=\"-[^\n]*\" />\n){6}"
        " <argv index=\"0x8\" argv=\"save\" />\n"
        " <argv index=\"0x9\" argv=\"DATA\" />\n"
        " <argv index=\"0xa\" argv=\"/dev/\"x\"\" />\n"
        "</CommandLine>\n"
        "<CurrentTime time=\"[^\"]+\" timeValue=\"[0-9]+\" />\n"
        "Exception while attempting to create a UserInterface Object:  "
        "Could not access SCAN screen via ScreenInterface\n"
        "util/ostrelscan/scanUI\\[1106\\]\n";
    EXPECT_THAT(support::ReadFile(log_), MatchesRegex(form));
}

TEST_F(Program, AppendsToTheLogOfEarlierRuns) {
    support::WriteFile(log_, "earlier\n");
    Run({"save", "data", "/dev/x"});
    Run({"save", "data", "/dev/x"});
    const std::string log = support::ReadFile(log_);
    EXPECT_THAT(log, StartsWith("earlier\n<ostrelscan>\n"));
    EXPECT_NE(log.find("<ostrelscan>", 30), std::string::npos);
}

TEST_F(Program, GivesStandardErrorItsBufferAndBaseBack) {
    std::streambuf* const buffer = std::cerr.rdbuf();
    const std::ios_base::fmtflags flags = std::cerr.flags();
    Run({"save", "data", "/dev/x"});
    EXPECT_EQ(std::cerr.rdbuf(), buffer);
    EXPECT_EQ(std::cerr.flags(), flags);
}

}  // namespace
