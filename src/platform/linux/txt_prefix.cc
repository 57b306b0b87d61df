#include "platform/linux/txt_prefix.h"

#include "platform/txt_record.h"

namespace paddock::dns_sd {

TxtPrefix txtPrefix(const Data& txt, std::size_t bytes) {
  std::vector<std::string> strings;
  stringsOfTxtRecord(txt, strings);
  TxtPrefix prefix;
  std::size_t size = 0;
  for (const std::string& text : strings) {
    if (prefix.leftOut > 0 || size + 1 + text.size() > bytes) {
      ++prefix.leftOut;
      continue;
    }
    size += 1 + text.size();
    ++prefix.strings;
  }
  prefix.data.bytes.assign(txt.bytes.begin(),
                           txt.bytes.begin() + static_cast<std::ptrdiff_t>(size));
  return prefix;
}

}  // namespace paddock::dns_sd
