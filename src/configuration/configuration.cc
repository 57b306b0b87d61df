#include "configuration/configuration.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cerrno>
#include <set>

#include "base/trusted_path.h"
#include "configuration/configuration_schema.h"

namespace paddock {
namespace {

constexpr std::size_t kMaximumFile = 1U << 20U;

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

// Walks the tables of one file against the schema and builds the tree.
class Reader {
 public:
  explicit Reader(std::vector<ConfigurationProblem>& problems) : problems_(problems) {}

  Dictionary read(const toml::table& root) {
    Dictionary tree;
    for (const auto& [key, node] : root) {
      const std::string_view table = key.str();
      if (!isConfigurationTable(table)) {
        report(key.source(), "unknown key " + quoted(table));
      } else if (isConfigurationTableArray(table)) {
        tree.set(std::string(table), readTableArray(key, node));
      } else if (const toml::table* keys = node.as_table()) {
        tree.set(std::string(table), readTable(table, *keys));
      } else {
        report(node.source(), quoted(table) + " must be a table, [" + std::string(table) + "]");
      }
    }
    return tree;
  }

 private:
  void report(const toml::source_region& where, std::string text) {
    problems_.push_back({where.begin.line, std::move(text)});
  }

  Dictionary readTable(std::string_view table, const toml::table& keys) {
    Dictionary result;
    for (const auto& [key, node] : keys) {
      const ConfigurationKey* known = findConfigurationKey(table, key.str());
      const std::string name = std::string(table) + "." + std::string(key.str());
      if (known == nullptr) {
        report(key.source(), "unknown key " + quoted(name));
      } else {
        result.set(std::string(key.str()), readValue(*known, name, node));
      }
    }
    return result;
  }

  Value readTableArray(const toml::key& key, const toml::node& node) {
    const std::string name(key.str());
    const toml::array* tables = node.as_array();
    Array result;
    std::set<std::string> names;
    if (tables == nullptr || !tables->is_homogeneous(toml::node_type::table)) {
      report(node.source(), quoted(name) + " must be an array of tables, [[" + name + "]]");
      return result;
    }
    for (const toml::node& element : *tables) {
      const toml::table& table = *element.as_table();
      Dictionary entry = readTable(name, table);
      reportMissing(name, table);
      if (std::string wrong = contradictionIn(name, entry); !wrong.empty())
        report(element.source(), std::move(wrong));
      if (const std::string* own = entry.string("name"); own && !names.insert(*own).second) {
        report(element.source(), "another [[" + name + "]] has the name " + quoted(*own));
      }
      result.emplace_back(std::move(entry));
    }
    return result;
  }

  void reportMissing(const std::string& name, const toml::table& table) {
    for (const std::string_view key : requiredConfigurationKeys(name)) {
      if (!table.contains(key)) report(table.source(), "[[" + name + "]] has no " + quoted(key));
    }
  }

  Value readValue(const ConfigurationKey& key, const std::string& name, const toml::node& node) {
    switch (key.kind) {
      case KeyKind::text:
        if (node.is_string()) return readText(key, name, node);
        break;
      case KeyKind::integer:
        if (node.is_integer()) return readNumber(key, name, node);
        break;
      case KeyKind::boolean:
        if (const auto boolean = node.value_exact<bool>()) return *boolean;
        break;
      case KeyKind::textArray:
      case KeyKind::command:
        if (node.is_array()) return readTexts(key, name, *node.as_array());
        break;
      case KeyKind::booleanOrPath:
        if (const auto boolean = node.value_exact<bool>()) return *boolean;
        if (node.is_string()) return readText(key, name, node);
        break;
    }
    report(node.source(), quoted(name) + " must be " + std::string(describe(key.kind)));
    return {};
  }

  static std::string_view describe(KeyKind kind) {
    switch (kind) {
      case KeyKind::text:
        return "a string";
      case KeyKind::integer:
        return "an integer";
      case KeyKind::boolean:
        return "true or false";
      case KeyKind::textArray:
      case KeyKind::command:
        return "an array of strings";
      case KeyKind::booleanOrPath:
        break;
    }
    return "true, false or a path";
  }

