#include "openapi/openapi_document.h"

#include <initializer_list>
#include <stdexcept>
#include <utility>

#include "wire/json.h"

extern "C" const char* paddock_openapi_skeleton() noexcept;

namespace paddock::openapi {

namespace {

constexpr const char* kDaemon = "paddockd";
constexpr const char* kAdministrators = "administrators";
constexpr const char* kViewers = "viewers";

Dictionary skeleton() {
  std::string problem = "it is no dictionary";
  auto value = wire::parseJson(paddock_openapi_skeleton(), problem);
  if (!value || value->dictionary() == nullptr) throw std::logic_error("skeleton.json: " + problem);
  return std::move(*value->dictionary());
}

Dictionary partOf(const Dictionary& whole, const std::string& key) {
  const Dictionary* part = whole.dictionary(key);
  return part != nullptr ? *part : Dictionary();
}

std::string textOf(const Dictionary& whole, const char* key, const std::string& otherwise) {
  const std::string* text = whole.string(key);
  return text != nullptr ? *text : otherwise;
}

Dictionary referenceTo(const std::string& component) {
  return {{"$ref", "#/components/" + component}};
}

// What a description leaves out because it is the same nearly everywhere.
Dictionary schemaOf(const Dictionary& description, const char* key) {
  Dictionary schema = partOf(description, key);
  if (!schema.contains("type") && !schema.contains("$ref")) schema.set("type", "object");
  return schema;
}

// A body comes in two forms; its examples are in the first.
Dictionary contentOf(Dictionary schema, Dictionary examples) {
  Dictionary json{{"schema", schema}};
  if (!examples.empty()) json.set("examples", std::move(examples));
  return {{"application/json", std::move(json)},
          {"application/x-plist", Dictionary{{"schema", std::move(schema)}}}};
}

// An endpoint, or an operation of a plug-in, on its way into the document.
class Described {
 public:
  Described(std::string path, const Dictionary& description)
      : path_(std::move(path)), description_(description) {
    if (const Array* examples = description.array("examples")) examples_ = *examples;
  }

  Dictionary endpoint() const {
    Dictionary operation =
        base(path_, kDaemon, textOf(description_, "rights", kAdministrators), false);
    operation.set("responses", responses("The answer.", {"403", "405", "503"}));
    return {{"get", std::move(operation)}};
  }

  Dictionary operation(const std::string& plugin, const std::string& name, bool changes) const {
    Dictionary operation =
        base(plugin + "." + name, plugin, changes ? kAdministrators : kViewers, changes);
    operation.set("requestBody",
                  Dictionary{{"required", true},
                             {"content", contentOf(schemaOf(description_, "request"),
                                                   examples([](const Dictionary& one) {
                                                     return partOf(one, "request");
                                                   }))}});
    operation.set("responses", responses("The operation ran, whatever its status.",
                                         {"400", "403", "404", "405", "413", "415", "500", "503"}));
    return {{"post", std::move(operation)}};
  }

 private:
  Dictionary base(const std::string& id, const std::string& tag, const std::string& rights,
                  bool isAudited) const {
    Dictionary operation{{"operationId", id},
                         {"tags", Array{tag}},
                         {"summary", textOf(description_, "summary", "Nobody describes it.")},
                         {"x-rights", rights},
                         {"x-audited", isAudited}};
    for (const auto& [from, to] :
         {std::pair{"description", "description"}, std::pair{"parameters", "parameters"},
          std::pair{"audit", "x-audit"}, std::pair{"statuses", "x-statuses"}}) {
      if (const Value* value = description_.find(from)) operation.set(to, *value);
    }
    return operation;
  }

  // Named by their number, from 1; `valueOf` gives what is shown of each.
  template <typename ValueOf>
  Dictionary examples(ValueOf valueOf) const {
    Dictionary named;
    for (const Value& value : examples_) {
      const Dictionary* one = value.dictionary();
      if (one == nullptr) continue;
      named.set(
          std::to_string(named.size() + 1),
          Dictionary{{"summary", textOf(*one, "summary", "An example")}, {"value", valueOf(*one)}});
    }
    return named;
  }

  // What was asked, and the audit line that it left, beside each.
  Dictionary answeredExamples() const {
    Dictionary named = examples([](const Dictionary& one) { return partOf(one, "reply"); });
    std::size_t number = 0;
    for (const Value& value : examples_) {
      const Dictionary* one = value.dictionary();
      if (one == nullptr) continue;
      Dictionary& example = *named.find(std::to_string(++number))->dictionary();
      const Dictionary* body = one->dictionary("request");
      Dictionary asked{{"method", body != nullptr ? "POST" : "GET"},
                       {"target", textOf(*one, "target", path_)}};
      if (body != nullptr) asked.set("body", *body);
      example.set("x-request", std::move(asked));
      if (const Dictionary* line = one->dictionary("audit")) example.set("x-audit", *line);
    }
    return named;
  }

  Dictionary responses(const char* done, std::initializer_list<const char*> failures) const {
    Dictionary all = partOf(description_, "responses");
    for (const char* status : failures)
      all.set(status, referenceTo("responses/" + std::string(status)));
    const Dictionary headers{{"X-Request-Id", referenceTo("headers/X-Request-Id")}};
    all.set("200", Dictionary{{"description", done},
                              {"headers", headers},
                              {"content",
                               contentOf(schemaOf(description_, "reply"), answeredExamples())}});
    return all;
  }

  std::string path_;
  const Dictionary& description_;
  Array examples_;
};

void addOperations(const DescribedPlugin& plugin, Dictionary& paths) {
  const Dictionary described = partOf(plugin.description, "operations");
  for (const auto& operation : plugin.operations) {
    const std::string path = "/v1/" + plugin.name + "/" + operation.name;
    const Dictionary description = partOf(described, operation.name);
    paths.set(
        path,
        Described(path, description).operation(plugin.name, operation.name, operation.changes));
  }
}

}  // namespace

Dictionary openApiDocument(const std::vector<DescribedPlugin>& plugins,
                           const std::vector<std::string>& endpoints, const std::string& version) {
  Dictionary document = skeleton();
  const Dictionary described = partOf(document, "paths");
  Dictionary components = partOf(document, "components");
  Dictionary schemas = partOf(components, "schemas");
  Dictionary paths;
  for (const std::string& path : endpoints) {
    const Dictionary description = partOf(described, path);
    paths.set(path, Described(path, description).endpoint());
  }
  Array tags{Dictionary{{"name", kDaemon}, {"description", "The daemon's own endpoints."}}};
  for (const DescribedPlugin& plugin : plugins) {
    tags.emplace_back(Dictionary{
        {"name", plugin.name}, {"description", textOf(plugin.description, "about", plugin.name)}});
    for (const auto& [name, schema] : partOf(plugin.description, "schemas"))
      schemas.set(plugin.name + "." + name, schema);
    addOperations(plugin, paths);
  }
  components.set("schemas", std::move(schemas));
  Dictionary info = partOf(document, "info");
  info.set("version", version);
  document.set("components", std::move(components));
  document.set("info", std::move(info));
  document.set("paths", std::move(paths));
  document.set("tags", std::move(tags));
  return document;
}

}  // namespace paddock::openapi
