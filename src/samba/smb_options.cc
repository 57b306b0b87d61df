#include "samba/smb_options.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <tuple>

#include "base/text.h"
#include "samba/samba_text.h"

namespace paddock::samba {

namespace {

constexpr const char* kComment = "dsAttrTypeNative:paddock_smb_comment";
constexpr const char* kAllowHosts = "dsAttrTypeNative:paddock_smb_allow_hosts";
constexpr const char* kOptions = "dsAttrTypeNative:paddock_smb_options";

struct Flag {
  bool SmbOptions::*member;
  const char* attribute;
  const char* key;
};
constexpr Flag kFlags[] = {
    {&SmbOptions::readOnly, "dsAttrTypeNative:paddock_smb_read_only", "readOnly"},
    {&SmbOptions::guest, "dsAttrTypeNative:paddock_smb_guest", "guest"},
    {&SmbOptions::hidden, "dsAttrTypeNative:paddock_smb_hidden", "hidden"},
    {&SmbOptions::recycle, "dsAttrTypeNative:paddock_smb_recycle", "recycle"},
};

// A bin for each user below one that everybody may make theirs in; what was deleted twice is kept
// twice, at its place.
constexpr std::string_view kRecycleLines =
    "    vfs objects = recycle acl_xattr\n"
    "    recycle:repository = .recycle/%U\n"
    "    recycle:directory_mode = 1777\n"
    "    recycle:subdir_mode = 0700\n"
    "    recycle:keeptree = yes\n"
    "    recycle:versions = yes\n";

std::string quoted(std::string_view text) { return '"' + std::string(text) + '"'; }

bool isAddress(int family, const std::string& text) {
  std::array<unsigned char, sizeof(in6_addr)> address{};
  return ::inet_pton(family, text.c_str(), address.data()) == 1;
}

bool isMask(const std::string& mask, std::int64_t longest) {
  const auto bits = parseInteger(mask);
  const bool isPlain = !mask.empty() && mask.front() >= '0' && mask.front() <= '9';
  return isPlain && bits && *bits <= longest;
}

bool isNetwork(const std::string& text) {
  constexpr std::int64_t kBitsOfIpv4 = 32;
  constexpr std::int64_t kBitsOfIpv6 = 128;
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos) return false;
  const std::string address = text.substr(0, slash);
  const std::string mask = text.substr(slash + 1);
  if (isAddress(AF_INET, address)) return isMask(mask, kBitsOfIpv4) || isAddress(AF_INET, mask);
  return isAddress(AF_INET6, address) && isMask(mask, kBitsOfIpv6);
}

bool holdsOnly(std::string_view text, std::string_view more) {
  return std::all_of(text.begin(), text.end(), [more](char letter) {
    const bool isAlphanumeric = (letter >= '0' && letter <= '9') ||
                                (letter >= 'a' && letter <= 'z') ||
                                (letter >= 'A' && letter <= 'Z');
    return isAlphanumeric || more.find(letter) != std::string_view::npos;
  });
}

bool isNumeric(std::string_view text) {
  return text.find_first_not_of("0123456789.") == std::string_view::npos;
}

// "192.168.": one to three numbers, each with a dot.
bool isBeginningOfAddress(const std::string& text) {
  if (!text.ends_with('.') || !isNumeric(text)) return false;
  std::string address = text;
  for (auto dots = std::count(text.begin(), text.end(), '.'); dots < 3; ++dots) address += "0.";
  return isAddress(AF_INET, address + "0");
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

std::string faultOfHosts(const std::vector<std::string>& hosts) {
  for (const std::string& host : hosts) {
    if (!isHostPattern(host)) return quoted(host) + " is neither an address, a network nor a host";
  }
  if (!hosts.empty() && hosts.front() == "EXCEPT") return "EXCEPT needs hosts before it";
  if (!hosts.empty() && hosts.back() == "EXCEPT") return "EXCEPT needs hosts behind it";
  return {};
}

std::string faultOfParameters(const std::vector<Parameter>& parameters) {
  std::vector<std::string> keys;
  for (const Parameter& parameter : parameters) {
    if (const std::string fault = faultOfParameter(parameter); !fault.empty())
      return quoted(parameter.key) + " " + fault;
    const std::string key = parameterKey(parameter.key);
    if (std::find(keys.begin(), keys.end(), key) != keys.end())
      return quoted(parameter.key) + " is there twice";
    keys.push_back(key);
  }
  return {};
}

// The strings of an array; false when something else is in it.
bool readTexts(const Array& values, std::vector<std::string>& texts) {
  for (const Value& value : values) {
    if (value.string() == nullptr) return false;
    texts.push_back(*value.string());
  }
  return true;
}

void readParameters(const std::vector<std::string>& texts, SmbOptions& options) {
  for (const std::string& text : texts) options.parameters.push_back(parseParameter(text));
}

std::vector<std::string> parameterTexts(const SmbOptions& options) {
  std::vector<std::string> texts;
  for (const Parameter& parameter : options.parameters) texts.push_back(parameterText(parameter));
  return texts;
}

Array arrayOf(const std::vector<std::string>& texts) {
  Array values;
  for (const std::string& text : texts) values.emplace_back(text);
  return values;
}

std::string fault(const char* name) { return quoted(name) + " cannot be read"; }

}  // namespace

bool SmbOptions::operator==(const SmbOptions& other) const {
  const auto all = [](const SmbOptions& options) {
    return std::tie(options.readOnly, options.guest, options.hidden, options.recycle,
                    options.comment, options.allowHosts, options.parameters);
  };
  return all(*this) == all(other);
}

bool isHostPattern(std::string_view text) {
  const std::string pattern(text);
  if (pattern.empty() || !faultOfValue(pattern).empty()) return false;
  if (isAddress(AF_INET, pattern) || isAddress(AF_INET6, pattern)) return true;
  if (isNetwork(pattern) || isBeginningOfAddress(pattern)) return true;
  if (pattern.front() == '@') return pattern.size() > 1 && holdsOnly(text.substr(1), ".-_");
  return !isNumeric(pattern) && holdsOnly(pattern, ".-_") && !pattern.ends_with('.') &&
         pattern.find("..") == std::string::npos;
}

std::string faultOfOptions(const SmbOptions& options) {
  if (const std::string_view found = faultOfValue(options.comment); !found.empty())
    return "the comment " + std::string(found);
  if (std::string found = faultOfHosts(options.allowHosts); !found.empty()) return found;
  return faultOfParameters(options.parameters);
}

ReadOptions readOptions(const Dictionary& attributes) {
  ReadOptions read;
  for (const Flag& flag : kFlags) {
    const Array* values = attributes.array(flag.attribute);
    if (values == nullptr || values->empty()) continue;
    const auto isOn = readBoolean(&values->front());
    if (!isOn) read.fault = fault(flag.attribute);
    read.options.*flag.member = isOn.value_or(false);
  }
  const auto texts = [&](const char* attribute) {
    std::vector<std::string> found;
    const Array* values = attributes.array(attribute);
    if (values != nullptr && !readTexts(*values, found)) read.fault = fault(attribute);
    return found;
  };
  if (const auto comments = texts(kComment); !comments.empty())
    read.options.comment = comments.front();
  read.options.allowHosts = texts(kAllowHosts);
  readParameters(texts(kOptions), read.options);
  return read;
}

AttributeWrite attributesOf(const SmbOptions& options) {
  AttributeWrite write;
  const auto put = [&write](const char* attribute, Array values) {
    if (values.empty()) {
      write.removals.emplace_back(attribute);
    } else {
      write.attributes.set(attribute, std::move(values));
    }
  };
  for (const Flag& flag : kFlags) put(flag.attribute, options.*flag.member ? Array{"1"} : Array{});
  put(kComment, options.comment.empty() ? Array{} : Array{options.comment});
  put(kAllowHosts, arrayOf(options.allowHosts));
  put(kOptions, arrayOf(parameterTexts(options)));
  return write;
}

Dictionary optionsDictionary(const SmbOptions& options) {
  Dictionary dictionary;
  for (const Flag& flag : kFlags) {
    if (options.*flag.member) dictionary.set(flag.key, true);
  }
  if (!options.comment.empty()) dictionary.set("comment", options.comment);
  if (!options.allowHosts.empty()) dictionary.set("allowHosts", arrayOf(options.allowHosts));
  if (!options.parameters.empty()) dictionary.set("options", arrayOf(parameterTexts(options)));
  return dictionary;
}

ReadOptions optionsFromDictionary(const Dictionary& dictionary) {
  ReadOptions read;
  for (const auto& entry : dictionary) {
    const auto* flag = std::find_if(std::begin(kFlags), std::end(kFlags),
                                    [&entry](const Flag& each) { return entry.key == each.key; });
    std::vector<std::string> texts;
    const Array* values = entry.value.array();
    const bool hasTexts = values != nullptr && readTexts(*values, texts);
    if (flag != std::end(kFlags) && entry.value.boolean() != nullptr) {
      read.options.*flag->member = *entry.value.boolean();
    } else if (entry.key == "comment" && entry.value.string() != nullptr) {
      read.options.comment = *entry.value.string();
    } else if (entry.key == "allowHosts" && hasTexts) {
      read.options.allowHosts = texts;
    } else if (entry.key == "options" && hasTexts) {
      readParameters(texts, read.options);
    } else {
      read.fault = fault(entry.key.c_str());
    }
  }
  return read;
}

std::string sectionLines(const SmbOptions& options) {
  std::string lines;
  const auto add = [&lines](const std::string& key, const std::string& value) {
    lines.append("    ").append(key).append(" = ").append(value).append("\n");
  };
  if (!options.comment.empty()) add("comment", options.comment);
  if (options.readOnly) add("read only", "yes");
  if (options.guest) add("guest ok", "yes");
  if (options.hidden) add("browseable", "no");
  if (!options.allowHosts.empty()) add("hosts allow", joined(options.allowHosts));
  if (options.recycle) lines += kRecycleLines;
  for (const Parameter& parameter : options.parameters) add(parameter.key, parameter.value);
  return lines;
}

}  // namespace paddock::samba
