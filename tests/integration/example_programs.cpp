#include "support/lineagexml.h"
#include "support/tool.h"

#include <gmock/gmock.h>

using testing::HasSubstr;
using testing::StartsWith;

namespace {

std::string example(const std::string& name) { return std::string(QV_BINARY_DIR "/bin/example_") + name; }

TEST(Examples, LineageOfOneJobIsPrinted) {
  const auto run = runProcess({example("job_lineage"), sampleRepository + "/batch_jobs/stage_orders.ddf"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out,
            runProcess({example("plain_interfaces"), sampleRepository + "/batch_jobs/stage_orders.ddf"}).out);
  const auto models = readLineage(run.out);
  ASSERT_EQ(models.size(), 1U);
  EXPECT_EQ(models.at("stage_orders").dependencies.size(), 5U);
}

TEST(Examples, LineageOfAMalformedJobFails) {
  const std::string broken = sampleRepository + "/batch_jobs/broken_export.djf";
  const auto run = runProcess({example("job_lineage"), broken});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.err, StartsWith(broken + ":9:"));
  EXPECT_EQ(runProcess({example("plain_interfaces"), broken}).status, 1);
}

TEST(Examples, DefinitionsAreSavedAndListed) {
  const TempDir folder;
  const auto saved = runProcess({example("definitions"), folder / "user", "Sales & more", "/srv/sales/"});
  EXPECT_EQ(saved.status, 0) << saved.err;
  EXPECT_EQ(saved.out, "Sales & more: /srv/sales\n");
  EXPECT_EQ(runProcess({example("definitions"), folder / "user"}).out, saved.out);
  const auto again = runProcess({example("definitions"), folder / "user", "Sales & more", "/srv/other"});
  EXPECT_EQ(again.status, 1);
  EXPECT_THAT(again.err, HasSubstr("A definition already exists with that name."));
}

TEST(Examples, EventsReachTheListener) {
  const auto run = runProcess({example("events")});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "Sales: batch_jobs/load 7 was created\n"
                     "Sales: 7 was renamed from load to load_customers\n"
                     "Sales: the content of batch_jobs/load_customers changed: step 2\n");
}

} // namespace
