// Every row of the table of HTTP statuses, and what travels in bodies and headers.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "integration/running_daemon.h"

namespace paddock::testing {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr const char* kEcho = "/v1/test_good/echo";
constexpr const char* kPropertyList = "Content-Type: application/x-plist\r\n";

class Requests : public ::testing::Test {
 protected:
  Requests() {
    tree_.configure("[limits]\nbody_bytes = 100000\nreading_body_bytes = 100000\n");
    daemon_.emplace(tree_);
  }
  void SetUp() override { ASSERT_TRUE(daemon_->running()) << daemon_->log(); }

  Response post(const std::string& target, const std::string& body,
                const std::string& headers = {}) {
    return daemon_->post(target, body, headers);
  }

  DaemonTree tree_;
  std::optional<RunningDaemon> daemon_;
};

TEST_F(Requests, HealthSaysThatTheDaemonIsWell) {
  const auto response = daemon_->get("/v1/health");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.header("content-type"), "application/json");
  const Dictionary health = response.dictionary();
  EXPECT_EQ(*health.string("status"), "ok");
  EXPECT_EQ(health.integer("plugins"), 2);
  EXPECT_GE(health.integer("uptimeSeconds").value_or(-1), 0);
  EXPECT_NE(health.string("version"), nullptr);
  ASSERT_NE(health.array("nodes"), nullptr);
  EXPECT_TRUE(health.array("nodes")->empty()) << "all answer";
}

TEST_F(Requests, PluginsAreListedWithTheirOperations) {
  const Dictionary reply = daemon_->get("/v1/plugins").dictionary();
  const Array* plugins = reply.array("plugins");
  ASSERT_NE(plugins, nullptr);
  ASSERT_EQ(plugins->size(), 2U);
  const Dictionary* first = plugins->front().dictionary();
  EXPECT_EQ(*first->string("name"), "test_good");
  const Array& operations = *first->array("operations");
  EXPECT_NE(std::find(operations.begin(), operations.end(), Value("echo")), operations.end());
}

TEST_F(Requests, OperationReceivesRequestAndItsReplyIsReturned) {
  const auto response = post(kEcho, R"({"a":[1,true,"x"],"b":null,"c":{"$data":"AAE="}})");
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.header("content-type"), "application/json");
  EXPECT_EQ(response.dictionary(), (Dictionary{{"a", Array{1, true, "x"}}, {"c", Data{{0, 1}}}}));
}

TEST_F(Requests, MissingFormAndParameterizedTypesReadAsJson) {
  for (const char* type : {"", "Content-Type: application/x-www-form-urlencoded\r\n",
                           "Content-Type: application/json\r\n",
                           "Content-Type: Application/JSON; charset=utf-8\r\n"}) {
    const auto response = post(kEcho, R"({"a":1})", type);
    EXPECT_EQ(response.status, 200) << type;
    EXPECT_EQ(response.dictionary(), (Dictionary{{"a", 1}})) << type;
  }
}

TEST_F(Requests, PropertyListsTravelBothWays) {
  const std::string body =
      "<plist version=\"1.0\"><dict><key>a</key><integer>-1</integer></dict></plist>";
  EXPECT_EQ(post(kEcho, body, kPropertyList).dictionary(), (Dictionary{{"a", -1}}));
  const auto response =
      post(kEcho, body, std::string(kPropertyList) + "Accept: application/x-plist\r\n");
  EXPECT_EQ(response.header("content-type"), "application/x-plist");
  EXPECT_THAT(response.body, HasSubstr("<integer>-1</integer>"));
  EXPECT_THAT(response.body, Not(HasSubstr("<!DOCTYPE")));
  EXPECT_EQ(post("/v1/nothing", body, "Accept: application/x-plist\r\n").header("content-type"),
            "application/x-plist");
}

