// A directory whose calls are asked of rules (call_rules.h), and so are those of the sessions,
// nodes and records that it hands out. A failure is a DirectoryError, of the rule's number when it
// gives one; authenticateName returns such a number. A failing `removeRecord` removes nothing.
//
// Calls are named after their interface: "directory.openLocal", "session.findNode",
// "node.findRecord", "record.setAttribute" ... Operations in a trace, with their subject (detail):
//   openLocal, localNode, searchNode, findNode: the path
//   findRecordsOfTypes: the value (the attribute); findRecordNames, findRecord, newRecord: the
//   record's name (its type); authenticateName: the user ("authOnly" or "keep"); getNodeAttribute:
//   the node's path (the attribute)
//   getAllAttributes, getAllAttributesAndValues, getAttribute, getAttributeFirstValue,
//   setAttribute, removeAttribute, removeRecord, setAttributesAndValues: the record's name (the
//   attribute)
#pragma once

#include "platform/directory.h"
#include "platform/testing/call_rules.h"

namespace paddock {

class ForwardingDirectory final : public Forwarder<DirectoryService> {
 public:
  using Forwarder::Forwarder;
  std::unique_ptr<DirectorySession> openLocal() override;
};

}  // namespace paddock
