#include "exports/exports_line.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <utility>

#include "base/text.h"
#include "exports/export_options.h"
#include "exports/exports_entry.h"

namespace paddock {

namespace {

constexpr std::string_view kEverybody = "*";
constexpr std::string_view kNeverInHost = "()\"#\\,";
constexpr std::string_view kNeverInOption = "()\"\\,";

bool isControlOrBlank(char character) {
  return static_cast<unsigned char>(character) <= ' ' || character == '\x7F';
}

bool hasControlOrBlank(std::string_view text) {
  return std::any_of(text.begin(), text.end(), isControlOrBlank);
}

std::optional<std::string> pathFault(std::string_view path) {
  if (path.empty()) return "the export has no path";
  if (path.front() != '/') return "the path is not absolute";
  if (path.find('\0') != std::string_view::npos) return "the path holds a NUL";
  if (!isValidUtf8(path)) return "the path is not UTF-8";
  return std::nullopt;
}

std::optional<std::string> hostFault(std::string_view host) {
  if (host.empty()) return "a client has no host";
  if (host.front() == '-') return "a host begins with a dash";
  if (hasControlOrBlank(host)) return "a host holds white space or a control character";
  if (host.find_first_of(kNeverInHost) != std::string_view::npos) {
    return "a host holds a bracket, a quote, a comma, a backslash or '#'";
  }
  if (!isValidUtf8(host)) return "a host is not UTF-8";
  return std::nullopt;
}

std::optional<std::string> optionFault(std::string_view option) {
  if (option.empty()) return "an option is empty";
  if (hasControlOrBlank(option)) return "an option holds white space or a control character";
  if (option.find_first_of(kNeverInOption) != std::string_view::npos) {
    return "an option holds a bracket, a quote, a comma or a backslash";
  }
  if (!isValidUtf8(option)) return "an option is not UTF-8";
  return std::nullopt;
}

// What no line can say, whatever options there are.
std::optional<std::string> syntaxFault(const ExportsLine& line) {
  if (auto fault = pathFault(line.path)) return fault;
  if (line.clients.empty()) return "the export has no client";
  for (const NFSExportClient& client : line.clients) {
    if (auto fault = hostFault(client.host)) return fault;
    for (const std::string& option : client.options) {
      if (auto fault = optionFault(option)) return fault;
    }
  }
  return std::nullopt;
}

// A client as it stands on a line, its options as lists; gone when the next word is read.
struct ClientWord {
  std::string_view host;
  std::string_view defaults;
  std::string_view options;
};

// Calls `visit` with each option of a list; a comma at its end is allowed. False when one of them
// is empty, and when `visit` says so.
template <typename Visitor>
bool forEachOption(std::string_view list, Visitor visit) {
  while (!list.empty()) {
    const std::size_t comma = std::min(list.find(','), list.size());
    if (comma == 0 || !visit(list.substr(0, comma))) return false;
    list.remove_prefix(std::min(comma + 1, list.size()));
  }
  return true;
}

bool isOptionList(std::string_view list) {
  return forEachOption(list, [](std::string_view option) { return !optionFault(option); });
}

// HOST, HOST(OPTIONS) or (OPTIONS).
bool readClient(std::string_view word, ClientWord& client) {
  const std::size_t open = word.find('(');
  client.host = open == 0 ? kEverybody : word.substr(0, open);
  client.options = {};
  if (open != std::string_view::npos) {
    const std::string_view list = word.substr(open + 1);
    if (list.empty() || list.find(')') != list.size() - 1) return false;
    client.options = list.substr(0, list.size() - 1);
  }
  return !hostFault(client.host) && isOptionList(client.options);
}

// Calls `visit` with each client.
template <typename Visitor>
bool readClients(ExportsTokens& tokens, Visitor visit) {
  std::string defaults;
  std::string word;
  ClientWord client;
  auto next = tokens.next(kClientLimit, word);
  do {
    if (next == ExportsTokens::Next::word && word.front() == '-') {
      const std::string_view list = std::string_view(word).substr(1);
      if (!isOptionList(list)) return false;
      defaults += list;
      if (!list.empty() && list.back() != ',') defaults += ',';
      next = tokens.next(kClientLimit, word);
    }
    if (next == ExportsTokens::Next::fault) return false;
    client.defaults = defaults;
    if (next == ExportsTokens::Next::end) {
      client.host = kEverybody;
      client.options = {};
      visit(client);
      return true;
    }
    if (!readClient(word, client)) return false;
    visit(client);
    next = tokens.next(kClientLimit, word);
  } while (next == ExportsTokens::Next::word);
  return next == ExportsTokens::Next::end;
}

// Reads the path, and calls `visit` with each client. False when the line is no export; what was
// read until then is of no use.
template <typename Visitor>
bool readLine(std::string_view line, std::string& path, Visitor visit) {
  if (line.empty()) return false;
  std::string joined;
  if (line.back() == '\\' || line.find('\n') != std::string_view::npos) {
    joined = std::string(line) + '\n';
    if (exportsEntryLength(joined) != joined.size()) return false;
    joined = joinedExportsEntry(joined);
    if (joined.ends_with('\n')) joined.pop_back();
    line = joined;
  }
  ExportsTokens tokens(line);
  return tokens.next(kExportPathLimit, path) == ExportsTokens::Next::word && !pathFault(path) &&
         readClients(tokens, visit);
}

// Whether the host is no network, or one that exportfs takes: ADDRESS/PREFIX or ADDRESS/MASK.
bool isHostOrNetwork(const std::string& host) {
  // Hosts that say a flavour of security, as exports(5) had it before "sec=".
  if (host == "gss/krb5" || host == "gss/krb5i" || host == "gss/krb5p") return true;
  const std::size_t slash = host.find('/');
  if (slash == std::string::npos) return true;
  const std::string address = host.substr(0, slash);
  const std::string mask = host.substr(slash + 1);
  std::array<unsigned char, sizeof(in6_addr)> binary{};
  const bool isIpv4 = inet_pton(AF_INET, address.c_str(), binary.data()) == 1;
  if (!isIpv4 && inet_pton(AF_INET6, address.c_str(), binary.data()) != 1) return false;
  if (isIpv4 && inet_pton(AF_INET, mask.c_str(), binary.data()) == 1) return true;
  const auto prefix = parseInteger(mask);
  return prefix && *prefix >= 0 && *prefix <= (isIpv4 ? 32 : 128);
}

// What exportfs would not take.
std::optional<std::string> clientsFault(const std::vector<NFSExportClient>& clients) {
  std::vector<std::string_view> hosts;
  for (const NFSExportClient& client : clients) {
    hosts.emplace_back(client.host);
    if (!isHostOrNetwork(client.host)) return "\"" + client.host + "\" is no network";
    for (const std::string& option : client.options) {
      if (!isExportOption(option)) return "\"" + option + "\" is no export option";
    }
  }
  std::sort(hosts.begin(), hosts.end());
  const auto twice = std::adjacent_find(hosts.begin(), hosts.end());
  if (twice != hosts.end()) return "the client " + std::string(*twice) + " is named twice";
  return std::nullopt;
}

void appendEscaped(char character, std::string& text) {
  const auto byte = static_cast<unsigned char>(character);
  text += '\\';
  text += static_cast<char>('0' + (byte >> 6U));
  text += static_cast<char>('0' + ((byte >> 3U) & 7U));
  text += static_cast<char>('0' + (byte & 7U));
}

std::string escapedPath(const std::string& path) {
  std::string escaped;
  bool afterBackslash = false;
  for (const char character : path) {
    // Digits after a backslash would make an escape of it when the reader comes to them.
    const bool digit = character >= '0' && character <= '9';
    afterBackslash = character == '\\' || (afterBackslash && digit);
    if (afterBackslash || isControlOrBlank(character) || character == '"' || character == '#') {
      appendEscaped(character, escaped);
    } else {
      escaped += character;
    }
  }
  return escaped;
}

}  // namespace

std::optional<ExportsLine> readExportsLine(std::string_view line) {
  ExportsLine read;
  const auto keep = [&read](const ClientWord& client) {
    NFSExportClient& kept = read.clients.emplace_back();
    kept.host = client.host;
    const auto keepOption = [&kept](std::string_view option) {
      kept.options.emplace_back(option);
      return true;
    };
    forEachOption(client.defaults, keepOption);
    forEachOption(client.options, keepOption);
  };
  if (!readLine(line, read.path, keep)) return std::nullopt;
  return read;
}

std::optional<std::string> readExportsPath(std::string_view line) {
  std::string path;
  if (!readLine(line, path, [](const ClientWord&) {})) return std::nullopt;
  return path;
}

std::string writeExportsLine(const ExportsLine& line) {
  std::string text = escapedPath(line.path);
  for (const NFSExportClient& client : line.clients) {
    text += ' ';
    text += client.host;
    if (client.options.empty()) continue;
    char separator = '(';
    for (const std::string& option : client.options) {
      text += separator;
      text += option;
      separator = ',';
    }
    text += ')';
  }
  return text;
}

std::optional<std::string> exportsLineFault(const ExportsLine& line) {
  if (auto fault = syntaxFault(line)) return fault;
  if (auto fault = clientsFault(line.clients)) return fault;
  // What is left is length, which the reader counts in its own way.
  if (readExportsLine(writeExportsLine(line)) != line) {
    return "the path or a client is longer than the NFS server reads";
  }
  return std::nullopt;
}

}  // namespace paddock
