#include "platform/PosixIo.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>

#include "support/TestSupport.h"

namespace {

class PosixIo : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(::pipe(fds_), 0); }
  void TearDown() override {
    for (int fd : fds_)
      if (fd >= 0) ::close(fd);
  }
  void closeWriteEnd() {
    ::close(fds_[1]);
    fds_[1] = -1;
  }
  int fds_[2] = {-1, -1};
};

TEST_F(PosixIo, ReadsThroughShortReadsUntilTheEnd) {
  std::thread writer([&] {
    for (const char* part : {"ab", "cde", "f"}) {
      ASSERT_TRUE(kvo::posix::writeFully(fds_[1], part));
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    closeWriteEnd();
  });
  uint8_t buffer[16] = {};
  const ssize_t n = kvo::posix::readFully(fds_[0], buffer, sizeof buffer);
  writer.join();
  ASSERT_EQ(n, 6);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 6), "abcdef");
}

TEST_F(PosixIo, StopsReadingAtCapacity) {
  ASSERT_TRUE(kvo::posix::writeFully(fds_[1], "abcdef"));
  uint8_t buffer[4] = {};
  EXPECT_EQ(kvo::posix::readFully(fds_[0], buffer, sizeof buffer), 4);
}

TEST_F(PosixIo, ReportsErrors) {
  uint8_t buffer[4] = {};
  EXPECT_EQ(kvo::posix::readFully(-1, buffer, sizeof buffer), -1);
  EXPECT_FALSE(kvo::posix::writeFully(-1, "x"));
  // A write end no reader holds (EPIPE; the helper ignores SIGPIPE as here).
  ::close(fds_[0]);
  fds_[0] = -1;
  const auto previous = std::signal(SIGPIPE, SIG_IGN);
  EXPECT_FALSE(kvo::posix::writeFully(fds_[1], "x"));
  std::signal(SIGPIPE, previous);
}

TEST_F(PosixIo, ReadsAWholeFileUpToTheLimit) {
  const kvo::test::TempDir temp;
  const std::string dir = temp.path(), path = temp.file("bytes");
  kvo::test::writeFile(path, std::string(5000, 'x'));
  const auto whole = kvo::posix::readWholeFile(path, 5000);
  ASSERT_TRUE(whole.has_value());
  EXPECT_EQ(whole->size, 5000u);
  EXPECT_FALSE(kvo::posix::readWholeFile(path, 4999).has_value());
  EXPECT_FALSE(kvo::posix::readWholeFile(dir, 5000).has_value());
  EXPECT_FALSE(kvo::posix::readWholeFile(dir + "/missing", 5000).has_value());
}

TEST_F(PosixIo, ReadsAWholeStreamOfUnknownLength) {
  std::thread writer([&] {
    ASSERT_TRUE(kvo::posix::writeFully(fds_[1], std::string(100000, 'y')));
    closeWriteEnd();
  });
  const auto whole = kvo::posix::readWholeFile("/dev/fd/" + std::to_string(fds_[0]), 1 << 20);
  writer.join();
  ASSERT_TRUE(whole.has_value());
  EXPECT_EQ(whole->size, 100000u);
}

}  // namespace
