#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>

#include "store/files.h"
#include "support/fakes.h"

using namespace korvane;

TEST(WriteFileAtomically, ReplacesTheContentKeepingLinksAndPermissions) {
  TempDir dir;
  dir.Write("real.perm", "old\n");
  ASSERT_EQ(chmod(dir.File("real.perm").c_str(), 0600), 0);
  ASSERT_EQ(symlink(dir.File("real.perm").c_str(), dir.File("named.perm").c_str()), 0);

  ASSERT_TRUE(WriteFileAtomically(dir.File("named.perm"), "new\n"));
  EXPECT_TRUE(std::filesystem::is_symlink(dir.File("named.perm")));
  EXPECT_EQ(dir.Read("real.perm"), "new\n");
  struct stat info;
  ASSERT_EQ(stat(dir.File("real.perm").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600u);

  ASSERT_TRUE(WriteFileAtomically(dir.File("fresh.txt"), "x"));
  ASSERT_EQ(stat(dir.File("fresh.txt").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0644u);
  EXPECT_FALSE(WriteFileAtomically(dir.File("missing/file"), "x"));
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 3);  // no temporaries left
}

// Whatever the size says, the whole content comes back: files of every size
// around the first read, and /proc files that give no size and answer only a
// read from their beginning.
TEST(ReadWholeFile, ReadsWhatTheFileHolds) {
  TempDir dir;
  for (std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{65535}, std::size_t{65536},
                           std::size_t{65537}, std::size_t{300000}}) {
    std::string content(size, 'x');
    for (std::size_t i = 0; i < size; i += 97) content[i] = '\n';
    dir.Write("file", content);
    std::optional<std::string> read = ReadWholeFile(dir.File("file"));
    ASSERT_TRUE(read) << size;
    EXPECT_EQ(*read, content) << size;
  }
  for (const char* proc : {"/proc/sys/net/ipv4/ip_unprivileged_port_start", "/proc/self/status"}) {
    std::ifstream stream(proc);
    const std::string expected{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    std::optional<std::string> read = ReadWholeFile(proc);
    ASSERT_TRUE(read) << proc;
    EXPECT_EQ(read->substr(0, 10), expected.substr(0, 10)) << proc;
    EXPECT_GT(read->size(), 1u) << proc;
  }
  EXPECT_FALSE(ReadWholeFile(dir.path()));
  EXPECT_FALSE(ReadWholeFile(dir.File("missing")));
}
