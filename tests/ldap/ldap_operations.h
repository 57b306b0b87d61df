// What is done to records of a node, for tests that disturb it at every step.
#pragma once

#include <string>
#include <vector>

#include "ldap/ldap_fixture.h"

namespace paddock {

struct Operation {
  const char* name;
  void (*prepare)(DirectoryNode& node);
  void (*run)(DirectoryNode& node);
  bool (*isDone)(DirectoryNode& node);
  bool (*isUndone)(DirectoryNode& node);

  // A server whose answer is no longer awaited may finish between two checks.
  bool isWhollyDoneOrNot(DirectoryNode& node) const {
    return isDone(node) || isUndone(node) || isDone(node);
  }
};

inline std::string valueOf(DirectoryNode& node, const std::string& name,
                           const std::string& attribute) {
  const auto record = node.findRecord(name, kShares);
  return record ? record->getAttributeFirstValue(attribute).value_or("") : "no record";
}

inline std::vector<Operation> operationsOnRecords() {
  return {
      {"Create", [](DirectoryNode&) {},
       [](DirectoryNode& node) { node.newRecord("Docs", kShares); },
       [](DirectoryNode& node) { return allNames(node) == std::vector<std::string>{"Docs"}; },
       [](DirectoryNode& node) { return allNames(node).empty(); }},
      {"Change",
       [](DirectoryNode& node) { node.newRecord("Docs", kShares)->setAttribute("a", "1"); },
       [](DirectoryNode& node) {
         node.findRecord("Docs", kShares)
             ->setAttributesAndValues({{"a", "2"}, {"b", Array{"x", "y"}}});
       },
       [](DirectoryNode& node) {
         return valueOf(node, "Docs", "a") == "2" && valueOf(node, "Docs", "b") == "x";
       },
       [](DirectoryNode& node) {
         return valueOf(node, "Docs", "a") == "1" && valueOf(node, "Docs", "b").empty();
       }},
      {"Rename",
       [](DirectoryNode& node) { node.newRecord("Docs", kShares)->setAttribute("a", "1"); },
       [](DirectoryNode& node) {
         node.findRecord("Docs", kShares)
             ->setAttributesAndValues({{"a", "2"}, {schema::kRecordName, "Papers"}});
       },
       [](DirectoryNode& node) {
         return allNames(node) == std::vector<std::string>{"Papers"} &&
                valueOf(node, "Papers", "a") == "2";
       },
       [](DirectoryNode& node) {
         return allNames(node) == std::vector<std::string>{"Docs"} &&
                valueOf(node, "Docs", "a") == "1";
       }},
      {"Remove", [](DirectoryNode& node) { node.newRecord("Docs", kShares); },
       [](DirectoryNode& node) {
         if (const auto record = node.findRecord("Docs", kShares)) record->removeRecord();
       },
       [](DirectoryNode& node) { return allNames(node).empty(); },
       [](DirectoryNode& node) { return allNames(node) == std::vector<std::string>{"Docs"}; }},
      {"Read", [](DirectoryNode& node) { node.newRecord("Docs", kShares)->setAttribute("a", "1"); },
       [](DirectoryNode& node) { EXPECT_EQ(valueOf(node, "Docs", "a"), "1"); },
       [](DirectoryNode& node) { return valueOf(node, "Docs", "a") == "1"; },
       [](DirectoryNode& node) { return valueOf(node, "Docs", "a") == "1"; }},
  };
}

inline void removeAll(DirectoryNode& node) {
  for (const std::string& name : allNames(node)) node.findRecord(name, kShares)->removeRecord();
}

}  // namespace paddock
