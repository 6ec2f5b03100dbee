#include "qvlineagegraph/columns.h"

#include <gtest/gtest.h>

using namespace qvlineagegraph;

namespace {

TEST(Columns, AreAsWideAsTheirWidestCellInLetters) {
  std::string out = "before\n";
  writeColumns({"NAME", "TYPE"}, {{"Größe", "Table"}, {"a", "Job"}}, out);
  EXPECT_EQ(out, "before\nNAME   TYPE\nGröße  Table\na      Job\n");
}

TEST(Columns, AreAsWideAsATerminalShowsThem) {
  std::string out;
  writeColumns({"NAME", "TYPE"}, {{"売上.客", "Table"}, {"한국", "Job"}, {"\xff", "Job"}, {"", "Job"}}, out);
  EXPECT_EQ(out, "NAME     TYPE\n売上.客  Table\n한국     Job\n\xff        Job\n         Job\n");
}

TEST(Columns, EndARowWithoutBlanks) {
  std::string out;
  writeColumns({"A", "B", "C"}, {{"1", "", ""}, {"", "", "3"}}, out);
  EXPECT_EQ(out, "A  B  C\n1\n      3\n");
}

TEST(Columns, KeepARowOnItsLine) {
  std::string out;
  writeColumns({"A"}, {{"a\nb\t\x1b[1m"}}, out);
  EXPECT_EQ(out, "A\na\\nb\\t\\x1b[1m\n");
}

} // namespace
