// Memory that runs out in the middle of a document.
#include "qvxdom/qvdom.h"

#include "support/textio.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <thread>

namespace {

// The allocations of this thread that still succeed; negative for all of them. One alone fails.
thread_local long allocationsLeft = -1;

void* allocate(std::size_t size) {
  if (allocationsLeft >= 0 && allocationsLeft-- == 0)
    throw std::bad_alloc();
  if (void* memory = std::malloc(size))
    return memory;
  throw std::bad_alloc();
}

} // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

// A document that needs memory in every part of the reader.
QvbString document() {
  std::string xml = "<?xml version='1.0'?><r>";
  for (int i = 0; i < 40; ++i) {
    const auto name = "name-" + std::to_string(i);
    xml.append(" <").append(name).append(" a-").append(name).append("='").append(600, 'v').append(
        "'>\xE2\x82\xAC");
    xml.append(2000, 't').append("</").append(name).append(">\n");
  }
  return text(xml + "</r>");
}

struct Outcome {
  bool done;
  bool memoryFailed;
};

// The operation with its n-th allocation failing.
template<typename Operation>
Outcome withFailure(long n, const Operation& operation) {
  allocationsLeft = n;
  const bool done = operation();
  const bool memoryFailed = allocationsLeft < 0;
  allocationsLeft = -1;
  return {done, memoryFailed};
}

TEST(QvDomMemory, ALoadThatMemoryFailsSaysSoAndTheNextOneWorks) {
  const auto xml = document();
  QvDom intact;
  ASSERT_TRUE(intact.loadXML(xml));
  const auto expected = intact.createXML(false, intact.getRoot());
  long failures = 0;
  for (bool memoryFailed = true; memoryFailed; failures += memoryFailed) {
    QvDom dom;
    const auto outcome = withFailure(failures, [&] { return dom.loadXML(xml); });
    memoryFailed = outcome.memoryFailed;
    ASSERT_EQ(outcome.done, !memoryFailed) << failures;
    ASSERT_EQ(dom.getRoot().null(), memoryFailed) << failures;
    ASSERT_EQ(dom.getErrorMessage(), memoryFailed ? QvbString("out of memory") : QvbString()) << failures;
    ASSERT_TRUE(dom.loadXML(xml)) << failures << dom.getErrorMessage();
    ASSERT_EQ(dom.createXML(false, dom.getRoot()), expected) << failures;
  }
  EXPECT_GT(failures, 40);
}

TEST(QvDomMemory, AThreadThatCannotMakeItsReaderMakesItLater) {
  const QvbString xml("<r/>");
  ASSERT_TRUE(QvDom().loadXML(xml)) << "what the process makes once is made";
  long failures = 0;
  for (bool memoryFailed = true; memoryFailed; failures += memoryFailed) {
    std::thread([&] {
      QvDom dom;
      const auto outcome = withFailure(failures, [&] { return dom.loadXML(xml); });
      memoryFailed = outcome.memoryFailed;
      EXPECT_EQ(outcome.done, !memoryFailed) << failures;
      EXPECT_EQ(dom.getErrorMessage(), memoryFailed ? QvbString("out of memory") : QvbString()) << failures;
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

} // namespace
