#pragma once
// Keeps the encoder's progress lines (it prints them to standard output, as
// published) out of a test's output, while a failing test still shows its
// failure messages, which were captured along with them.

#include <gtest/gtest.h>

#include <cstdio>

namespace orvante::testing {

class QuietStdout {
 public:
  QuietStdout() { ::testing::internal::CaptureStdout(); }
  ~QuietStdout() {
    (void)::testing::internal::GetCapturedStdout();
    const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
    if (!test) return;
    for (int i = 0; i < test->result()->total_part_count(); ++i) {
      const auto& part = test->result()->GetTestPartResult(i);
      if (part.failed()) {
        std::fprintf(stderr, "%s:%d: %s\n", part.file_name() ? part.file_name() : "?",
                     part.line_number(), part.message());
      }
    }
  }
  QuietStdout(const QuietStdout&) = delete;
  QuietStdout& operator=(const QuietStdout&) = delete;
};

}  // namespace orvante::testing
