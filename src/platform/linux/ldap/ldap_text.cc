#include "platform/linux/ldap/ldap_text.h"

#include <ldap.h>

#include <memory>

#include "platform/linux/ldap/ldap_error.h"
#include "platform/linux/ldap/ldap_library.h"

namespace paddock {

namespace {

void appendEscaped(std::string& text, char c) {
  constexpr char kDigits[] = "0123456789abcdef";
  const auto byte = static_cast<unsigned char>(c);
  text += {'\\', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
}

bool isPlain(char c) { return c >= 0x20 && c < 0x7F; }

std::string escaped(std::string_view value, std::string_view special) {
  std::string text;
  text.reserve(value.size());
  for (const char c : value) {
    if (isPlain(c) && special.find(c) == std::string_view::npos)
      text += c;
    else
      appendEscaped(text, c);
  }
  return text;
}

std::string joined(char operation, const std::vector<std::string>& filters) {
  if (filters.size() == 1) return filters.front();
  std::string text{'(', operation};
  for (const std::string& filter : filters) text += filter;
  return text + ")";
}

}  // namespace

std::string filterText(std::string_view value) { return escaped(value, "*()\\"); }

std::string equals(std::string_view attribute, std::string_view value) {
  return "(" + std::string(attribute) + "=" + filterText(value) + ")";
}

std::string anyOf(const std::vector<std::string>& filters) { return joined('|', filters); }
std::string allOf(const std::vector<std::string>& filters) { return joined('&', filters); }

std::string dnText(std::string_view value) {
  std::string text = escaped(value, "\"+,;<>=\\");
  if (value.empty()) return text;
  const bool lastIsBlank = value.back() == ' ';
  if (lastIsBlank) text.replace(text.size() - 1, 1, "\\20");
  if (value.size() > (lastIsBlank ? 1U : 0U) && (value.front() == ' ' || value.front() == '#'))
    text.replace(0, 1, value.front() == ' ' ? "\\20" : "\\23");
  return text;
}

namespace {

struct FreeDn {
  void operator()(LDAPRDN* dn) const { ldap_dnfree(dn); }
};

std::unique_ptr<LDAPRDN, FreeDn> parse(const std::string& text) {
  LDAPDN dn = nullptr;
  if (text.find('\0') != std::string::npos) return nullptr;
  const int result = ldap_str2dn(text.c_str(), &dn, LDAP_DN_FORMAT_LDAPV3);
  if (result == LDAP_NO_MEMORY) throw LdapError(result, "reading the name " + text, "");
  return std::unique_ptr<LDAPRDN, FreeDn>(result == LDAP_SUCCESS ? dn : nullptr);
}

}  // namespace

std::vector<std::pair<std::string, std::string>> firstComponent(const std::string& dn) {
  std::vector<std::pair<std::string, std::string>> parts;
  const auto parsed = parse(dn);
  if (!parsed || parsed.get()[0] == nullptr) return parts;
  for (LDAPAVA** part = parsed.get()[0]; *part != nullptr; ++part)
    parts.emplace_back(textOf((*part)->la_attr), textOf((*part)->la_value));
  return parts;
}

bool isDistinguishedName(const std::string& text) { return !firstComponent(text).empty(); }

}  // namespace paddock