TEST_F(Requests, AReplyThatXmlCannotCarryIsJson) {
  const Dictionary named{{"name", "a\x1B[1m"}, {"other", "\r\n\t"}};
  const std::string accept = "Accept: application/x-plist\r\n";
  const auto response = post(kEcho, R"({"name":"a\u001b[1m","other":"\r\n\t"})",
                             "Content-Type: application/json\r\n" + accept);
  EXPECT_EQ(response.header("content-type"), "application/json");
  EXPECT_EQ(response.dictionary(), named);
  const auto other =
      post(kEcho, R"({"other":"\r\n\t"})", "Content-Type: application/json\r\n" + accept);
  EXPECT_EQ(other.header("content-type"), "application/x-plist");
  EXPECT_EQ(other.dictionary(), (Dictionary{{"other", "\r\n\t"}}));
}

TEST_F(Requests, DocumentTypeSubsetIsRefusedButIdentifierSkipped) {
  const std::string identifier =
      "<!DOCTYPE plist PUBLIC \"-//Example//DTD\" \"http://a.example/b\"";
  EXPECT_EQ(post(kEcho, identifier + "><plist><dict/></plist>", kPropertyList).status, 200);
  for (const std::string& type :
       {std::string("<!DOCTYPE plist>"), identifier + " [<!ENTITY a \"b\">]>"}) {
    const auto refused = post(kEcho, type + "<plist><dict/></plist>", kPropertyList);
    EXPECT_EQ(refused.status, 400) << type;
    EXPECT_THAT(refused.error(), HasSubstr("document type declaration"));
  }
}

TEST_F(Requests, InvalidDictionaryBodyReturns400WithPosition) {
  for (const char* body :
       {R"({"a":})", "[]", R"( "text")", "{} {}", R"({"a":1.5})", R"({"a":1,"a":2})",
        R"({"a":[null]})", "{\"a\":\"\xff\"}", R"({"a":{"$data":"!"}})"}) {
    const auto response = post(kEcho, body);
    EXPECT_EQ(response.status, 400) << body;
    EXPECT_THAT(response.error(), HasSubstr("line 1, column ")) << body;
  }
  EXPECT_THAT(post(kEcho, "\n\n  7").error(), StartsWith("line 3, column 3: "));
}

TEST_F(Requests, AnEmptyBodyIs400) {
  for (const char* headers : {"", "Content-Length: 0\r\n"}) {
    const auto response = post(kEcho, "", headers);
    EXPECT_EQ(response.status, 400);
    EXPECT_THAT(response.error(), HasSubstr("line 1, column 1"));
  }
}

TEST_F(Requests, WhatIsNotThereIs404) {
  for (const char* target :
       {"/", "/v1", "/v1/", "/v1/nothing", "/v2/test_good/echo", "/v1/test_good/nothing",
        "/v1/test_bad/echo", "/v1/test_good/", "/v1/test_good/echo/", "/v1//echo",
        "/v1/test_good/echo%00", "/v1/health/"}) {
    const auto response = post(target, "{}");
    EXPECT_EQ(response.status, 404) << target;
    EXPECT_FALSE(response.error().empty()) << target;
  }
}

TEST_F(Requests, PathEscapesAreDecodedAndQueryIsIgnored) {
  EXPECT_EQ(post("/v1/test%5Fgood/%65cho?x=/y", "{}").status, 200);
}

TEST_F(Requests, WrongMethodReturns405NamingAllowedMethod) {
  for (const char* method : {"GET", "HEAD", "PUT", "DELETE", "OPTIONS"}) {
    const auto response = request(tree_.socket(), method, kEcho);
    EXPECT_EQ(response.status, 405) << method;
    EXPECT_EQ(response.header("allow"), "POST") << method;
  }
  for (const char* target : {"/v1/health", "/v1/plugins"}) {
    for (const char* method : {"POST", "HEAD", "PUT"}) {
      const auto response = request(tree_.socket(), method, target);
      EXPECT_EQ(response.status, 405) << method << target;
      EXPECT_EQ(response.header("allow"), "GET") << method << target;
    }
  }
}

TEST_F(Requests, AnUnknownContentTypeIs415) {
  for (const char* type : {"text/xml", "text/plain", "multipart/form-data; boundary=x"}) {
    const auto response = post(kEcho, "{}", std::string("Content-Type: ") + type + "\r\n");
    EXPECT_EQ(response.status, 415) << type;
    EXPECT_FALSE(response.error().empty()) << type;
  }
}

TEST_F(Requests, ABodyOfExactlyTheLimitIsTaken) {
  const std::string start = R"({"a":")";
  const std::string end = R"("})";
  const std::string body = start + std::string(100000 - start.size() - end.size(), 'x') + end;
  ASSERT_EQ(body.size(), 100000U);
  EXPECT_EQ(post(kEcho, body).status, 200);
  EXPECT_EQ(post(kEcho, body + " ").status, 413);
}

