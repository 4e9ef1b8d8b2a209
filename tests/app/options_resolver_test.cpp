// The options that bound and guard resolution: CacheSize, RecursionFrom,
// ForwardPrivateReverse and ForwardBareNames.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "app/options_file.h"
#include "support/fakes.h"

using namespace korvane;

namespace {

Options Read(const std::string& text) {
  TempDir dir;
  dir.Write("korvane.ini", text);
  Options options;
  options.RECURSIONFROM = {"leftover"};
  RecordingErrorReporter errors;
  modMain::LoadOptions(dir.File("korvane.ini"), options, errors);
  return options;
}

TEST(ResolverOptions, AreReadLeniently) {
  const struct {
    std::string file;
    int32_t cacheSize;
    std::vector<std::string> from;
    bool privateReverse, bareNames;
  } cases[] = {
      {"", 100000, {}, false, false},
      {"CacheSize: 5000\n", 5000, {}, false, false},
      {"cachesize : 20000 records\n", 20000, {}, false, false},
      {"RecursionFrom: any\n", 100000, {"any"}, false, false},
      {"RecursionFrom: 192.0.2.7/24, 198.51.100.1\tANY\n",
       100000, {"192.0.2.0/24", "198.51.100.1/32", "any"}, false, false},
      // Entries that are no network are left out; a second line adds.
      {"RecursionFrom: 10.0.0.0/33 nonsense 10.1.0.0/16\nRecursionFrom: 10.1.2.3/16 10.2.0.0/16\n",
       100000, {"10.1.0.0/16", "10.2.0.0/16"}, false, false},
      {"ForwardPrivateReverse: yes\nForwardBareNames: Y\n", 100000, {}, true, true},
      {"ForwardPrivateReverse: NO\nForwardBareNames\n", 100000, {}, false, false},
  };
  for (const auto& c : cases) {
    Options options = Read(c.file);
    EXPECT_EQ(options.CACHESIZE, c.cacheSize) << c.file;
    EXPECT_EQ(options.RECURSIONFROM, c.from) << c.file;
    EXPECT_EQ(options.FORWARDPRIVATEREVERSE, c.privateReverse) << c.file;
    EXPECT_EQ(options.FORWARDBARENAMES, c.bareNames) << c.file;
  }
}

TEST(ResolverOptions, AreWrittenAfterThePartsLinesOnlyWhenNotAtTheirDefaults) {
  Options options;
  EXPECT_EQ(modMain::OptionsFileText(options), "HostsTTL: 3600\n");
  options.NS = {"10.0.0.1"};
  options.CACHESIZE = 2500;
  options.RECURSIONFROM = {"192.0.2.0/24", "any"};
  options.FORWARDPRIVATEREVERSE = true;
  options.FORWARDBARENAMES = true;
  const std::string text = modMain::OptionsFileText(options);
  EXPECT_EQ(text,
            "HostsTTL: 3600\n"
            "NS: 10.0.0.1\n"
            "CacheSize: 2500\n"
            "RecursionFrom: 192.0.2.0/24 any\n"
            "ForwardPrivateReverse: YES\n"
            "ForwardBareNames: YES\n");
  Options back = Read(text);
  EXPECT_EQ(back.CACHESIZE, 2500);
  EXPECT_EQ(back.RECURSIONFROM, options.RECURSIONFROM);
  EXPECT_TRUE(back.FORWARDPRIVATEREVERSE);
  EXPECT_TRUE(back.FORWARDBARENAMES);
}

}  // namespace
