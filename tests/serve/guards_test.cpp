// What every request passes: the token, the loopback-only default, other
// sites' pages, unknown paths; and the service's own parsing of the
// listening address and the token.

#include <gmock/gmock.h>

#include "serve/requests.hpp"
#include "service_fixture.hpp"
#include "tool_run.hpp"

namespace orvante::serve::testing {
namespace {

using ::testing::HasSubstr;
using orvante::testing::runTool;
using orvante::testing::ToolRun;

const std::string kLabel = "SIZE 20 mm, 10 mm\nBAR 0,0,10,10\nPRINT 1\n";

TEST(ServeGuards, WithATokenEveryV1RequestNeedsIt) {
  ServiceOptions options = loopbackOptions();
  options.token = "s3cret-token";
  RunningService service(options);
  auto client = service.client();
  for (const httplib::Headers& wrong :
       {httplib::Headers{}, httplib::Headers{{"Authorization", "Bearer s3cret-tokeN"}},
        httplib::Headers{{"Authorization", "Bearer s3cret"}},
        httplib::Headers{{"Authorization", "Basic s3cret-token"}}}) {
    const auto refused = client.Post("/v1/preview", wrong, kLabel, "text/plain");
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 401);
    EXPECT_THAT(errorOf(refused), HasSubstr("Bearer"));
    EXPECT_EQ(client.Get("/v1/printers", wrong)->status, 401);
  }
  const httplib::Headers right{{"Authorization", "Bearer s3cret-token"}};
  EXPECT_EQ(client.Post("/v1/preview", right, kLabel, "text/plain")->status, 200);
  EXPECT_EQ(client.Get("/v1/printers", right)->status, 200);
  EXPECT_EQ(client.Get("/")->status, 200);  // the page asks for the token itself
}

TEST(ServeGuards, ListensBeyondTheLoopbackOnlyWithAToken) {
  ServiceOptions open = loopbackOptions();
  open.host = "0.0.0.0";
  EXPECT_THROW(Service{open}, std::invalid_argument);
  open.token = "t";
  EXPECT_NO_THROW(Service{open});

  const ToolRun refused = runTool("serve --listen 0.0.0.0:0");
  EXPECT_EQ(refused.status, 2);
  EXPECT_THAT(refused.err, HasSubstr("--token"));
  EXPECT_EQ(runTool("serve --listen nonsense").status, 2);
  EXPECT_EQ(runTool("serve --printer without-uri").status, 2);

  for (const char* near : {"127.9.8.7", "::1", "localhost"}) EXPECT_TRUE(isLoopback(near)) << near;
  for (const char* far : {"0.0.0.0", "::", "128.0.0.1", "::ffff:10.0.0.1"}) EXPECT_FALSE(isLoopback(far)) << far;
  EXPECT_EQ(parseListen("[::1]:8080").host, "::1");
}

TEST(ServeGuards, RefusesOtherSitesPagesAndForeignHostNames) {
  RunningService service;
  auto client = service.client();
  const auto foreign = client.Post("/v1/preview", {{"Origin", "http://evil.example"}}, kLabel, "text/plain");
  EXPECT_EQ(foreign->status, 403);
  const auto own = client.Post("/v1/preview", {{"Origin", service.base()}}, kLabel, "text/plain");
  EXPECT_EQ(own->status, 200);
  // A name made to resolve to the loopback by another site's DNS.
  const auto rebound = client.Get("/v1/printers", {{"Host", "printer.evil.example"}});
  EXPECT_EQ(rebound->status, 403);
}

TEST(ServeGuards, UnknownPathsAreJsonErrors) {
  RunningService service;
  auto client = service.client();
  for (const char* path : {"/nothing", "/v1/jobs/abc", "/v1/jobs/999", "/v1/printers/none/jobs/x"}) {
    const auto missing = client.Get(path);
    ASSERT_TRUE(missing);
    EXPECT_EQ(missing->status, 404) << path;
    EXPECT_FALSE(errorOf(missing).empty()) << path;
  }
  const auto unknown = client.Post("/v1/printers/none/jobs", kLabel, "text/plain");
  EXPECT_EQ(unknown->status, 404);
  EXPECT_THAT(errorOf(unknown), HasSubstr("no printer named \"none\""));
}

}  // namespace
}  // namespace orvante::serve::testing
