#include "support/graphsketch.h"
#include "support/process.h"

#include <gmock/gmock.h>
#include <graphviz/cgraph.h>

#include <thread>

using namespace qvlineagegraph;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

std::string picture(const Graph& graph, PictureFormat format = PictureFormat::Svg) {
  std::string out;
  const auto drawn = writePicture(View(graph), format, out);
  EXPECT_TRUE(drawn.ok()) << drawn.error().message;
  return out;
}

Graph sample() {
  GraphSketch sketch;
  const auto load = sketch.step("load", {"a"}, {"b"});
  sketch.edge(sketch.table("c"), load, Access::Read, true);
  return sketch.build();
}

TEST(FormatPicture, OfVectorsShowsNodesAndEdges) {
  const std::string svg = picture(sample());
  EXPECT_THAT(svg, StartsWith("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<svg"));
  EXPECT_THAT(svg, Not(HasSubstr("DOCTYPE")));
  for (const char* name : {">load</text>", ">a</text>", ">b</text>", ">c</text>", "stroke-dasharray"})
    EXPECT_THAT(svg, HasSubstr(name));
}

TEST(FormatPicture, OfVectorsIsTheSameWhateverFontsThereAre) {
  const TempDir folder;
  const std::string usual = picture(sample());
  const auto noFonts = folder.write("fonts.conf", "<fontconfig><dir>/nowhere</dir></fontconfig>");
  setenv("FONTCONFIG_FILE", noFonts.c_str(), 1);
  EXPECT_EQ(picture(sample()), usual);
  unsetenv("FONTCONFIG_FILE");
}

TEST(FormatPicture, OfPixelsIsOne) {
  EXPECT_THAT(picture(sample(), PictureFormat::Png), StartsWith("\x89PNG\r\n\x1a\n"));
}

TEST(FormatPicture, OfNothingIsEmptyAndNoFailure) { EXPECT_THAT(picture(Graph()), HasSubstr("</svg>")); }

TEST(FormatPicture, IsRefusedAboveTheMostNodes) {
  GraphSketch sketch;
  for (std::size_t i = 0; i <= mostNodesInAPicture; ++i)
    sketch.job("j" + std::to_string(i));
  const Graph graph = sketch.build();
  std::string out = "before";
  const auto refused = writePicture(View(graph), PictureFormat::Svg, out);
  ASSERT_FALSE(refused.ok());
  EXPECT_EQ(refused.error().kind, ErrorKind::Refused);
  EXPECT_EQ(refused.error().message, "a picture of 2001 nodes would be beyond reading; 2000 are the most");
  EXPECT_EQ(out, "before");
}

TEST(FormatPicture, IsDrawnBySeveralThreadsAtATime) {
  const Graph graph = sample();
  const std::string expected = picture(graph);
  std::vector<std::string> drawn(8);
  {
    std::vector<std::jthread> threads;
    for (auto& one : drawn)
      threads.emplace_back([&] { one = picture(graph); });
  }
  EXPECT_EQ(drawn, std::vector<std::string>(8, expected));
}

int ignoreComplaint(char*) { return 0; }

TEST(FormatPicture, LeavesItsHostTheHandlerOfComplaintsThatItHas) {
  agseterrf(ignoreComplaint);
  picture(sample());
  EXPECT_EQ(agseterrf(nullptr), ignoreComplaint);
}

} // namespace
