#include "qvxbase/qvbresult.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>

namespace {

TEST(Result, HoldsAValueOrWhyThereIsNone) {
  QvbResult<QvbString> value(QvbString("text"));
  ASSERT_TRUE(value);
  EXPECT_EQ(*value, "text");
  EXPECT_EQ(value->length(), 4);
  EXPECT_EQ(value.code(), 0);

  const QvbResult<QvbString> none(QvbFailure{4, "not yours"});
  ASSERT_FALSE(none);
  EXPECT_EQ(none.code(), 4);
  EXPECT_EQ(none.failure().text, "not yours");
  EXPECT_TRUE(QvbResult<int>(QvbFailure{}).failure().text.isNull());
  EXPECT_EQ(QvbResult<int>(QvbFailure{}).code(), 1);
}

TEST(Result, GivesAwayWhatItHolds) {
  QvbResult<std::unique_ptr<int>> result(std::make_unique<int>(7));
  const std::unique_ptr<int> taken = *std::move(result);
  EXPECT_EQ(*taken, 7);
}

} // namespace
