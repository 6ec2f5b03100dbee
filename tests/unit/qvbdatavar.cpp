#include "qvxbase/qvbdatavar.h"

#include "support/textio.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct TruthCase {
  const char* text;
  bool value;
  bool ok;
};

class QvbDatavarTruth : public testing::TestWithParam<TruthCase> {};

TEST_P(QvbDatavarTruth, ReadsAsTheTableSays) {
  QvbDatavar value;
  value.setType(QvbDatavar::TypeText);
  value.assign(QvbString(GetParam().text));
  bool ok = !GetParam().ok;
  EXPECT_EQ(value.asBool(&ok), GetParam().value);
  EXPECT_EQ(ok, GetParam().ok);
  EXPECT_EQ(value.asBool(), GetParam().value);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, QvbDatavarTruth,
    testing::Values(TruthCase{"true", true, true}, TruthCase{"TRUE", true, true},
                    TruthCase{"yes", true, true}, TruthCase{"Yes", true, true}, TruthCase{"on", true, true},
                    TruthCase{"On", true, true}, TruthCase{"t", true, true}, TruthCase{"T", true, true},
                    TruthCase{"y", true, true}, TruthCase{"Y", true, true}, TruthCase{"1", true, true},
                    TruthCase{"2", true, true}, TruthCase{"-1", true, true}, TruthCase{"0.5", true, true},
                    TruthCase{" true\n", true, true}, TruthCase{"false", false, true},
                    TruthCase{"False", false, true}, TruthCase{"no", false, true},
                    TruthCase{"off", false, true}, TruthCase{"f", false, true}, TruthCase{"N", false, true},
                    TruthCase{"0", false, true}, TruthCase{"0.0", false, true}, TruthCase{"", false, false},
                    TruthCase{" ", false, false}, TruthCase{"maybe", false, false},
                    TruthCase{"truer", false, false}, TruthCase{"1x", false, false},
                    TruthCase{nullptr, false, false}));

TEST(QvbDatavar, IsATextUntilToldOtherwise) {
  QvbDatavar value;
  EXPECT_EQ(value.getType(), 2);
  value.setType(7);
  EXPECT_EQ(value.getType(), 7);
}

} // namespace
