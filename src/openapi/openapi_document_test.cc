#include "openapi/openapi_document.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "wire/json.h"

namespace paddock::openapi {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

using Operations = std::vector<PluginRequestHandler::Operation>;

class OpenApiDocument : public testing::Test {
 protected:
  // With the daemon's endpoints "/v1/health" and "/v1/new", the latter unknown.
  Dictionary document() const {
    return openApiDocument({{"gate", operations_, description_}}, {"/v1/health", "/v1/new"}, "7");
  }
  static const Value& at(const Value& value, std::initializer_list<const char*> keys) {
    static const Value nothing;
    const Value* found = &value;
    for (const char* key : keys) {
      found = found->dictionary() != nullptr ? found->dictionary()->find(key) : nullptr;
      if (found == nullptr) return nothing;
    }
    return *found;
  }
  static Value parsed(const char* text) {
    std::string error;
    auto value = wire::parseJson(text, error);
    EXPECT_TRUE(value) << error;
    return value.value_or(Value());
  }
  void describe(const char* text) { description_ = *parsed(text).dictionary(); }
  Value open() const { return at(document(), {"paths", "/v1/gate/open", "post"}); }

  Operations operations_{{"look", false}, {"open", true}};
  Dictionary description_;
};

TEST_F(OpenApiDocument, HasWhatNobodyDescribes) {
  const Dictionary made = document();
  std::vector<std::string> paths;
  for (const auto& [path, item] : *made.dictionary("paths")) paths.push_back(path);
  EXPECT_THAT(paths, ElementsAre("/v1/gate/look", "/v1/gate/open", "/v1/health", "/v1/new"));
  EXPECT_EQ(at(made, {"paths", "/v1/new", "get", "summary"}), Value("Nobody describes it."));
  EXPECT_EQ(at(open(), {"requestBody", "content", "application/json", "schema"}),
            parsed(R"({"type": "object"})"));
}

TEST_F(OpenApiDocument, SaysWhatItIs) {
  const Dictionary made = document();
  EXPECT_EQ(*made.string("openapi"), "3.1.0");
  EXPECT_EQ(at(made, {"info", "version"}), Value("7"));
  EXPECT_EQ(made.array("tags")->size(), 2U);
}

TEST_F(OpenApiDocument, HasRightsOfThePlugInsOwnTable) {
  describe(R"({"operations": {"open": {"rights": "viewers"}}})");
  EXPECT_EQ(at(open(), {"x-rights"}), Value("administrators"));
  EXPECT_EQ(at(open(), {"x-audited"}), Value(true));
  const Dictionary made = document();
  EXPECT_EQ(at(made, {"paths", "/v1/gate/look", "post", "x-rights"}), Value("viewers"));
  EXPECT_EQ(at(made, {"paths", "/v1/gate/look", "post", "x-audited"}), Value(false));
  EXPECT_EQ(at(made, {"paths", "/v1/health", "get", "x-rights"}), Value("viewers"));
  EXPECT_EQ(at(made, {"paths", "/v1/new", "get", "x-rights"}), Value("administrators"));
}

TEST_F(OpenApiDocument, OmitsOperationsMissingFromPlugin) {
  describe(R"({"operations": {"shut": {"summary": "Shuts it."}}})");
  EXPECT_FALSE(document().dictionary("paths")->contains("/v1/gate/shut"));
}

TEST_F(OpenApiDocument, PutsExamplesWhereReadersLook) {
  describe(R"({"operations": {"open": {"examples": [
    {"summary": "Wide", "request": {"width": 2}, "reply": {"status": 0}, "audit": {"uid": 0}}]}}})");
  EXPECT_EQ(at(open(), {"requestBody", "content", "application/json", "examples", "1"}),
            parsed(R"({"summary": "Wide", "value": {"width": 2}})"));
  EXPECT_EQ(at(open(), {"responses", "200", "content", "application/json", "examples", "1"}),
            parsed(R"({"summary": "Wide", "value": {"status": 0}, "x-audit": {"uid": 0},
                       "x-request": {"method": "POST", "target": "/v1/gate/open",
                                     "body": {"width": 2}}})"));
}

TEST_F(OpenApiDocument, NamesSchemasByTheirPlugIn) {
  describe(R"({"schemas": {"Hinge": {"type": "object"}}})");
  EXPECT_EQ(at(document(), {"components", "schemas", "gate.Hinge", "type"}), Value("object"));
}

TEST_F(OpenApiDocument, AddsResponsesOfAnOperation) {
  describe(R"({"operations": {"open": {"responses": {"412": {"description": "Stuck."}}}}})");
  EXPECT_EQ(at(open(), {"responses", "412", "description"}), Value("Stuck."));
  EXPECT_THAT(*at(open(), {"responses", "500", "$ref"}).string(), HasSubstr("/500"));
}

TEST_F(OpenApiDocument, TakesDescriptionsOfAnyShape) {
  for (const char* text :
       {R"({"operations": 7, "schemas": [], "about": {}})", R"({"operations": {"open": "wide"}})",
        R"({"operations": {"open": {"request": 1, "reply": [], "summary": 2, "examples": [3, {}],
            "responses": "none"}}})"}) {
    describe(text);
    EXPECT_EQ(at(open(), {"operationId"}), Value("gate.open")) << text;
  }
}

}  // namespace
}  // namespace paddock::openapi
