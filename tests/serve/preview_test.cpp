// The preview endpoints over real HTTP: the label's picture where the
// commands put ink, the label count and warnings, every label as PDF
// pages, templates, and the limits hostile bodies meet.

#include <gmock/gmock.h>

#include <orvante/pdf.hpp>

#include "service_fixture.hpp"

namespace orvante::serve::testing {
namespace {

using ::testing::HasSubstr;

const std::string kLabel =
    "SIZE 50 mm, 30 mm\r\nCLS\r\nBAR 100,60,50,40\r\nTEXT 200,150,\"3\",0,1,1,\"Hi\"\r\nPRINT 1\r\n";

class ServePreview : public ::testing::Test {
 protected:
  RunningService service;
  httplib::Client client = service.client();
};

TEST_F(ServePreview, DrawsTheLabelWithItsInkWhereTheCommandsPutIt) {
  const auto answer = client.Post("/v1/preview", kLabel, "text/plain");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  EXPECT_EQ(answer->get_header_value("Content-Type"), "image/png");
  EXPECT_EQ(answer->get_header_value("X-Label-Count"), "1");
  EXPECT_FALSE(answer->has_header("X-Warnings"));
  const Picture label = pictureOf(answer->body);
  EXPECT_EQ(label.width(), 400);  // 50 x 30 mm at 8 dots a mm
  EXPECT_EQ(label.height(), 240);
  EXPECT_EQ(label.inkIn(100, 60, 150, 100), 50u * 40u);  // the bar, every dot
  EXPECT_GT(label.inkIn(200, 150, 260, 190), 20u);       // the text
  EXPECT_EQ(label.inkIn(0, 0, 100, 60), 0u);

  // The same at 300 dpi (12 dots a mm); a content type of any kind.
  const auto fine = client.Post("/v1/preview?dpi=300", kLabel, "application/octet-stream");
  ASSERT_TRUE(fine);
  EXPECT_EQ(pictureOf(fine->body).width(), 600);
  EXPECT_EQ(pictureOf(fine->body).height(), 360);
}

TEST_F(ServePreview, PicksALabelByIndexAndGivesEveryLabelAsAPdfPage) {
  const std::string three = "SIZE 20 mm, 10 mm\nCLS\nPRINT 1\nBAR 0,0,160,80\nPRINT 1\n"
                            "SIZE 40 mm, 10 mm\nPRINT 1\n";
  const auto second = client.Post("/v1/preview?index=1", three, "text/plain");
  ASSERT_TRUE(second);
  EXPECT_EQ(second->get_header_value("X-Label-Count"), "3");
  EXPECT_EQ(pictureOf(second->body).ink(), 160u * 80u);
  const auto missing = client.Post("/v1/preview?index=3", three, "text/plain");
  EXPECT_EQ(missing->status, 404);
  EXPECT_THAT(errorOf(missing), HasSubstr("printed 3 labels"));

  const auto pdf = client.Post("/v1/preview", {{"Accept", "application/pdf"}}, three, "text/plain");
  ASSERT_TRUE(pdf);
  EXPECT_EQ(pdf->get_header_value("Content-Type"), "application/pdf");
  const PdfDocument document = PdfDocument::fromData(viewOf(pdf->body));
  ASSERT_EQ(document.pageCount(), 3);
  EXPECT_NEAR(document.pageSize(1)->width, 160 * 72.0 / 203, 0.01);  // each at its label's size
  EXPECT_NEAR(document.pageSize(3)->width, 320 * 72.0 / 203, 0.01);
  const Image page = document.drawPage(2, 160, 80);
  EXPECT_LT(page.rgba()[0], 64);  // the second label is all ink
}

TEST_F(ServePreview, ReportsTheEnginesWarningsOnOneHeaderLine) {
  const auto answer = client.Post(
      "/v1/preview", "SIZE 20 mm, 10 mm\nFROBNICATE 1\nBITMAP 150,0,4,2,0,\x01\x02\x03\x04\x05\x06\x07\x08"
                     "\nPRINT 1\n",
      "text/plain");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 200);
  const std::string warnings = answer->get_header_value("X-Warnings");
  EXPECT_THAT(warnings, HasSubstr("unknown command FROBNICATE"));
  EXPECT_THAT(warnings, HasSubstr("cut off"));
  EXPECT_EQ(warnings.find_first_of("\r\n"), std::string::npos);
}

TEST_F(ServePreview, RefusesWhatItCannotDraw) {
  const auto none = client.Post("/v1/preview", "SIZE 20 mm, 10 mm\nCLS\n", "text/plain");
  EXPECT_EQ(none->status, 400);
  EXPECT_THAT(errorOf(none), HasSubstr("no label"));
  for (const char* query : {"?dpi=600", "?dpi=abc", "?index=-1", "?index=99999999999999999999"}) {
    const auto bad = client.Post(std::string("/v1/preview") + query, kLabel, "text/plain");
    EXPECT_EQ(bad->status, 400) << query;
    EXPECT_FALSE(errorOf(bad).empty()) << query;
  }
  const auto wrongMethod = client.Get("/v1/preview");
  EXPECT_EQ(wrongMethod->status, 404);
  EXPECT_FALSE(errorOf(wrongMethod).empty());
}

TEST_F(ServePreview, HoldsToItsLimitsOfLabelsDotsAndBodySize) {
  const auto fifty = client.Post("/v1/preview?index=49", "SIZE 10 mm, 10 mm\nPRINT 50\n", "text/plain");
  EXPECT_EQ(fifty->status, 200);
  EXPECT_EQ(fifty->get_header_value("X-Label-Count"), "50");
  std::string many = "SIZE 10 mm, 10 mm\n";
  for (int i = 0; i < 60; ++i) many += "PRINT 1\n";
  for (const std::string& body : {many, std::string("SIZE 10 mm, 10 mm\nPRINT 1000000\n")}) {
    const auto refused = client.Post("/v1/preview", body, "text/plain");
    EXPECT_EQ(refused->status, 413);
    EXPECT_THAT(errorOf(refused), HasSubstr("at most 50"));
  }
  // Four of the largest labels pass the library's 100 megapixels.
  const auto huge = client.Post("/v1/preview", "SIZE 300 mm, 1500 mm\nPRINT 4\n", "text/plain");
  EXPECT_EQ(huge->status, 413);
  EXPECT_THAT(errorOf(huge), HasSubstr("dots"));

  const auto large = client.Post("/v1/preview", std::string(1024 * 1024 + 1, ' '), "text/plain");
  ASSERT_TRUE(large);
  EXPECT_EQ(large->status, 413);
  EXPECT_FALSE(errorOf(large).empty());
}

TEST(ServePreviewTime, ARenderPastTheTimeLimitIsStopped) {
  ServiceOptions options = loopbackOptions();
  options.preview.timeLimit = std::chrono::milliseconds(50);
  RunningService service(options);
  std::string slow = "SIZE 300 mm, 1500 mm\n";
  for (int i = 0; i < 5000; ++i) slow += "CLS\n";
  slow += "PRINT 1\n";
  const auto start = std::chrono::steady_clock::now();
  const auto answer = service.client().Post("/v1/preview", slow, "text/plain");
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->status, 503);
  EXPECT_THAT(errorOf(answer), HasSubstr("stopped"));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
}

