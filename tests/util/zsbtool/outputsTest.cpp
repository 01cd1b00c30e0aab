#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <utility>
#include <vector>

#include "tests/support/fileBytes.h"
#include "tests/support/temporaryDirectory.h"
#include "util/zsbtool/failure.h"
#include "util/zsbtool/outputs.h"

namespace zsbtool {
namespace {

using support::ReadFile;
using support::WriteFile;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::vector<std::string> Names(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename());
    }
    return names;
}

class OutputFileTest : public testing::Test {
  protected:
    support::TemporaryDirectory directory_;
    const std::string path_ = directory_.File("out");
    Outputs outputs_;
};

TEST_F(OutputFileTest, AppearsWhenItIsCommitted) {
    OutputFile file(outputs_, path_);
    file.Write("whole");
    EXPECT_FALSE(std::filesystem::exists(path_));
    file.Commit();
    EXPECT_EQ(ReadFile(path_), "whole");
    EXPECT_THAT(Names(directory_.Path()), ElementsAre("out"));
}

TEST_F(OutputFileTest, LeavesNothingWithoutACommit) {
    { OutputFile(outputs_, path_).Write("half"); }
    EXPECT_THAT(Names(directory_.Path()), IsEmpty());
}

TEST_F(OutputFileTest, ReplacesAFileOnlyWhenItIsWhole) {
    WriteFile(path_, "old");
    OutputFile file(outputs_, path_);
    file.Write("new");
    EXPECT_EQ(ReadFile(path_), "old");
    file.Commit();
    EXPECT_EQ(ReadFile(path_), "new");
}

