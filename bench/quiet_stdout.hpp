#pragma once
// The encoder's C functions print their published trace on standard output;
// a benchmark's own report must stay readable, so the output goes to
// /dev/null while one of these lives.

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

class QuietStdout {
 public:
  QuietStdout() : saved_(::dup(STDOUT_FILENO)) {
    std::fflush(stdout);
    const int null = ::open("/dev/null", O_WRONLY);
    ::dup2(null, STDOUT_FILENO);
    ::close(null);
  }
  ~QuietStdout() {
    std::fflush(stdout);
    ::dup2(saved_, STDOUT_FILENO);
    ::close(saved_);
  }
  QuietStdout(const QuietStdout&) = delete;
  QuietStdout& operator=(const QuietStdout&) = delete;

 private:
  int saved_;
};
