#include "qvxbase/qvbfault.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

std::string theSubject;

int failStats(QvbFaultPoint point, const char* subject) {
  theSubject = subject;
  return point == QvbFaultPoint::FileStat ? EIO : 0;
}

TEST(FaultHook, DecidesWhileItIsInstalled) {
  EXPECT_EQ(qvbFault(QvbFaultPoint::FileStat, "/a"), 0);
  qvbSetFaultHook(failStats);
  EXPECT_EQ(qvbFault(QvbFaultPoint::FileStat, "/a"), EIO);
  EXPECT_EQ(theSubject, "/a");
  EXPECT_EQ(qvbFault(QvbFaultPoint::FileOpen), 0);
  EXPECT_EQ(theSubject, "");
  qvbSetFaultHook(nullptr);
  EXPECT_EQ(qvbFault(QvbFaultPoint::FileStat, "/a"), 0);
}

} // namespace
