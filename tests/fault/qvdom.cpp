// Memory that runs out in the middle of a document.
#include "qvxdom/qvdom.h"

#include "support/tempdir.h"
#include "support/textio.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

// The allocations of this thread that still succeed; negative for all of them. The next one fails, alone or with
// all that come after it.
thread_local long allocationsLeft = -1;
thread_local bool shortageLasts = false;
thread_local bool memoryFailed = false;

bool isRefused() {
  const bool refused = allocationsLeft == 0;
  memoryFailed = memoryFailed || refused;
  if (allocationsLeft > 0 || (refused && !shortageLasts))
    --allocationsLeft;
  return refused;
}

void* allocate(std::size_t size) {
  if (isRefused())
    throw std::bad_alloc();
  if (void* memory = std::malloc(size))
    return memory;
  throw std::bad_alloc();
}

} // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
// The arena of a document asks for it so.
void* operator new(std::size_t size, std::align_val_t alignment) {
  if (isRefused())
    throw std::bad_alloc();
  const auto boundary = static_cast<std::size_t>(alignment);
  if (void* memory = std::aligned_alloc(boundary, (size + boundary - 1) / boundary * boundary))
    return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

// Makes the parser read a document that would be plain without it.
constexpr const char* notPlain = "<?note:the parser?>";

// A document that needs memory in every part of the reader, behind what is given.
QvbString document(const char* prolog) {
  std::string xml = std::string("<?xml version='1.0'?>") + prolog + "<r>";
  for (int i = 0; i < 40; ++i) {
    const auto name = "name-" + std::to_string(i);
    xml.append(" <").append(name).append(" a-").append(name).append("='").append(600, 'v').append(
        "'>\xE2\x82\xAC");
    xml.append(2000, 't').append("</").append(name).append(">\n");
  }
  return text(xml + "</r>");
}

enum class Shortage { Once, Lasting };

struct Outcome {
  bool done;
  bool memoryFailed;
};

// The operation with its n-th allocation failing.
template<typename Operation>
Outcome withFailure(long n, const Operation& operation, Shortage shortage = Shortage::Once) {
  memoryFailed = false;
  shortageLasts = shortage == Shortage::Lasting;
  allocationsLeft = n;
  const bool done = operation();
  allocationsLeft = -1;
  return {done, memoryFailed};
}

// How often memory failed before the document could be loaded.
long failuresOfLoad(const QvbString& xml) {
  QvDom intact;
  EXPECT_TRUE(intact.loadXML(xml));
  const auto expected = intact.createXML(false, intact.getRoot());
  long failures = 0;
  for (bool failed = true; failed; failures += failed) {
    QvDom dom;
    const auto outcome = withFailure(failures, [&] { return dom.loadXML(xml); });
    failed = outcome.memoryFailed;
    EXPECT_EQ(outcome.done, !failed) << failures;
    EXPECT_EQ(dom.getRoot().null(), failed) << failures;
    EXPECT_EQ(dom.getErrorMessage(), failed ? QvbString("out of memory") : QvbString()) << failures;
    EXPECT_TRUE(dom.loadXML(xml)) << failures << dom.getErrorMessage();
    EXPECT_EQ(dom.createXML(false, dom.getRoot()), expected) << failures;
  }
  return failures;
}

TEST(QvDomMemory, ALoadThatMemoryFailsSaysSoAndTheNextOneWorks) {
  EXPECT_GT(failuresOfLoad(document(notPlain)), 40);
  EXPECT_GT(failuresOfLoad(document("")), 10) << "a plain document";
}

TEST(QvDomMemory, AThreadThatCannotMakeItsReaderMakesItLater) {
  const auto xml = text(std::string(notPlain) + "<r/>");
  ASSERT_TRUE(QvDom().loadXML(xml)) << "what the process makes once is made";
  long failures = 0;
  for (bool failed = true; failed; failures += failed) {
    std::thread([&] {
      QvDom dom;
      const auto outcome = withFailure(failures, [&] { return dom.loadXML(xml); });
      failed = outcome.memoryFailed;
      EXPECT_EQ(outcome.done, !failed) << failures;
      EXPECT_EQ(dom.getErrorMessage(), failed ? QvbString("out of memory") : QvbString()) << failures;
      EXPECT_TRUE(dom.loadXML(xml)) << failures << dom.getErrorMessage();
    }).join();
  }
  EXPECT_GT(failures, 40);
}

TEST(QvDomMemory, AStartThatMemoryFailsLeavesNoDocument) {
  const QvbString name("r");
  QvDom dom;
  const auto outcome = withFailure(0, [&] { return dom.startNewDocument(name); });
  EXPECT_TRUE(outcome.memoryFailed);
  EXPECT_FALSE(outcome.done);
  EXPECT_TRUE(dom.getRoot().null());
  EXPECT_EQ(dom.getErrorMessage(), "out of memory");
}

// Builds a document step by step, each of which may lack memory and is then taken again.
TEST(QvDomMemory, AChangeThatMemoryFailsIsMadeOrNotAndCanBeMadeAgain) {
  const QvbString element("element-of-some-length");
  const QvbString value(text(std::string(5000, 'v')));
  std::vector<QvbString> names;
  for (int i = 0; i < 60; ++i)
    names.push_back(text("attribute-of-some-length-" + std::to_string(i)));
  QvDom dom;
  ASSERT_TRUE(dom.startNewDocument("r"));
  long failures = 0;
  const auto untilDone = [&](const QvDomNode& node, const auto& change) {
    const auto before = dom.createXML(false, node);
    for (long n = 0;; ++n) {
      const auto outcome = withFailure(n, [&] {
        try {
          change();
          return true;
        } catch (const std::bad_alloc&) {
          return false;
        }
      });
      if (outcome.done)
        return;
      ++failures;
      ASSERT_EQ(dom.createXML(false, node), before);
    }
  };
  auto root = dom.getRoot();
  for (int i = 0; i < 20; ++i)
    untilDone(root, [&] { root.addChild(element); });
  for (const auto& name : names)
    untilDone(root, [&] { root.setAttributeValue(name, value); });
  for (const auto& name : names)
    untilDone(root, [&] { root.setAttributeValue(name, element); });
  untilDone(root, [&] { root.setValue(element); });
  untilDone(root, [&] { root.setValue(value); });
  std::string expected = "<r";
  for (const auto& name : names)
    expected += " " + str(name) + "=\"" + str(element) + "\"";
  expected += ">";
  for (int i = 0; i < 20; ++i)
    expected += "<" + str(element) + "/>";
  EXPECT_EQ(str(dom.createXML(false, root)), expected + str(value) + "</r>");
  EXPECT_GT(failures, 5);
}

// Every operation that may fail, on its own document, while no memory is to be had from the n-th allocation on.
TEST(QvDomMemory, AShortageThatLastsIsAFailureOfEveryOperation) {
  const TempDir folder;
  const auto file = folder.write("document.xml", str(document(notPlain)));
  const auto malformed = folder.write("malformed.xml", "<r></s>");
  const QvbString paths[] = {text(file), text(malformed), text(folder / "none.xml"),
                             text(folder / "copy.xml")};
  const QvbString texts[] = {document(notPlain), "<r></s>", "not a name", "r", document("")};
  QvDom source;
  ASSERT_TRUE(source.loadXML(texts[0]));
  const std::function<bool(QvDom&)> operations[] = {
      [&](QvDom& dom) { return dom.loadXML(texts[0]); },
      [&](QvDom& dom) { return dom.loadXML(texts[1]); },
      [&](QvDom& dom) { return dom.loadXML(texts[4]); },
      [&](QvDom& dom) { return dom.loadFile(paths[0]); },
      [&](QvDom& dom) { return dom.loadFile(paths[1]); },
      [&](QvDom& dom) { return dom.loadFile(paths[2]); },
      [&](QvDom& dom) { return dom.startNewDocument(texts[2]); },
      [&](QvDom& dom) { return dom.startNewDocument(texts[3]); },
      [&](QvDom& dom) { return dom.createFile(paths[3], true, source.getRoot()); },
      [&](QvDom& dom) { return dom.createFile(paths[2], true, QvDomNode()); },
  };
  for (const auto& operation : operations) {
    bool failed = true;
    for (long n = 0; failed; ++n) {
      QvDom dom;
      const auto outcome = withFailure(
          n, [&] { return operation(dom); }, Shortage::Lasting);
      failed = outcome.memoryFailed;
      ASSERT_FALSE(failed && outcome.done) << &operation - operations << ' ' << n;
      ASSERT_TRUE(!failed || dom.getErrorMessage() == "out of memory") << &operation - operations << ' ' << n;
      ASSERT_TRUE(!failed || dom.getRoot().null());
    }
  }
}

} // namespace
