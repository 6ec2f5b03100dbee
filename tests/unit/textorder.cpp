#include "textorder.h"

#include "qvxbase/qvbstring.h"

#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <string>
#include <vector>

namespace {

using Texts = std::vector<std::string>;

int compare(const std::string& a, const std::string& b) {
  return QvbString(std::string_view(a)).compare(std::string_view(b), true);
}

// Long beginnings in common, texts that begin another one, both cases, zero bytes and bytes above 127.
std::string anyText() {
  std::string text =
      *rc::gen::elementOf(Texts{"", "", "a beginning of some words", "A BEGINNING of some words"});
  for (int n = *rc::gen::inRange(0, 12); n > 0; --n)
    text += *rc::gen::elementOf(std::vector<char>{'a', 'A', 'b', 'Z', '[', '\0', '\x7F', '\xE4'});
  return text;
}

TEST(TextOrder, IsThatOfTextsComparedWithoutCase) {
  EXPECT_TRUE(rc::check([] {
    Texts texts;
    for (int n = *rc::gen::inRange(0, 40); n > 0; --n)
      texts.push_back(anyText());
    std::vector<const std::string*> sorted;
    for (const auto& text : texts)
      sorted.push_back(&text);
    std::vector<std::size_t> runs;
    TextOrder<const std::string*>::sort(
        sorted, [](const std::string* text) { return std::string_view(*text); },
        [&](std::span<const std::string*> run) {
          runs.push_back(run.size());
          for (const auto* text : run)
            RC_ASSERT(compare(*text, *run.front()) == 0);
        });
    std::size_t expectedRuns = sorted.empty() ? 0 : 1;
    for (std::size_t i = 1; i < sorted.size(); ++i) {
      const int order = compare(*sorted[i - 1], *sorted[i]);
      RC_ASSERT(order <= 0);
      expectedRuns += order < 0;
    }
    RC_ASSERT(runs.size() == expectedRuns);
    std::vector<const std::string*> all = sorted;
    std::sort(all.begin(), all.end());
    RC_ASSERT(std::unique(all.begin(), all.end()) == all.end());
  }));
}

// A megabyte in common, in two spellings, takes no depth of calls.
TEST(TextOrder, TakesTextsOfAnyLength) {
  const std::string lower(1'000'000, 'a');
  const std::string upper(1'000'000, 'A');
  const Texts texts{lower + "2", upper + "1", lower, upper + "0"};
  std::vector<std::size_t> sorted{0, 1, 2, 3};
  TextOrder<std::size_t>::sort(
      sorted, [&](std::size_t text) { return std::string_view(texts[text]); }, [](std::span<std::size_t>) {});
  EXPECT_EQ(sorted, (std::vector<std::size_t>{2, 3, 1, 0}));
}

} // namespace