TEST_F(Requests, LengthAboveLimitReturns413BeforeBodyArrives) {
  for (const char* length : {"100001", "99999999999999999"}) {
    SocketClient client(tree_.socket());
    client.send(requestText("POST", kEcho, "", std::string("Content-Length: ") + length + "\r\n"));
    const auto response = client.receive(std::chrono::seconds(20));
    EXPECT_EQ(response.status, 413) << length;
    EXPECT_FALSE(response.error().empty()) << length;
  }
}

TEST_F(Requests, TwoDifferentLengthsAre400AndEndTheConnection) {
  for (const auto& [first, second] : std::vector<std::pair<std::string, std::string>>{
           {"2", "3"}, {"3", "2"}, {"2", "200"}, {"0", "2"}, {"2", "-1"}, {"2", "2, 3"}}) {
    SocketClient client(tree_.socket());
    client.send(requestText("POST", kEcho, "",
                            "Content-Length: " + first + "\r\ncontent-length: " + second + "\r\n") +
                "{}");
    const auto response = client.receive(std::chrono::seconds(20));
    EXPECT_EQ(response.status, 400) << first << " and " << second;
    EXPECT_THAT(response.error(), HasSubstr("Content-Length")) << first << " and " << second;
    EXPECT_TRUE(client.ends(std::chrono::seconds(20))) << first << " and " << second;
  }
}

// A second request is behind the end that one of the readings gives the body: it must not be run.
TEST_F(Requests, AmbiguousEndOfBodyIs400AndEndsTheConnection) {
  const std::string hidden = requestText("POST", "/v1/test_good/change", "{}");
  const std::string chunked = "Transfer-Encoding: chunked\r\n";
  for (const std::string& headers :
       {chunked + "Content-Length: 2\r\n", "Content-Length: 2\r\n" + chunked,
        "Content-Length: " + std::to_string(hidden.size() + 5) + "\r\n" + chunked,
        std::string("content-length: 2\r\ntransfer-encoding: Chunked\r\n"), chunked + chunked,
        std::string("Transfer-Encoding: identity\r\n"),
        std::string("Transfer-Encoding: gzip, chunked\r\n"),
        std::string("Transfer-Encoding: xchunked\r\n"), std::string("Transfer-Encoding:\r\n"),
        std::string("Content-Length : 2\r\n"), std::string("Transfer-Encoding : chunked\r\n")}) {
    SocketClient client(tree_.socket());
    client.send(requestText("POST", kEcho, "", headers) + "0\r\n\r\n" + hidden);
    const auto response = client.receive(std::chrono::seconds(20));
    EXPECT_EQ(response.status, 400) << headers;
    EXPECT_FALSE(response.error().empty()) << headers;
    EXPECT_TRUE(client.ends(std::chrono::seconds(20))) << headers;
  }
  const std::string audit = tree_.read("/var/log/paddock/audit.jsonl");
  EXPECT_EQ(audit.find("\"change\""), std::string::npos) << audit;
}

TEST_F(Requests, TheSameLengthTwiceIsOneLength) {
  EXPECT_EQ(post(kEcho, "{}", "Content-Length: 2\r\n").status, 200);
  EXPECT_EQ(post(kEcho, "{}", "Content-Length: 002\r\n").status, 200);
}

