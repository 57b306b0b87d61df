#include "keelhouse/core/json_document.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "base/file_access.h"
#include "base/system_call.h"
#include "keelhouse/core/failure.h"
#include "keelhouse/core/input.h"
#include "keelhouse/core/suggested_words.h"
#include "wire/json.h"

namespace paddock::keelhouse {

namespace {

constexpr std::size_t kMaximumDocument = 16U << 20U;

std::string contentsOf(const std::string& file) {
  if (file == "-") return readAll(STDIN_FILENO, kMaximumDocument);
  const FileDescriptor descriptor(
      retryOnInterrupt([&] { return ::open(file.c_str(), O_RDONLY | O_CLOEXEC); }));  // NOLINT
  if (!descriptor) {
    throw usageFailure(file + " cannot be read: " + std::generic_category().message(errno));
  }
  return readAll(descriptor.get(), kMaximumDocument);
}

Failure wrongType(const std::string& what, const char* key, const char* type) {
  return usageFailure(what + ": \"" + key + "\" must be " + type);
}

template <typename Read>
auto typed(const Dictionary& dictionary, const char* key, const std::string& what, const char* type,
           Read read) -> decltype(read(std::declval<const Value&>())) {
  const Value* value = dictionary.find(key);
  if (value == nullptr) return nullptr;
  if (const auto found = read(*value)) return found;
  throw wrongType(what, key, type);
}

}  // namespace

Dictionary readDocument(const std::string& file) {
  const std::string name = file == "-" ? "standard input" : file;
  std::string problem;
  auto value = wire::parseJson(contentsOf(file), problem);
  if (!value) throw usageFailure(name + " is no JSON: " + problem);
  if (value->dictionary() == nullptr) throw usageFailure(name + " holds no JSON object");
  return std::move(*value->dictionary());
}

void requireKnownKeys(const Dictionary& dictionary, const std::vector<std::string>& known,
                      const std::string& what) {
  for (const auto& entry : dictionary) {
    if (std::find(known.begin(), known.end(), entry.key) != known.end()) continue;
    throw usageFailure(what + " has the unknown key \"" + entry.key + "\"" +
                       didYouMean(entry.key, known));
  }
}

const std::string* textIn(const Dictionary& dictionary, const char* key, const std::string& what) {
  return typed(dictionary, key, what, "a text", [](const Value& value) { return value.string(); });
}

const bool* booleanIn(const Dictionary& dictionary, const char* key, const std::string& what) {
  return typed(dictionary, key, what, "true or false",
               [](const Value& value) { return value.boolean(); });
}

const Array* arrayIn(const Dictionary& dictionary, const char* key, const std::string& what) {
  return typed(dictionary, key, what, "an array", [](const Value& value) { return value.array(); });
}

std::vector<std::string> textsIn(const Dictionary& dictionary, const char* key,
                                 const std::string& what) {
  std::vector<std::string> texts;
  const Array* array = arrayIn(dictionary, key, what);
  if (array == nullptr) return texts;
  for (const Value& value : *array) {
    if (value.string() == nullptr) throw wrongType(what, key, "an array of texts");
    texts.push_back(*value.string());
  }
  return texts;
}

}  // namespace paddock::keelhouse
