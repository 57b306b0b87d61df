#include "daemon/http/head_reader.h"

#include <microhttpd.h>

#include <charconv>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "base/text.h"

namespace paddock {
namespace {

std::string header(MHD_Connection* connection, const char* name) {
  const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
  return value != nullptr ? value : "";
}

// The values of the field's lines, in their order.
std::vector<std::string> headers(MHD_Connection* connection, std::string_view name) {
  struct Search {
    std::string_view name;
    std::vector<std::string> values;
  } search{name, {}};
  MHD_get_connection_values(
      connection, MHD_HEADER_KIND,
      [](void* closure, MHD_ValueKind, const char* key, const char* value) {
        auto& wanted = *static_cast<Search*>(closure);
        if (asciiLower(key) == asciiLower(wanted.name))
          wanted.values.emplace_back(value != nullptr ? value : "");
        return MHD_YES;
      },
      &search);
  return std::move(search.values);
}

// The field's lines, joined as one list; absent when there is none.
std::optional<std::string> listHeader(MHD_Connection* connection, std::string_view name) {
  std::optional<std::string> list;
  for (const std::string& value : headers(connection, name)) {
    list = list ? *list + ", " + value : value;
  }
  return list;
}

// UINT64_MAX for what is larger; absent for what is no number.
std::optional<std::uint64_t> lengthOf(const std::string& text) {
  std::uint64_t length = 0;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, length);
  if (read.ptr != end || read.ec == std::errc::invalid_argument) return std::nullopt;
  return read.ec == std::errc::result_out_of_range ? UINT64_MAX : length;
}

// Whether the name of a header line has white space, which others may read as the name without it.
bool hasBlankName(MHD_Connection* connection) {
  bool found = false;
  MHD_get_connection_values(
      connection, MHD_HEADER_KIND,
      [](void* closure, MHD_ValueKind, const char* key, const char*) {
        const bool isBlank = std::string_view(key).find_first_of(" \t") != std::string_view::npos;
        *static_cast<bool*>(closure) = *static_cast<bool*>(closure) || isBlank;
        return MHD_YES;
      },
      &found);
  return found;
}

// Whoever relays requests may see another end of the body than we do where these contradict one
// another (RFC 9112, section 6.3), and take the rest for a request of its own.
void readLengths(MHD_Connection* connection, RequestHead& head) {
  const auto codings = headers(connection, MHD_HTTP_HEADER_TRANSFER_ENCODING);
  head.chunked = !codings.empty();
  const auto texts = headers(connection, MHD_HTTP_HEADER_CONTENT_LENGTH);
  const auto first = texts.empty() ? std::nullopt : lengthOf(texts.front());
  head.contentLength = first.value_or(0);
  for (const std::string& text : texts) {
    // The library goes by the first of several.
    if (!first || lengthOf(text) != first)
      head.ambiguity = "Content-Length is given with different values";
  }
  if (codings.empty()) return;
  if (!texts.empty()) {
    head.ambiguity = "Content-Length is given together with Transfer-Encoding";
  } else if (codings.size() > 1 || asciiLower(codings.front()) != "chunked") {
    head.ambiguity = "Transfer-Encoding is another one than \"chunked\"";
  }
}

}  // namespace

RequestHead readHead(MHD_Connection* connection, const char* target, const char* method) {
  RequestHead head{method, target, header(connection, MHD_HTTP_HEADER_CONTENT_TYPE),
                   header(connection, MHD_HTTP_HEADER_ACCEPT)};
  readLengths(connection, head);
  if (hasBlankName(connection)) head.ambiguity = "the name of a header has white space";
  if (const char* limit = MHD_lookup_connection_value(connection, MHD_GET_ARGUMENT_KIND, "limit"))
    head.limit = limit;
  head.ifMatch = listHeader(connection, MHD_HTTP_HEADER_IF_MATCH);
  return head;
}

std::string whyUnreadable(MHD_Connection* connection, int status) {
  for (const std::string& length : headers(connection, MHD_HTTP_HEADER_CONTENT_LENGTH)) {
    if (!lengthOf(length)) return "Content-Length is no number";
  }
  return MHD_get_reason_phrase_for(static_cast<unsigned>(status));
}

}  // namespace paddock
