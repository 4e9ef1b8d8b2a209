// The codec's name readers over any bytes: UnzipName at an offset, and
// ExtractName and TakeName name after name. Then a name made of the input's
// letters, compressed against the input and appended to it, reads back as
// itself.
#include <cctype>

#include "fuzz_world.h"
#include "wire/dns_codec.h"

namespace {

// The text of `input`'s name characters, and how ZipName will write it
// (empty labels gone, labels cut to 63, lower case as read back).
void NameOf(std::string_view input, std::string& name, std::string& expected) {
  for (char c : input)
    if (std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.') name += c;
  std::string label;
  auto endLabel = [&] {
    if (!label.empty()) expected += label.substr(0, 63) + ".";
    label.clear();
  };
  for (char c : name) {
    if (c == '.')
      endLabel();
    else
      label += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  endLabel();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view message = AsView(data, size);
  FuzzErrors errors;
  if (!message.empty()) modDNS::UnzipName(message, data[0] % static_cast<int>(size), errors);

  std::string_view remainder = message;
  for (int i = 0; i < 1000 && !remainder.empty(); ++i) {
    std::size_t before = remainder.size();
    modDNS::ExtractName(message, remainder, true, errors);
    if (remainder.size() == before) break;
  }
  modDNS::BoundedReader in(message);
  for (int i = 0; i < 1000 && in.Left() > 0; ++i) {
    std::size_t before = in.Left();
    modDNS::TakeName(message, in, errors);
    if (in.Left() == before) break;
  }

  if (size >= 16384) return 0;
  std::string name, expected;
  NameOf(message.substr(size / 2), name, expected);
  std::string whole(message);
  whole += modDNS::ZipName(whole, name, errors);
  Require(modDNS::UnzipName(whole, static_cast<int>(size), errors) == expected,
          "a compressed name reads back otherwise");
  return 0;
}
