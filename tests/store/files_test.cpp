#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

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
