#include <gtest/gtest.h>

#include <string>

#include "util/zsbtool/output.h"
#include "util/zsbtool/table.h"

namespace zsbtool {
namespace {

std::string Printed(const Table& table, bool colour) {
    Output out(-1);
    table.Write(out, Painter(colour));
    return std::string(out.Kept());
}

Table Sample() {
    Table table({{"file"}, {"records", true}, {"verdict"}});
    table.Row({"T0000000.ZSB", "2555", {"good", Tone::kGood}});
    table.Row({"ä", "7", {"bad", Tone::kBad}});
    return table;
}

TEST(Table, MakesEachColumnAsWideAsItsWidestCell) {
    EXPECT_EQ(Printed(Sample(), false),
              "file          records  verdict\n"
              "T0000000.ZSB     2555  good\n"
              "ä                   7  bad\n");
}

TEST(Table, PaintsCellsWithoutTheirPadding) {
    EXPECT_EQ(Printed(Sample(), true),
              "\x1b[1mfile\x1b[0m          \x1b[1mrecords\x1b[0m  \x1b[1mverdict\x1b[0m\n"
              "T0000000.ZSB     2555  \x1b[32mgood\x1b[0m\n"
              "ä                   7  \x1b[31mbad\x1b[0m\n");
}

TEST(Painter, PaintsInOneOf256Colours) {
    EXPECT_EQ(Painter(true).InColour(196, "A"), "\x1b[38;5;196mA\x1b[0m");
    EXPECT_EQ(Painter(false).InColour(196, "A"), "A");
}

TEST(Table, LetsNoNameSteerTheTerminal) {
    Table table({{"name"}});
    table.Row({"\x1b[2J\n"});
    EXPECT_EQ(Printed(table, true), "\x1b[1mname\x1b[0m\n\\x1b[2J\\x0a\n");
}

}  // namespace
}  // namespace zsbtool
