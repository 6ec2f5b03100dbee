#include "qvfilecacheimpl_index.h"

#include "support/allocations.h"
#include "support/textio.h"

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

using testing::ElementsAre;

namespace {

const QvLog& testLog() {
  static const QvLog log("QV.Test.Index", "src/tester");
  return log;
}

void keep(CacheIndex& index, const QvbString& key) { index.keep("test", index.make("test", key)); }

TEST(CacheIndex, LeadsEverySpellingOfAUriToOneKey) {
  const struct {
    const char* name;
    const char* key;
    bool isUri;
  } cases[] = {
      {"file:///a/b", "file:///a/b", true},
      {"FILE:///a/./b", "file:///a/b", true},
      {"http://HOST/%7ea", "http://host/~a", true},
      {"/a/b", "/a/b", false},
      {"C:\\a", "C:\\a", false},
      {"", "", false},
  };
  CacheIndex index(testLog());
  for (const bool isKept : {false, true}) {
    for (const auto& [name, key, isUri] : cases) {
      if (isKept && !index.find(key))
        keep(index, key);
      for (int i = 0; i < 3; ++i) { // what was found out about a name the first time holds the next times
        const CacheIndex::Key found = index.keyOf(name);
        EXPECT_EQ(str(found.text), key) << name;
        EXPECT_EQ(found.isUri, isUri) << name;
      }
    }
  }
}

TEST(CacheIndex, TakesNoEntryForThatOfItsOtherSpelling) {
  CacheIndex index(testLog());
  keep(index, "FILE:///a");
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(index.keyOf("FILE:///a").text, "file:///a");
}

// A name that is a key leads to itself each time, which is found out once.
TEST(CacheIndex, ParsesAKeyOnce) {
  CacheIndex index(testLog());
  const QvbString name("file:///a/name/that/is/longer/than/any/buffer/of/a/text");
  keep(index, name);
  const auto allocationsOf = [&] {
    Allocations::left = 1000;
    index.keyOf(name);
    return 1000 - std::exchange(Allocations::left, -1);
  };
  EXPECT_GT(allocationsOf(), 0);
  EXPECT_EQ(allocationsOf(), 0);
}

TEST(CacheIndex, VisitsItsEntriesInTheOrderOfTheirKeys) {
  CacheIndex index(testLog());
  for (const char* key : {"b", "c", "a"})
    keep(index, key);
  index.remove("c");
  std::vector<std::string> keys;
  index.forEach([&](const FileAccessCacheEntry& entry) { keys.push_back(str(entry.remoteFilename)); });
  EXPECT_THAT(keys, ElementsAre("a", "b"));
  index.clear();
  EXPECT_EQ(index.find("a"), nullptr);
}

} // namespace
