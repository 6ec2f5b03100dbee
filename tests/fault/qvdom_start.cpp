// Memory that runs out while the parser's library starts, which happens once in a process: each shortage meets a process of
// its own.
#include "qvxdom/qvdom.h"

#include "support/allocations.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

namespace {

enum Result { Done, Failed, Wrong };

// The first document of this process that needs the parser, with the nth allocation failing, and a second one.
Result startWithFailure(long n, bool once) {
  const QvbString xml = "<?note:the parser?><r/>";
  QvDom first, second;
  Allocations::failed = 0;
  Allocations::failsOnce = once;
  Allocations::left = n;
  const bool done = first.loadXML(xml);
  Allocations::left = -1;
  const bool failed = Allocations::failed > 0;
  // What the library makes at first may fail once and is made again.
  const bool isRight =
      (done ? !failed || once : failed) && first.getErrorMessage() == (done ? "" : "out of memory");
  return !isRight || !second.loadXML(xml) ? Wrong : failed ? Failed : Done;
}

TEST(QvDomStart, AStartThatMemoryFailsIsMadeByTheNextDocument) {
  for (const bool once : {true, false}) {
    long failures = 0;
    for (int result = Failed; result == Failed; ++failures) {
      const pid_t child = ::fork();
      ASSERT_GE(child, 0);
      if (child == 0)
        ::_exit(startWithFailure(failures, once));
      int status = 0;
      ASSERT_EQ(::waitpid(child, &status, 0), child);
      ASSERT_TRUE(WIFEXITED(status)) << failures << " once: " << once;
      result = WEXITSTATUS(status);
      ASSERT_NE(result, Wrong) << failures << " once: " << once;
    }
    EXPECT_GT(failures, 40);
  }
}

} // namespace