TEST_F(ServePreview, DrawsATemplatesLabelForARecordAndRefusesImageFiles) {
  const json request = {
      {"template",
       {{"size", {50, 30}},
        {"elements",
         {{{"type", "text"}, {"x", 20}, {"y", 20}, {"font", "3"}, {"text", "${name}"}},
          {{"type", "box"}, {"x", 0}, {"y", 100}, {"x2", 399}, {"y2", 239}, {"thickness", 4}}}}}},
      {"record", {{"name", "Wang Li"}}}};
  const auto answer = client.Post("/v1/preview/template", request.dump(), "application/json");
  ASSERT_TRUE(answer);
  ASSERT_EQ(answer->status, 200) << answer->body;
  const Picture label = pictureOf(answer->body);
  EXPECT_EQ(label.width(), 400);
  EXPECT_GT(label.inkIn(20, 20, 200, 60), 50u);   // the name
  EXPECT_EQ(label.inkIn(0, 110, 4, 230), 4u * 120u);  // the box's left side

  json lacking = request;
  lacking["record"] = json::object();
  EXPECT_THAT(errorOf(client.Post("/v1/preview/template", lacking.dump(), "application/json")),
              HasSubstr("name"));
  json image = request;
  image["template"]["elements"].push_back({{"type", "image"}, {"x", 0}, {"y", 0}, {"path", "/etc/passwd"}});
  const auto refused = client.Post("/v1/preview/template", image.dump(), "application/json");
  EXPECT_EQ(refused->status, 400);
  EXPECT_THAT(errorOf(refused), HasSubstr("elements[2]: image elements read files"));
  for (const std::string& body : {std::string("{"), std::string("[]"), std::string(5000, '[')}) {
    EXPECT_EQ(client.Post("/v1/preview/template", body, "application/json")->status, 400);
  }
}

}  // namespace
}  // namespace orvante::serve::testing
