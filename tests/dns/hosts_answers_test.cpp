// A hosts file of 50,000 lines, most of them a blocklist's "0.0.0.0 name",
// answered exactly: every name's A record, every alias, every reverse name,
// and the one reverse name all the blocked names share, in file order.
#include <fstream>
#include <string>
#include <vector>

#include "dns_world.h"

using namespace korvane;

namespace {

constexpr int kLines = 50000;

// Every fifth line is a host of the local network with an alias.
bool Local(int i) { return i % 5 == 0; }
std::string Address(int i) {
  return Local(i) ? "10." + std::to_string(i >> 16) + "." + std::to_string((i >> 8) & 255) + "." +
                        std::to_string(i & 255)
                  : "0.0.0.0";
}
std::string Host(int i) { return Local(i) ? "h" + std::to_string(i) + ".lan.test." : "b" + std::to_string(i) + ".block.test."; }

class HostsAnswers : public DnsWorld {
 protected:
  HostsAnswers() {
    const std::string path = dir.File("hosts");
    std::ofstream file(path);
    file << "# a blocklist with the office's hosts among it\n";
    for (int i = 0; i < kLines; ++i) {
      file << Address(i) << (i % 2 ? "\t" : " ") << Host(i).substr(0, Host(i).size() - 1);
      if (Local(i)) file << " alias" << i << ".lan.test";
      file << "\n";
    }
    file.close();
    options.HOSTS = path;
    modDNS::LoadHosts(store);
  }
  // The answer section of the reply to one question.
  Strs AnswerOf(const std::string& name, int type) {
    Ask(1, name, type);
    Strs answer = Data(LastAnswer(), 2);
    wsdns.sent.clear();
    log.lines.clear();
    return answer;
  }
  TempDir dir;
};

TEST_F(HostsAnswers, EveryNameAliasAndAddressIsAnsweredAsItsLineSays) {
  ASSERT_EQ(records.size(), static_cast<std::size_t>(kLines * 2 + kLines / 5));
  for (int i = 0; i < kLines; ++i) {
    ASSERT_EQ(AnswerOf(Host(i), 1), Strs{Address(i)}) << i;
    if (!Local(i)) continue;
    const std::string alias = "alias" + std::to_string(i) + ".lan.test.";
    ASSERT_EQ(AnswerOf(alias, 1), (Strs{Host(i), Address(i)})) << i;
    ASSERT_EQ(AnswerOf(modDNS::IPToArpa(Address(i)), 12), Strs{Host(i)}) << i;
  }
  // The blocked names share one reverse name: its answer holds them in file
  // order, as many as a reply carries.
  const Strs shared = AnswerOf("0.0.0.0.in-addr.arpa.", 12);
  ASSERT_EQ(shared.size(), DnsEngine::kMaxReplyRecords);
  for (std::size_t k = 0, i = 0; k < shared.size(); ++i) {
    if (!Local(static_cast<int>(i))) {
      ASSERT_EQ(shared[k], Host(static_cast<int>(i))) << k;
      ++k;
    }
  }
  EXPECT_TRUE(errors.errors.empty());
}

}  // namespace
