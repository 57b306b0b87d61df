// Runs part of a test in a child process with a mount namespace of its own, so that the machine is
// not changed. Needs root.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <functional>
#include <string>

#include "base/file_access.h"

namespace paddock {

// Gives the process a mount namespace of its own; returns the error, or an empty text.
inline std::string takeOwnMounts() {
  if (::unshare(CLONE_NEWNS) != 0) return std::string("unshare: ") + std::strerror(errno);
  if (::mount("", "/", "", MS_REC | MS_PRIVATE, "") != 0)
    return std::string("making the mounts below / private: ") + std::strerror(errno);
  return {};
}

// Why `runInOwnMounts` cannot be used here, for GTEST_SKIP; empty when it can.
inline std::string whyNoOwnMounts() {
  if (::geteuid() != 0) return "mounts of its own need root";
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return std::string("pipe2: ") + std::strerror(errno);
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  const pid_t child = ::fork();
  if (child == 0) {
    const std::string why = takeOwnMounts();
    ::_exit(::write(writing.get(), why.data(), why.size()) < 0 ? 1 : 0);
  }
  writing.reset();
  std::string why(200, '\0');
  const ssize_t count = ::read(reading.get(), why.data(), why.size());
  why.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (status != 0) return "mounts of its own cannot be tried here";
  return why.empty() ? "" : "mounts of its own are not permitted here: " + why;
}

// `body` runs in the child; a failed assertion or an exception there fails the test.
inline void runInOwnMounts(const std::function<void()>& body) {
  std::fflush(stdout);
  std::fflush(stderr);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    const std::string why = takeOwnMounts();
    if (!why.empty()) std::fprintf(stderr, "%s\n", why.c_str());
    bool passed = why.empty();
    try {
      if (passed) body();
    } catch (const std::exception& error) {
      std::fprintf(stderr, "exception: %s\n", error.what());
      passed = false;
    }
    std::fflush(stdout);
    std::fflush(stderr);
    ::_exit(passed && !::testing::Test::HasFailure() ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0) << "see the child's output above";
}

// An empty file system of `size` ("64k") on the folder.
inline void mountTmpfs(const std::string& folder, const std::string& size) {
  const std::string data = "size=" + size;
  ASSERT_EQ(::mount("tmpfs", folder.c_str(), "tmpfs", 0, data.c_str()), 0) << folder;
}

inline void bindMount(const std::string& from, const std::string& to) {
  ASSERT_EQ(::mount(from.c_str(), to.c_str(), "", MS_BIND, ""), 0) << from << " on " << to;
}

}  // namespace paddock
