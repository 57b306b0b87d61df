#include "base/text.h"
#include "base/value.h"
#include "effectiveprivs/explanation.h"
#include "wire/json.h"

namespace paddock::effectiveprivs {

namespace {

const char* yesOrNo(bool yes) { return yes ? "yes" : "no"; }

const char* wordOf(const ExplainedPermission& permission) {
  return permission.isDoubted ? "?" : yesOrNo(permission.granted);
}

std::string userOf(const Explanation& explanation) {
  return explanation.user.empty() ? "uid " + std::to_string(explanation.uid) : explanation.user;
}

std::string listText(const ObjectDescription& object) {
  if (!object.entries) return "no list";
  const std::size_t count = *object.entries;
  return (object.isComplete ? "a complete list of " : "a list of ") + std::to_string(count) +
         (count == 1 ? " entry" : " entries");
}

std::string headText(const Explanation& explanation) {
  const std::string who =
      explanation.user.empty()
          ? "uid " + std::to_string(explanation.uid) +
                (explanation.leftOut.empty() ? ", which nobody has,"
                                             : ", whom no node that answers knows,")
          : explanation.user + " (uid " + std::to_string(explanation.uid) + ")";
  return printable(who + " on ") + objectText(explanation.object);
}

// smbd goes by what the list says of owner and mode, and lets its owner change it.
std::string staleText(const ObjectDescription& object) {
  if (object.staleTail.empty()) return {};
  const std::string change =
      object.formerOwner.empty() ? "" : ", and " + object.formerOwner + " may change it there";
  return printable("The list still has " + object.staleTail +
                   ", which were changed behind it: SMB servers go by these" + change +
                   ". To bring it up to date: keelhouse privs set " + object.path + " --mode " +
                   object.mode) +
         "\n";
}

std::string kernelText(const Explanation& explanation) {
  if (explanation.kernelDisagrees.empty() && explanation.barrier.empty() &&
      explanation.kernelBitsApart.empty())
    return {};
  std::string text =
      "What local programs and NFS clients see differs, by the kernel's own rules:\n";
  if (!explanation.barrier.empty())
    text +=
        "  it does not let the user through the folder " + printable(explanation.barrier) + "\n";
  if (!explanation.kernelBitsApart.empty())
    text += "  the groups of the host give " + explanation.kernelBitsApart +
            ", but none of them all of it: who wants all at once is refused\n";
  std::vector<std::vector<std::string>> rows;
  for (const Disagreement& one : explanation.kernelDisagrees)
    rows.push_back({"", yesOrNo(one.kernel), one.name, printable(one.why)});
  return text + formatTable(rows);
}

Value permissionValue(const ExplainedPermission& permission) {
  Dictionary value{{"bit", permission.permission},
                   {"name", permission.name},
                   {"granted", permission.granted},
                   {"sure", !permission.isDoubted},
                   {"by", permission.by}};
  if (permission.entry) value.set("entry", static_cast<std::uint64_t>(*permission.entry));
  if (!permission.principal.empty()) value.set("principal", permission.principal);
  value.set("through", Array(permission.through.begin(), permission.through.end()));
  value.set("text", permission.text);
  return value;
}

Value disagreementValue(const Disagreement& disagreement) {
  return Dictionary{{"bit", disagreement.permission},
                    {"name", disagreement.name},
                    {"list", disagreement.list},
                    {"kernel", disagreement.kernel},
                    {"why", disagreement.why}};
}

template <typename Items, typename Function>
Array arrayOf(const Items& items, Function function) {
  Array array;
  for (const auto& item : items) array.emplace_back(function(item));
  return array;
}

}  // namespace

std::string objectText(const ObjectDescription& object) {
  return printable(object.path + ": owner " + object.owner + ", group " + object.group + ", mode " +
                   object.mode + ", " + listText(object)) +
         "\n" + staleText(object);
}

std::string answerText(const Explanation& explanation) {
  return answerLine(explanation.answer, userOf(explanation)) + "\n" +
         doorsText(explanation.answer) + leftOutText(explanation.leftOut);
}

std::string explanationText(const Explanation& explanation) {
  std::vector<std::vector<std::string>> rows;
  for (const ExplainedPermission& one : explanation.permissions)
    rows.push_back({"", wordOf(one), one.name, printable(one.text)});
  return answerText(explanation) + std::to_string(explanation.bitmap) + "\n" +
         headText(explanation) + formatTable(rows) + kernelText(explanation);
}

std::string explanationJson(const Explanation& explanation) {
  const ObjectDescription& object = explanation.object;
  Dictionary value{{"answer", answerValue(explanation.answer, userOf(explanation))},
                   {"doors", doorsValue(explanation.answer)},
                   {"bitmap", explanation.bitmap},
                   {"path", object.path},
                   {"uid", explanation.uid},
                   {"known", !explanation.user.empty()},
                   {"folder", object.isFolder},
                   {"owner", object.owner},
                   {"group", object.group},
                   {"mode", object.mode}};
  if (!explanation.user.empty()) value.set("user", explanation.user);
  if (object.entries) {
    value.set("entries", static_cast<std::uint64_t>(*object.entries));
    value.set("complete", object.isComplete);
  }
  value.set("bits", arrayOf(explanation.permissions, permissionValue));
  value.set("kernelDisagrees", arrayOf(explanation.kernelDisagrees, disagreementValue));
  if (!explanation.barrier.empty()) value.set("barrier", explanation.barrier);
  if (!explanation.kernelBitsApart.empty()) value.set("kernelApart", explanation.kernelBitsApart);
  if (!explanation.leftOut.empty()) value.set("nodesLeftOut", leftOutValue(explanation.leftOut));
  return wire::writeJson(value);
}

}  // namespace paddock::effectiveprivs
