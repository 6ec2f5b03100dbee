#include "lineagerecords.h"

#include "support/textio.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace {

TEST(LineageRecords, KeepOneOfEachThatDiffersInAnything) {
  LineageRecords records;
  const auto held = [&](const std::function<void(QvResourceImpl&)>& change) {
    QvResourceImpl resource("name", "Table", "identity");
    change(resource);
    return records.hold(resource);
  };
  QvbDate date;
  date.assign(2026, 1, 2, 3, 4, 5, 6);
  std::vector<LineageRecordHold> all;
  for (const std::function<void(QvResourceImpl&)>& change : std::vector<std::function<void(QvResourceImpl&)>>{
           [](QvResourceImpl&) {}, [](QvResourceImpl& r) { r.setName("NAME"); },
           [](QvResourceImpl& r) { r.setType("table"); },
           [](QvResourceImpl& r) { r.setResourceIdentity("other"); },
           [](QvResourceImpl& r) { r.setId("id"); }, [](QvResourceImpl& r) { r.setResourceLocation("/a"); },
           [](QvResourceImpl& r) { r.setId(QvbString()); },
           [&](QvResourceImpl& r) { r.setAnalysisDate(date); },
           [](QvResourceImpl& r) { r.setResolved(false); },
           [](QvResourceImpl& r) { r.setIdentityIsMacroValue(true); }}) {
    all.push_back(held(change));
    for (std::size_t i = 0; i + 1 < all.size(); ++i)
      EXPECT_NE(&*all.back(), &*all[i]);
    EXPECT_EQ(&*held(change), &*all.back());
  }
}

TEST(LineageRecords, EndWithTheirLastHolder) {
  LineageRecords records;
  const QvResourceImpl resource("name", "Table", "identity");
  auto first = records.hold(resource);
  {
    const auto second = records.hold(resource);
    EXPECT_EQ(first->holders, 2U);
  }
  EXPECT_EQ(first->holders, 1U);
  LineageRecordHold moved(std::move(first));
  EXPECT_FALSE(first); // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(moved->holders, 1U);
  moved->text.tag = "written";
  moved = LineageRecordHold();
  EXPECT_TRUE(records.hold(resource)->text.tag.isNull()) << "another record";
}

TEST(LineageRecords, AreVisitedWhileTheyAreHeld) {
  LineageRecords records;
  const auto visited = [&] {
    std::set<std::string> names;
    records.forEach(
        [&](LineageRecord& record) { EXPECT_TRUE(names.insert(str(record.resource.name())).second); });
    return names;
  };
  EXPECT_TRUE(visited().empty());
  std::map<std::string, LineageRecordHold> held;
  std::set<std::string> names;
  for (int round = 0; round < 3; ++round) {
    for (int i = 0; i < 100; ++i) {
      const std::string name = std::to_string(i * round);
      held[name] = records.hold(QvResourceImpl(text(name), "Table", "identity"));
      names.insert(name);
    }
    EXPECT_EQ(visited(), names);
    for (auto at = held.begin(); at != held.end();) {
      names.erase(at->first);
      at = held.erase(at);
      if (at != held.end())
        ++at;
    }
    EXPECT_EQ(visited(), names);
  }
}

TEST(LineageDependents, AreFoundByTheirIdentityAlone) {
  LineageRecords records;
  LineageDependents dependents;
  for (int i = 0; i < 100; ++i) {
    const QvbString identity = text("Identity " + std::to_string(i));
    EXPECT_FALSE(dependents.contains(identity));
    dependents.append(records.hold(QvResourceImpl("n", "T", identity)));
    EXPECT_TRUE(dependents.contains(text("IDENTITY " + std::to_string(i))));
    EXPECT_TRUE(dependents.contains("identity 0"));
  }
  EXPECT_EQ(dependents.records().size(), 100U);
}

} // namespace