// What the library refuses by itself, before it asks us.
TEST_F(Requests, UnreadableHeadIsAnsweredOnceWithDictionary) {
  const std::vector<std::pair<std::string, int>> heads{
      {"Content-Length: -1\r\n", 400},
      {"Content-Length: 2, 3\r\n", 400},
      {"Content-Length: two\r\n", 400},
      {"Content-Length: 99999999999999999999999\r\n", 413},
      {"X-Long: " + std::string(100000, 'x') + "\r\n", 431}};
  for (const auto& [headers, status] : heads) {
    SocketClient client(tree_.socket());
    client.send(requestText("POST", kEcho, "", headers));
    const auto response = client.receive(std::chrono::seconds(20));
    EXPECT_EQ(response.status, status) << headers.substr(0, 40);
    EXPECT_FALSE(response.error().empty()) << headers.substr(0, 40);
    EXPECT_FALSE(response.header("x-request-id").empty()) << headers.substr(0, 40);
    EXPECT_TRUE(client.ends(std::chrono::seconds(20))) << headers.substr(0, 40);
  }
  EXPECT_EQ(post(kEcho, "{}").status, 200);
}

TEST_F(Requests, AChunkThatCannotBeReadIs400) {
  SocketClient client(tree_.socket());
  client.send(requestText("POST", kEcho, "", "Transfer-Encoding: chunked\r\n") + "what?\r\n");
  const auto response = client.receive(std::chrono::seconds(20));
  EXPECT_EQ(response.status, 400);
  EXPECT_FALSE(response.error().empty());
  EXPECT_TRUE(client.ends(std::chrono::seconds(20)));
}

TEST_F(Requests, RefusalReachesClientStillSending) {
  SocketClient client(tree_.socket());
  // Far more than the socket buffers hold: closing it now would break the transmission.
  EXPECT_TRUE(client.send(requestText("POST", kEcho, std::string(8U << 20U, 'x'))));
  EXPECT_EQ(client.receive().status, 413);
  EXPECT_TRUE(client.ends(std::chrono::seconds(20)));
}

TEST_F(Requests, AChunkedBodyAboveTheLimitIs413) {
  SocketClient client(tree_.socket());
  ASSERT_TRUE(client.send(requestText("POST", kEcho, "", "Transfer-Encoding: chunked\r\n")));
  const std::string chunk = "4000\r\n" + std::string(0x4000, 'x') + "\r\n";
  // 4 MiB without an end.
  for (int count = 0; count < 256; ++count) ASSERT_TRUE(client.send(chunk)) << count;
  const auto response = client.receive();
  EXPECT_EQ(response.status, 413);
  EXPECT_FALSE(response.error().empty());
  EXPECT_FALSE(response.header("x-request-id").empty());
}

TEST_F(Requests, AChunkedBodyWithinTheLimitIsRead) {
  SocketClient client(tree_.socket());
  client.send(requestText("POST", kEcho, "", "Transfer-Encoding: chunked\r\n"));
  client.send("3\r\n{\"a\r\n4\r\n\":1}\r\n0\r\n\r\n");
  const auto response = client.receive();
  EXPECT_EQ(response.status, 200);
  EXPECT_EQ(response.dictionary(), (Dictionary{{"a", 1}}));
}

TEST_F(Requests, ExpectHeaderIsAnsweredWithContinue) {
  SocketClient client(tree_.socket());
  client.send(requestText("POST", kEcho, "", "Expect: 100-continue\r\nContent-Length: 7\r\n"));
  EXPECT_EQ(client.receive().status, 100);
  client.send(R"({"a":1})");
  EXPECT_EQ(client.receive().status, 200);
}

TEST_F(Requests, ExpectHeaderAboveLimitIsRefusedBeforeSending) {
  SocketClient client(tree_.socket());
  client.send(
      requestText("POST", kEcho, "", "Expect: 100-continue\r\nContent-Length: 1000000\r\n"));
  EXPECT_EQ(client.receive().status, 413);
}

TEST_F(Requests, ExceptionReturns500WithTextAndDaemonContinues) {
  EXPECT_EQ(post("/v1/test_good/fail", "{}").error(), "on purpose");
  const auto odd = post("/v1/test_good/fail", R"({"how":"odd"})");
  EXPECT_EQ(odd.status, 500);
  EXPECT_FALSE(odd.error().empty());
  EXPECT_EQ(post("/v1/test_good/fail", R"({"how":"number"})").status, 500);
  EXPECT_EQ(post(kEcho, "{}").status, 200);
  EXPECT_THAT(daemon_->log(), HasSubstr("operation fail of plug-in test_good failed: on purpose"));
}

