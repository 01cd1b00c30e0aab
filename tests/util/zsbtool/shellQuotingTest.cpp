#include <gtest/gtest.h>

#include "util/zsbtool/shellQuoting.h"

namespace zsbtool {
namespace {

TEST(ShellQuotedTest, LeavesPlainWordsAlone) {
    EXPECT_EQ(ShellQuoted("/dev/pool/DATA-1_2.img"), "/dev/pool/DATA-1_2.img");
}

TEST(ShellQuotedTest, QuotesWhatAShellReadsOtherwise) {
    EXPECT_EQ(ShellQuoted(""), "''");
    EXPECT_EQ(ShellQuoted("a b"), "'a b'");
    EXPECT_EQ(ShellQuoted("$HOME;rm"), "'$HOME;rm'");
    EXPECT_EQ(ShellQuoted("~"), "'~'");
    EXPECT_EQ(ShellQuoted("Käse"), "'Käse'");
}

TEST(ShellQuotedTest, StepsOutOfTheQuotesForAQuote) {
    EXPECT_EQ(ShellQuoted("it's"), R"('it'\''s')");
}

TEST(ShellQuotedTest, EscapesWhatATerminalMustNotGet) {
    EXPECT_EQ(ShellQuoted("a\nb\x1b'\\"), R"($'a\012b\033\'\\')");
    EXPECT_EQ(ShellQuoted("\xff"), R"($'\377')");
}

}  // namespace
}  // namespace zsbtool