TEST_F(OutputFileTest, HasTheRightsOfTheUmask) {
    const mode_t old = umask(027);
    OutputFile(outputs_, path_).Commit();
    umask(old);
    struct stat facts {};
    ASSERT_EQ(stat(path_.c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0640U);
}

TEST_F(OutputFileTest, ReplacesWhatALinkLeadsToAndKeepsTheLink) {
    const std::string link = directory_.File("link");
    WriteFile(path_, "old");
    std::filesystem::create_symlink("out", link);
    OutputFile file(outputs_, link);
    file.Write("new");
    file.Commit();
    EXPECT_TRUE(std::filesystem::is_symlink(link));
    EXPECT_EQ(ReadFile(path_), "new");
}

TEST_F(OutputFileTest, RefusesWhatIsNoRegularFile) {
    const std::string pipe = directory_.File("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::filesystem::create_symlink("nowhere", directory_.File("dangling"));
    for (const std::string& path :
         {pipe, directory_.File("dangling"), directory_.Path(), std::string("/dev/null")}) {
        EXPECT_THROW(OutputFile(outputs_, path), Failure) << path;
    }
    EXPECT_THAT(Names(directory_.Path()), UnorderedElementsAre("pipe", "dangling"));
}

TEST_F(OutputFileTest, TellsWhyItCannotBeMade) {
    try {
        const OutputFile file(outputs_, directory_.File("no/out"));
        FAIL() << "nothing was thrown";
    } catch (const Failure& failure) {
        EXPECT_THAT(failure.what(), testing::EndsWith("no/out: No such file or directory"));
    }
}

class OutputFolderTest : public OutputFileTest {};

TEST_F(OutputFolderTest, HasTheRightsOfTheUmask) {
    for (const auto& [mask, rights] : {std::pair{022U, 0755U}, {027U, 0750U}, {077U, 0700U}}) {
        const mode_t old = umask(mask);
        OutputFolder(outputs_, path_).Commit();
        umask(old);
        struct stat facts {};
        ASSERT_EQ(stat(path_.c_str(), &facts), 0);
        EXPECT_EQ(facts.st_mode & 0777, rights);
        std::filesystem::remove(path_);
    }
}

TEST_F(OutputFolderTest, AppearsWithItsFilesWhenItIsCommitted) {
    OutputFolder folder(outputs_, path_ + "/");
    WriteFile(folder.Path() + "a", "1");
    WriteFile(folder.Path() + "b", "2");
    EXPECT_FALSE(std::filesystem::exists(path_));
    folder.Commit();
    EXPECT_THAT(Names(path_), UnorderedElementsAre("a", "b"));
    EXPECT_THAT(Names(directory_.Path()), ElementsAre("out"));
}

TEST_F(OutputFolderTest, LeavesNothingWithoutACommit) {
    {
        const OutputFolder folder(outputs_, path_);
        WriteFile(folder.Path() + "a", "1");
    }
    EXPECT_THAT(Names(directory_.Path()), IsEmpty());
}

TEST_F(OutputFolderTest, FillsAnEmptyFolderThatIsThere) {
    std::filesystem::create_directory(path_);
    {
        const OutputFolder abandoned(outputs_, path_);
        WriteFile(abandoned.Path() + "a", "1");
    }
    EXPECT_THAT(Names(path_), IsEmpty());
    OutputFolder folder(outputs_, path_);
    WriteFile(folder.Path() + "a", "1");
    EXPECT_FALSE(std::filesystem::exists(path_ + "/a"));
    folder.Commit();
    EXPECT_THAT(Names(path_), ElementsAre("a"));
}

TEST_F(OutputFolderTest, RefusesAFolderThatIsNotEmptyAndWhatIsNone) {
    WriteFile(path_, "");
    EXPECT_THROW(OutputFolder(outputs_, path_), Failure);
    EXPECT_THROW(OutputFolder(outputs_, directory_.Path()), Failure);
    EXPECT_THROW(OutputFolder(outputs_, directory_.File("no/out")), Failure);
    EXPECT_THAT(Names(directory_.Path()), ElementsAre("out"));
}

class OutputSignals : public OutputFileTest {
  protected:
#ifdef __SANITIZE_THREAD__
    void SetUp() override {
        GTEST_SKIP() << "ThreadSanitizer watches no threads behind a fork";
    }
#endif

    /// What became of a process that runs `body`, which must not return.
    template <class Body>
    static int WaitStatusOf(Body body) {
        const pid_t child = fork();
        if (child == 0) {
            body();
            _exit(99);
        }
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        return status;
    }
};

TEST_F(OutputSignals, EndTheProgramAndLeaveNothingHalfMade) {
    std::filesystem::create_directory(directory_.File("empty"));
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const int status = WaitStatusOf([&] {
            Outputs outputs;
            OutputFile whole(outputs, path_);
            whole.Commit();
            OutputFile half(outputs, directory_.File("half"));
            half.Write("half");
            const OutputFolder fresh(outputs, directory_.File("folder"));
            const OutputFolder inside(outputs, directory_.File("empty"));
            WriteFile(fresh.Path() + "a", "1");
            WriteFile(inside.Path() + "a", "1");
            kill(getpid(), signal);
            pause();
        });
        EXPECT_TRUE(WIFSIGNALED(status));
        EXPECT_EQ(WTERMSIG(status), signal);
        EXPECT_THAT(Names(directory_.Path()), UnorderedElementsAre("out", "empty"));
        EXPECT_THAT(Names(directory_.File("empty")), IsEmpty());
    }
}

TEST_F(OutputSignals, StayIgnoredWhereTheyWere) {
    const int status = WaitStatusOf([&] {
        std::signal(SIGHUP, SIG_IGN);
        Outputs outputs;
        OutputFile file(outputs, path_);
        kill(getpid(), SIGHUP);
        file.Commit();
        _exit(7);
    });
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 7);
    EXPECT_THAT(Names(directory_.Path()), ElementsAre("out"));
}

TEST_F(OutputSignals, HaveTheirEffectBackWhenTheOutputsAreGone) {
    const int status = WaitStatusOf([&] {
        {
            Outputs outputs;
            OutputFile(outputs, path_).Commit();
        }
        kill(getpid(), SIGTERM);
    });
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_THAT(Names(directory_.Path()), ElementsAre("out"));
}

}  // namespace
}  // namespace zsbtool
