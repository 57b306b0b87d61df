// The small parts that read a request's head and write a reply.

#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "base/status.h"
#include "daemon/http/reply.h"
#include "daemon/http/request_names.h"

namespace paddock {
namespace {

TEST(MediaType, ContentTypesAreReadWithoutTheirParameters) {
  EXPECT_EQ(formOfContentType(""), BodyForm::json);
  EXPECT_EQ(formOfContentType("application/json"), BodyForm::json);
  EXPECT_EQ(formOfContentType(" Application/JSON ; charset=utf-8"), BodyForm::json);
  EXPECT_EQ(formOfContentType("application/x-www-form-urlencoded"), BodyForm::json);
  EXPECT_EQ(formOfContentType("application/x-plist"), BodyForm::propertyList);
  EXPECT_EQ(formOfContentType("text/xml"), std::nullopt);
  EXPECT_EQ(formOfContentType("application/jsonx"), std::nullopt);
}

TEST(MediaType, AcceptAsksForPropertyListsOnlyByName) {
  EXPECT_EQ(formOfAccept(""), BodyForm::json);
  EXPECT_EQ(formOfAccept("*/*"), BodyForm::json);
  EXPECT_EQ(formOfAccept("application/x-plist"), BodyForm::propertyList);
  EXPECT_EQ(formOfAccept("text/html, Application/X-Plist;q=0.9, */*"), BodyForm::propertyList);
  EXPECT_EQ(formOfAccept("application/json, application/x-plist"), BodyForm::json);
}

TEST(Reply, IsPropertyListOnlyWhenTextsAreRepresentable) {
  const Reply list = makeReply(200, {{"name", "a\r\n\tb"}}, BodyForm::propertyList);
  EXPECT_EQ(list.form, BodyForm::propertyList);
  EXPECT_NE(list.body.find("<plist"), std::string::npos);
  const Reply json = makeReply(200, {{"name", "a\x1B"}}, BodyForm::propertyList);
  EXPECT_EQ(json.form, BodyForm::json);
  EXPECT_EQ(json.body, "{\"name\":\"a\\u001b\"}\n");
}

TEST(Route, PathsNameOperationsAndTheTwoFixedOnes) {
  const Route route = routeOf("/v1/paddock_sharing/getState?x=1");
  EXPECT_EQ(route.kind, Route::Kind::operation);
  EXPECT_EQ(route.plugin, "paddock_sharing");
  EXPECT_EQ(route.operation, "getState");
  EXPECT_EQ(routeOf("/v1/health").kind, Route::Kind::health);
  EXPECT_EQ(routeOf("/v1/openapi.json").kind, Route::Kind::openApi);
  EXPECT_EQ(routeOf("/v1/plugins?").kind, Route::Kind::plugins);
  EXPECT_EQ(routeOf("/v1/audit?limit=5").kind, Route::Kind::audit);
  EXPECT_EQ(routeOf("/v1/requests/a%2d1/log?x").kind, Route::Kind::requestLog);
  EXPECT_EQ(routeOf("/v1/requests/a%2d1/log").request, "a-1");
  EXPECT_EQ(routeOf("/v1/requests/a/other").kind, Route::Kind::none);
  EXPECT_EQ(routeOf("/v1/requests/log").kind, Route::Kind::none);
  for (const char* target :
       {"", "/", "*", "/v1", "/v1/", "/v1/Health", "/v2/health", "v1/health"}) {
    EXPECT_EQ(routeOf(target).kind, Route::Kind::none) << target;
  }
}

TEST(Route, EscapesAreReadAfterThePathIsSplit) {
  EXPECT_EQ(routeOf("/v1/a%62/c%2Fd").plugin, "ab");
  EXPECT_EQ(routeOf("/v1/a/c%2Fd").operation, "c/d");
  EXPECT_EQ(routeOf("/v1/a/b%00").operation, std::string("b\0", 2));
  EXPECT_EQ(routeOf("/v1/a/b%").operation, "b%");
  EXPECT_EQ(routeOf("/v1/a/b%4").operation, "b%4");
  EXPECT_EQ(routeOf("/v1/a/b%-1").operation, "b%-1");
}

TEST(Reply, ErrorsAreDictionariesInRequestedForm) {
  EXPECT_EQ(makeError(404, "no \"x\"", BodyForm::json).body, "{\"error\":\"no \\\"x\\\"\"}\n");
  const Reply reply = makeError(400, "bad", BodyForm::propertyList);
  EXPECT_NE(reply.body.find("<key>error</key>"), std::string::npos);
  EXPECT_EQ(reply.status, 400);
}

TEST(Reply, RawResponseIsCompleteAndClosesConnection) {
  EXPECT_EQ(rawResponse(makeError(503, "busy", BodyForm::json), "id-1"),
            "HTTP/1.1 503 Service Unavailable\r\nConnection: close\r\nContent-Type: "
            "application/json\r\nContent-Length: 17\r\nX-Request-Id: "
            "id-1\r\n\r\n{\"error\":\"busy\"}\n");
}

TEST(RequestIds, AreUniqueAcrossThreads) {
  RequestIds ids;
  std::vector<std::vector<std::string>> made(4);
  std::vector<std::thread> threads;
  threads.reserve(4);
  for (auto& own : made) {
    threads.emplace_back([&ids, &own] {
      for (int count = 0; count < 500; ++count) own.push_back(ids.next());
    });
  }
  for (auto& thread : threads) thread.join();
  std::set<std::string> all;
  for (const auto& own : made) all.insert(own.begin(), own.end());
  EXPECT_EQ(all.size(), 2000U);
}

struct KnownError : std::runtime_error, NumberedError {
  explicit KnownError(std::optional<Status> known) : std::runtime_error("x"), number_(known) {}
  std::optional<Status> number() const override { return number_; }
  std::optional<Status> number_;
};

TEST(FailureNumber, IsErrorNumberOrElseEio) {
  EXPECT_EQ(failureNumber(KnownError(100076)), 100076);
  EXPECT_EQ(failureNumber(KnownError(std::nullopt)), EIO);
  EXPECT_EQ(failureNumber(std::system_error(EACCES, std::generic_category())), EACCES);
  EXPECT_EQ(failureNumber(std::runtime_error("x")), EIO);
}

}  // namespace
}  // namespace paddock
