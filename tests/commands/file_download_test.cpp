// File download: framing, 50000-byte chunks with their pauses and trace
// lines, and the paths of each link.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "links.hpp"

using namespace orvante;
using namespace orvante::testing;

namespace {

class FileDownload : public ::testing::Test {
 protected:
  std::string file(std::size_t size) {
    const auto path =
        std::filesystem::temp_directory_path() /
        ("orvante-download-" + std::to_string(::getpid()) + "-" + std::to_string(size));
    std::ofstream out(path, std::ios::binary);
    const Bytes bytes = pattern(size);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    paths_.push_back(path);
    return path;
  }
  ~FileDownload() override {
    for (const auto& path : paths_) std::filesystem::remove(path);
  }

  Bytes framed(const std::string& name, std::size_t size) {
    Bytes bytes = bytesOf("DOWNLOAD F,\"" + name + "\"," + std::to_string(size) + ",");
    const Bytes body = pattern(size);
    bytes.insert(bytes.end(), body.begin(), body.end());
    bytes.push_back('\r');
    bytes.push_back('\n');
    return bytes;
  }

  std::vector<std::filesystem::path> paths_;
};

}  // namespace

TEST_F(FileDownload, ChunksPausesAndTraceLinesFollowTheFileSize) {
  struct Case {
    std::size_t size;
    std::vector<double> pauses;
    int traceLines;
  };
  for (const auto& current :
       {Case{49999, {0.5}, 0}, Case{50000, {2, 2, 0.5}, 2}, Case{120000, {2, 2, 2, 0.5}, 3}}) {
    TcpRig tcp;
    auto& [rig, session, printer] = tcp;
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(session.downloadpcx(file(current.size), "LOGO.PCX"), 1);
    const std::string output = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(rig.timeline->pauses(), current.pauses) << current.size;
    std::string trace;
    for (int i = 0; i < current.traceLines; ++i) trace += "size > max size\n";
    EXPECT_EQ(output, trace);
    const Bytes expected = framed("LOGO.PCX", current.size);
    ASSERT_TRUE(printer.waitForBytes(expected.size()));
    EXPECT_EQ(printer.received(), expected);
  }
}

TEST_F(FileDownload, AnExactMultipleEndsWithAnEmptyChunk) {
  TcpRig tcp;
  auto& [rig, session, printer] = tcp;
  ::testing::internal::CaptureStdout();
  session.sendfile(file(50000), "IGNORED");
  ::testing::internal::GetCapturedStdout();
  const auto sizes = writeSizes(*rig.timeline);
  ASSERT_FALSE(sizes.empty());
  EXPECT_EQ(sizes.back(), 0u);
  // The raw file: no header, no trailer, no name, no final pause.
  EXPECT_EQ(rig.timeline->pauses(), (std::vector<double>{2, 2}));
  ASSERT_TRUE(printer.waitForBytes(50000));
  EXPECT_EQ(printer.received(), pattern(50000));
}

TEST_F(FileDownload, BmpAndTtfDownloadsAreThePcxDownload) {
  TcpRig tcp;
  auto& [rig, session, printer] = tcp;
  const auto path = file(3000);
  session.downloadpcx(path, "F.BIN");
  session.downloadbmp(path, "F.BIN");
  session.downloadttf(path, "F.BIN");
  Bytes expected;
  for (int i = 0; i < 3; ++i) {
    const Bytes one = framed("F.BIN", 3000);
    expected.insert(expected.end(), one.begin(), one.end());
  }
  ASSERT_TRUE(printer.waitForBytes(expected.size()));
  EXPECT_EQ(printer.received(), expected);
}

TEST_F(FileDownload, DataDownloadIsHeaderBytesAndLineEnd) {
  TcpRig tcp;
  auto& [rig, session, printer] = tcp;
  EXPECT_EQ(session.downloadData(Bytes{1, 2, 3}, "A.BMP"), 1);
  EXPECT_EQ(rig.timeline->script(),
            "write \"DOWNLOAD F,\"A.BMP\",3,\" | write \"\\x01\\x02\\x03\" | write \"\\r\\n\"");
}

TEST_F(FileDownload, AMissingFileOrNoLinkSendsNothing) {
  Rig rig;
  TestSession session(rig.platform());
  EXPECT_EQ(session.downloadpcx(file(10), "X"), -1);
  EXPECT_EQ(session.downloadData(Bytes{1}, "X"), -1);
  EXPECT_EQ(session.sendfile(file(10), "X"), -1);
  LoopbackPrinter printer;
  openTcp(session, rig, printer);
  EXPECT_EQ(session.downloadpcx("/nonexistent/LOGO.PCX", "X"), -1);
  EXPECT_EQ(session.sendfile("/nonexistent/LOGO.PCX", "X"), -1);
  EXPECT_EQ(rig.timeline->script(), "");
}

TEST_F(FileDownload, OnBleTheWholeFileGoesOutInPacketsWithoutPauses) {
  Rig rig;
  TestSession session(rig.platform());
  auto printer = openBle(session, rig);
  EXPECT_EQ(session.downloadpcx(file(120000), "BIG.TTF"), 1);
  EXPECT_EQ(rig.timeline->script(), "");
  EXPECT_EQ(bleBytes(*printer), framed("BIG.TTF", 120000));
  EXPECT_EQ(printer->writes().size(), 2u + 6000u + 1u);  // header, file, line end
}
