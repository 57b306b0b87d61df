#include "paddock/request_conditions.h"

#include <utility>

namespace paddock {

namespace {

thread_local RequestConditions* tConditions = nullptr;

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kWeak = "W/";

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// Removes one quoted entity tag from the front of the list; a weak one is returned without its
// mark, with `weak` set. Empty when there is none.
std::string_view takeTag(std::string_view& list, bool& weak) {
  weak = list.starts_with(kWeak);
  const std::string_view rest = weak ? list.substr(kWeak.size()) : list;
  if (!rest.starts_with('"')) return {};
  const std::size_t end = rest.find('"', 1);
  if (end == std::string_view::npos) return {};
  list = rest.substr(end + 1);
  return rest.substr(0, end + 1);
}

// Whether the list holds `tag`, by the strong comparison. A comma may stand inside of a tag.
bool holds(std::string_view list, std::string_view tag) {
  bool found = false;
  for (;;) {
    while (list.starts_with(' ') || list.starts_with('\t') || list.starts_with(',')) {
      list.remove_prefix(1);
    }
    if (list.empty()) return found;
    bool weak = false;
    const std::string_view one = takeTag(list, weak);
    list = withoutBlanks(list);
    if (one.empty() || (!list.empty() && !list.starts_with(','))) return false;
    found = found || (!weak && one == tag);
  }
}

}  // namespace

PreconditionFailed::PreconditionFailed(const std::string& text) : std::runtime_error(text) {}

// Here, so that each type has one home.
PreconditionFailed::~PreconditionFailed() = default;

OperationBusy::OperationBusy(const std::string& text) : std::runtime_error(text) {}
OperationBusy::~OperationBusy() = default;

RequestConditions::RequestConditions(std::optional<std::string> ifMatch, Digest digest)
    : ifMatch_(std::move(ifMatch)), digest_(std::move(digest)) {}

std::string RequestConditions::tagOf(std::string_view state) const {
  return "\"" + digest_(state) + "\"";
}

void RequestConditions::require(const std::optional<std::string>& state, bool exists) const {
  if (!ifMatch_) return;
  const std::string_view wanted = withoutBlanks(*ifMatch_);
  if (wanted == "*" ? exists : state && holds(wanted, tagOf(*state))) return;
  throw PreconditionFailed(
      "If-Match names another state than the present one; nothing was changed");
}

void RequestConditions::setReplyState(const std::optional<std::string>& state) {
  replyTag_ = state ? tagOf(*state) : std::string();
}

RequestConditions* currentRequestConditions() { return tConditions; }

RequestConditionsScope::RequestConditionsScope(RequestConditions* conditions)
    : previous_(std::exchange(tConditions, conditions)) {}

RequestConditionsScope::~RequestConditionsScope() { tConditions = previous_; }

}  // namespace paddock