TEST_F(Requests, EveryReplyCarriesAnIdOfItsOwn) {
  std::set<std::string> ids;
  const auto note = [&ids](const Response& response) {
    const std::string id = response.header("x-request-id");
    EXPECT_FALSE(id.empty()) << response.status;
    EXPECT_TRUE(ids.insert(id).second) << id;
  };
  note(post(kEcho, "{}"));
  note(post(kEcho, "{"));
  note(post(kEcho, "{}", "Content-Type: text/xml\r\n"));
  note(post("/nothing", "{}"));
  note(post("/v1/test_good/fail", "{}"));
  note(daemon_->get("/v1/health"));
  note(daemon_->get(kEcho));
}

TEST_F(Requests, RequestIdAppearsInItsLogLines) {
  const auto response = post("/v1/test_good/log", R"({"text":"hello","priority":4})");
  EXPECT_THAT(daemon_->log(),
              HasSubstr("<4>hello [request " + response.header("x-request-id") + "]\n"));
  const auto reply = post("/v1/test_good/surroundings", "{}");
  EXPECT_EQ(*reply.dictionary().string("request"), reply.header("x-request-id"));
}

TEST_F(Requests, OneConnectionServesSeveralRequests) {
  SocketClient client(tree_.socket());
  for (const char* target : {"/v1/health", "/v1/nothing", "/v1/health"}) {
    ASSERT_TRUE(client.send(requestText("GET", target)));
    EXPECT_NE(client.receive().status, 0) << target;
  }
  client.send(requestText("POST", kEcho, "{") + requestText("POST", kEcho, "{}"));
  EXPECT_EQ(client.receive().status, 400);
  EXPECT_EQ(client.receive().status, 200);
}

TEST_F(Requests, ALongReplyArrivesWhole) {
  const auto response = post("/v1/test_good/big", R"({"bytes":5000000})");
  ASSERT_EQ(response.status, 200);
  const Dictionary reply = response.dictionary();
  ASSERT_NE(reply.string("text"), nullptr);
  EXPECT_EQ(reply.string("text")->size(), 5000000U);
}

TEST_F(Requests, InvalidHttpBytesDoNotDisturbDaemon) {
  for (const std::string& bytes :
       {std::string("\0\0\0\0\r\n\r\n", 8), std::string("GET\r\n\r\n"), std::string(200000, 'x'),
        requestText("POST", kEcho, "", "Content-Length: -1\r\n")}) {
    SocketClient client(tree_.socket());
    client.send(bytes);
    (void)client.receive(std::chrono::seconds(1));
  }
  EXPECT_EQ(daemon_->get("/v1/health").status, 200);
}

TEST_F(Requests, PlugInsSeeTheRootAndTheConfiguration) {
  const Dictionary reply = post("/v1/test_good/surroundings", "{}").dictionary();
  EXPECT_EQ(*reply.string("root"), tree_.root());
  EXPECT_EQ(*reply.string("exports"), tree_.path("/etc/exports"));
  EXPECT_EQ(
      *reply.dictionary("configuration"),
      (Dictionary{{"limits", Dictionary{{"body_bytes", 100000}, {"reading_body_bytes", 100000}}}}));
}

TEST_F(Requests, CommandsReachASibling) {
  const Dictionary reply = post("/v1/test_good/command",
                                R"({"module":"test_sibling","request":{"command":"echo","a":1}})")
                               .dictionary();
  EXPECT_EQ(*reply.dictionary("reply"), (Dictionary{{"a", 1}}));
}

TEST_F(Requests, UndeliverableCommandReturnsErrorReply) {
  for (const char* body : {R"({"module":"test_bad","request":{"command":"echo"}})",
                           R"({"module":"test_sibling","request":{"command":"nothing"}})",
                           R"({"module":"test_sibling","request":{}})",
                           R"({"module":"test_sibling","request":{"command":"fail"}})"}) {
    const auto response = post("/v1/test_good/command", body);
    EXPECT_EQ(response.status, 200) << body;
    const Dictionary reply = response.dictionary();
    ASSERT_NE(reply.dictionary("reply"), nullptr) << body;
    EXPECT_NE(reply.dictionary("reply")->string("error"), nullptr) << body;
  }
}

}  // namespace
}  // namespace paddock::testing