  Value readText(const ConfigurationKey& key, const std::string& name, const toml::node& node) {
    std::string text = node.as_string()->get();
    const std::string_view wrong = key.check != nullptr ? key.check(text) : std::string_view();
    if (text.find('\0') != std::string::npos) {
      report(node.source(), quoted(name) + " must not hold a NUL");
    } else if (!wrong.empty()) {
      report(node.source(), quoted(name) + " " + std::string(wrong));
    }
    return text;
  }

  Value readNumber(const ConfigurationKey& key, const std::string& name, const toml::node& node) {
    const std::int64_t number = node.as_integer()->get();
    if (number < key.minimum || number > key.maximum) {
      report(node.source(), quoted(name) + " must be from " + std::to_string(key.minimum) + " to " +
                                std::to_string(key.maximum));
    }
    return number;
  }

  Value readTexts(const ConfigurationKey& key, const std::string& name, const toml::array& texts) {
    Array result;
    for (const toml::node& element : texts) {
      if (!element.is_string()) {
        report(element.source(), quoted(name) + " must be an array of strings");
        return result;
      }
      result.push_back(readText(key, name, element));
    }
    if (key.kind == KeyKind::command && !result.empty() && !isAbsolute(*result.front().string())) {
      report(texts.source(), quoted(name) + " must begin with an absolute path");
    }
    return result;
  }

  static bool isAbsolute(const std::string& path) { return !path.empty() && path.front() == '/'; }

  std::vector<ConfigurationProblem>& problems_;
};

void setOwnValues(Configuration& configuration) {
  const Dictionary& tree = configuration.tree;
  if (const Dictionary* access = tree.dictionary("access")) {
    if (const std::string* group = access->string("admin_group")) configuration.adminGroup = *group;
    if (const std::string* group = access->string("view_group")) configuration.viewGroup = *group;
  }
  if (const Dictionary* audit = tree.dictionary("audit")) {
    configuration.auditRequired = audit->boolean("required").value_or(false);
  }
  if (const Dictionary* limits = tree.dictionary("limits")) {
    const auto number = [limits](const char* key, auto& target) {
      if (const auto value = limits->integer(key)) {
        target = static_cast<std::remove_reference_t<decltype(target)>>(*value);
      }
    };
    number("body_bytes", configuration.bodyBytes);
    number("reading_body_bytes", configuration.readingBodyBytes);
    number("body_values", configuration.bodyValues);
    number("memory_bytes", configuration.memoryBytes);
    number("connections", configuration.connections);
    number("connections_per_user", configuration.connectionsPerUser);
    number("idle_seconds", configuration.idleSeconds);
    number("program_seconds", configuration.programSeconds);
  }
}

}  // namespace

Configuration parseConfiguration(std::string_view text,
                                 std::vector<ConfigurationProblem>& problems) {
  Configuration configuration;
  try {
    configuration.tree = Reader(problems).read(toml::parse(text));
  } catch (const toml::parse_error& error) {
    problems.push_back({error.source().begin.line, std::string(error.description())});
  }
  std::stable_sort(problems.begin(), problems.end(),
                   [](const auto& left, const auto& right) { return left.line < right.line; });
  if (problems.empty()) setOwnValues(configuration);
  return configuration;
}

Configuration readConfiguration(const std::string& path,
                                std::vector<ConfigurationProblem>& problems) {
  try {
    const auto text = readTrustedFile(path, kMaximumFile);
    return text ? parseConfiguration(*text, problems) : Configuration();
  } catch (const UntrustedPath& untrusted) {
    problems.push_back({0, std::string("not read, because ") + untrusted.what()});
    return {};
  } catch (const std::exception& error) {
    problems.push_back({0, error.what()});
    return {};
  }
}

Dictionary readInstalledConfiguration(const std::string& root) {
  const std::string path = root + "/etc/paddock/paddockd.toml";
  std::vector<ConfigurationProblem> problems;
  Dictionary tree = readConfiguration(path, problems).tree;
  if (!problems.empty()) throw std::runtime_error(describeProblem(path, problems.front()));
  return tree;
}

std::string describeProblem(const std::string& path, const ConfigurationProblem& problem) {
  if (problem.line == 0) return path + ": " + problem.text;
  return path + ":" + std::to_string(problem.line) + ": " + problem.text;
}

}  // namespace paddock
