#include "wire/clean_name.h"

#include <gtest/gtest.h>

#include <vector>

using namespace korvane;

namespace {

TEST(CleanName, Table) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"  Host.Example..COM. ", "host.example.com"}, {"a_b", "ab"}, {"..x", "x"}, {"...", ""},
      {"", ""}, {"   ", ""}, {"x.", "x"}, {"a....b", "a.b"},
      {"a._.b", "a.b"},  // a cut character can leave a double dot behind
      {"My-Host 1", "my-host1"}, {"\tweb.lan", "web.lan"}, {"caf\xc3\xa9.lan", "caf.lan"},
      {"ns1.EXAMPLE.org", "ns1.example.org"}};
  for (const auto& [raw, clean] : cases) EXPECT_EQ(modMain::CleanName(raw), clean) << raw;
}

}  // namespace
