#include "keelhouse/share/nfs_client.h"

#include <string_view>

#include "base/text.h"
#include "keelhouse/core/failure.h"

namespace paddock::keelhouse {

namespace {

Array splitOptions(std::string_view text) {
  Array options;
  for (std::size_t start = 0; !text.empty() && start <= text.size();) {
    const std::size_t end = std::min(text.find(',', start), text.size());
    options.emplace_back(text.substr(start, end - start));
    start = end + 1;
  }
  return options;
}

bool holdsUnwritable(std::string_view text) {
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte <= 0x20 || byte == 0x7F) return true;
    if (std::string_view("()\"#\\").find(character) != std::string_view::npos) return true;
  }
  return !isValidUtf8(text);
}

bool anyEmpty(const Array& options) {
  for (const Value& option : options) {
    if (option.string()->empty()) return true;
  }
  return false;
}

}  // namespace

Dictionary parseNfsClient(const std::string& text) {
  const auto refuse = [&text] {
    return usageFailure("\"" + text + "\" is no NFS client: write HOST or HOST(OPTION,OPTION)");
  };
  const std::size_t bracket = text.find('(');
  const std::string host = text.substr(0, bracket);
  std::string options;
  if (bracket != std::string::npos) {
    if (!text.ends_with(')')) throw refuse();
    options = text.substr(bracket + 1, text.size() - bracket - 2);
  }
  if (host.empty() || holdsUnwritable(host) || holdsUnwritable(options)) throw refuse();
  Array list = splitOptions(options);
  if (anyEmpty(list)) throw refuse();
  return {{"host", host}, {"options", std::move(list)}};
}

std::string formatNfsClient(const Dictionary& client) {
  const std::string* host = client.string("host");
  std::string text = host != nullptr ? *host : "";
  std::string options;
  if (const Array* list = client.array("options")) {
    for (const Value& option : *list) {
      if (option.string() == nullptr) continue;
      options += (options.empty() ? "" : ",") + *option.string();
    }
  }
  return options.empty() ? text : text + "(" + options + ")";
}

}  // namespace paddock::keelhouse
