#include "qvxbase/qvbsubject.h"

#include "support/textio.h"

#include <gtest/gtest.h>

#include <memory>
#include <pwd.h>
#include <thread>
#include <unistd.h>

namespace {

using Subject = std::unique_ptr<ASSubject, decltype([](ASSubject* subject) { qvbSubjectRelease(subject); })>;

TEST(Subject, CarriesUserAndCredentials) {
  const Subject subject(qvbSubjectCreate("ada", "s3cret"));
  QvbSubjectInfoParm info;
  QvbString error;
  ASSERT_TRUE(qvbSubjectInfo(subject.get(), &info, &error));
  EXPECT_EQ(info.userId, QvbString("ada"));
  EXPECT_EQ(info.credentials, QvbString("s3cret"));
  EXPECT_TRUE(error.isNull());
}

TEST(Subject, OfTheProcessIsItsUserWithoutCredentials) {
  const Subject subject(qvbSubjectAccess());
  QvbSubjectInfoParm info;
  ASSERT_TRUE(qvbSubjectInfo(subject.get(), &info, nullptr));
  const passwd* user = getpwuid(geteuid());
  EXPECT_EQ(str(info.userId), user ? user->pw_name : std::to_string(geteuid()));
  EXPECT_TRUE(info.credentials.isNull());
}

TEST(Subject, NullHasNoInformation) {
  QvbSubjectInfoParm info{"untouched", "untouched"};
  QvbString error;
  EXPECT_FALSE(qvbSubjectInfo(nullptr, &info, &error));
  EXPECT_EQ(error, QvbString("There is no subject to give information about."));
  EXPECT_EQ(info.userId, QvbString("untouched"));
  EXPECT_FALSE(qvbSubjectInfo(nullptr, &info, nullptr));
  qvbSubjectRelease(nullptr);
}

TEST(Subject, InformationOutlivesIt) {
  Subject subject(qvbSubjectCreate("ada", QvbString()));
  QvbSubjectInfoParm info;
  ASSERT_TRUE(qvbSubjectInfo(subject.get(), &info, nullptr));
  subject.reset();
  EXPECT_EQ(info.userId, QvbString("ada"));
}

TEST(Subject, IsReadByAnyThread) {
  const Subject subject(qvbSubjectCreate("ada", "s3cret"));
  const auto read = [&] {
    for (int i = 0; i < 1000; ++i) {
      QvbSubjectInfoParm info;
      EXPECT_TRUE(qvbSubjectInfo(subject.get(), &info, nullptr));
      EXPECT_EQ(info.userId, QvbString("ada"));
    }
  };
  std::thread first(read);
  std::thread second(read);
  first.join();
  second.join();
}

} // namespace
