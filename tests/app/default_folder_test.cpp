#include "app/default_folder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "support/fakes.h"

using namespace korvane;

namespace {

namespace fs = std::filesystem;
using modMain::DefaultFolder;
using modMain::FolderFacts;

struct ChoiceCase {
  const char* what;
  FolderFacts facts;
  DefaultFolder expected;
};

TEST(DefaultFolder, OwnFolderOnlyForAnInstalledProgram) {
  const std::string usrExample = "/usr/share/korvane/example";
  const ChoiceCase cases[] = {
      {"a build tree", {"/src/build", "", "/home/ann", false, true, false},
       {"/src/build", false, false, "/src/share/korvane/example"}},
      {"a portable copy on read-only media", {"/media/kv", "", "/home/ann", true, false, false},
       {"/media/kv", false, false, "/media/share/korvane/example"}},
      {"an installed program", {"/usr/bin", "", "/home/ann", false, false, true},
       {"/home/ann/.local/share/korvane", true, true, usrExample}},
      {"... used before", {"/usr/bin", "", "/home/ann", false, false, true, true},
       {"/home/ann/.local/share/korvane", true, false, usrExample}},
      {"... started by root, who may write /usr/bin", {"/usr/bin", "", "/root", false, true, true},
       {"/root/.local/share/korvane", true, true, usrExample}},
      {"... with korvane.ini put beside it", {"/usr/bin", "", "/home/ann", true, true, true},
       {"/usr/bin", false, false, usrExample}},
      {"... with XDG_DATA_HOME", {"/usr/bin", "/data/ann/", "/home/ann", false, false, true},
       {"/data/ann/korvane", true, true, usrExample}},
      {"... with a relative XDG_DATA_HOME", {"/usr/bin", "data", "/home/ann/", false, false, true},
       {"/home/ann/.local/share/korvane", true, true, usrExample}},
      {"... without a home", {"/usr/bin", "", "", false, false, true},
       {"/usr/bin", false, false, usrExample}},
      {"another prefix", {"/opt/kv/bin", "", "/home/ann", false, false, true},
       {"/home/ann/.local/share/korvane", true, true, "/opt/kv/share/korvane/example"}},
      {"a folder of nobody's, no example", {"/srv/tools", "", "/home/ann", false, false, false},
       {"/home/ann/.local/share/korvane", true, true, "/srv/share/korvane/example"}},
  };
  for (const ChoiceCase& c : cases) {
    const DefaultFolder choice = modMain::ChooseDefaultFolder(c.facts);
    EXPECT_EQ(choice.folder, c.expected.folder) << c.what;
    EXPECT_EQ(choice.own, c.expected.own) << c.what;
    EXPECT_EQ(choice.seed, c.expected.seed) << c.what;
    EXPECT_EQ(choice.example, c.expected.example) << c.what;
  }
}

// An installed layout in a temporary prefix: prefix/bin, prefix/share/korvane/example.
struct Installed {
  TempDir root;
  std::string bin = root.File("prefix/bin");
  std::string example = root.File("prefix/share/korvane/example");
  std::string home = root.File("home");
  std::string own = home + "/.local/share/korvane";

  Installed() {
    fs::create_directories(bin);
    fs::create_directories(example);
    fs::create_directories(home);
    Put(example + "/korvane.ini", "DNSBind:\n");
    Put(example + "/named.perm", "example records\n");
    fs::create_directories(example + "/zones");
    Put(example + "/zones/lab", "lab records\n");
  }
  static void Put(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
  }
  static std::string Get(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
  }
  DefaultFolder Choice() const {
    return modMain::ChooseDefaultFolder(modMain::ReadFolderFacts(bin, "", home));
  }
};

TEST(DefaultFolder, ReadsTheFactsOfTheFileSystem) {
  Installed installed;
  FolderFacts facts = modMain::ReadFolderFacts(installed.bin, "", installed.home);
  EXPECT_TRUE(facts.besideExample);
  EXPECT_TRUE(facts.writable);  // root
  EXPECT_FALSE(facts.holdsOptions);
  EXPECT_FALSE(facts.ownHoldsOptions);
  EXPECT_EQ(installed.Choice().folder, installed.own);

  fs::create_directories(installed.own);
  Installed::Put(installed.own + "/korvane.ini", "");
  EXPECT_TRUE(modMain::ReadFolderFacts(installed.bin, "", installed.home).ownHoldsOptions);
  Installed::Put(installed.bin + "/korvane.ini", "");
  EXPECT_TRUE(modMain::ReadFolderFacts(installed.bin, "", installed.home).holdsOptions);
  EXPECT_EQ(installed.Choice().folder, installed.bin);
}

TEST(DefaultFolder, FirstUseMakesThePrivateFolderFromTheExample) {
  Installed installed;
  const modMain::PreparedFolder first = modMain::PrepareOwnFolder(installed.Choice());
  ASSERT_TRUE(first.ok);
  EXPECT_EQ(first.lines, (std::vector<std::string>{
                             "Program folder: " + installed.own,
                             "Program folder created from the example " + installed.example +
                                 ": named.perm, zones/lab, korvane.ini."}));
  struct stat info {};
  ASSERT_EQ(stat(installed.own.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);
  EXPECT_EQ(Installed::Get(installed.own + "/zones/lab"), "lab records\n");

  // Afterwards the operator's changes stay, and a file they removed stays away.
  Installed::Put(installed.own + "/named.perm", "mine\n");
  fs::remove(installed.own + "/zones/lab");
  const modMain::PreparedFolder again = modMain::PrepareOwnFolder(installed.Choice());
  EXPECT_EQ(again.lines, (std::vector<std::string>{"Program folder: " + installed.own}));
  EXPECT_EQ(Installed::Get(installed.own + "/named.perm"), "mine\n");
  EXPECT_FALSE(fs::exists(installed.own + "/zones/lab"));
}

TEST(DefaultFolder, WithoutAnExampleTheFolderIsMadeEmpty) {
  Installed installed;
  const DefaultFolder choice = installed.Choice();
  fs::remove_all(installed.example);
  const modMain::PreparedFolder prepared = modMain::PrepareOwnFolder(choice);
  ASSERT_TRUE(prepared.ok);
  EXPECT_EQ(prepared.lines.back(),
            "Program folder created empty: there is no example folder " + installed.example + ".");
  EXPECT_TRUE(fs::is_empty(installed.own));
}

TEST(DefaultFolder, AFolderThatCannotBeMadeIsSaid) {
  for (const auto& [inTheWay, reason] : {std::pair{"/.local", "Not a directory"},
                                         std::pair{"/.local/share/korvane", "File exists"}}) {
    Installed installed;
    fs::create_directories(fs::path(installed.home + inTheWay).parent_path());
    Installed::Put(installed.home + inTheWay, "a file in the way");
    const modMain::PreparedFolder prepared = modMain::PrepareOwnFolder(installed.Choice());
    EXPECT_FALSE(prepared.ok) << inTheWay;
    EXPECT_EQ(prepared.lines, (std::vector<std::string>{"The program folder " + installed.own +
                                                        " cannot be made: " + reason + "."}))
        << inTheWay;
  }
}

TEST(SeedFolder, CompletesAFolderWithoutTouchingTheOperatorsFiles) {
  Installed installed;
  TempDir folder;
  folder.Write("named.perm", "the operator's\n");
  fs::create_directory(folder.File("zones"));
  const modMain::SeedResult result = modMain::SeedFolder(installed.example, folder.path());
  EXPECT_TRUE(result.exampleFound);
  EXPECT_EQ(result.copied, (std::vector<std::string>{"zones/lab", "korvane.ini"}));
  EXPECT_TRUE(result.problems.empty());
  EXPECT_EQ(folder.Read("named.perm"), "the operator's\n");
  EXPECT_EQ(folder.Read("korvane.ini"), "DNSBind:\n");
  std::vector<std::string> names;
  for (const auto& entry : fs::recursive_directory_iterator(folder.path()))
    names.push_back(entry.path().lexically_relative(folder.path()).string());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"korvane.ini", "named.perm", "zones", "zones/lab"}))
      << "no part files left";
}

TEST(SeedFolder, WhatCannotBeReadIsReportedAndTheRestCopied) {
  Installed installed;
  fs::create_symlink("/nonexistent/named.root", installed.example + "/named.root");
  TempDir folder;
  modMain::SeedResult result = modMain::SeedFolder(installed.example, folder.path());
  EXPECT_EQ(result.copied, (std::vector<std::string>{"named.perm", "zones/lab", "korvane.ini"}));
  EXPECT_EQ(result.problems,
            (std::vector<std::string>{"The example file " + installed.example +
                                      "/named.root was not copied: No such file or directory."}));

  struct Bad {
    const char* what;
    std::string example;
    std::string reason;
  } bad[] = {
      {"a file", installed.example + "/named.perm", "Not a directory"},
      {"a link to itself", folder.File("loop"), "Too many levels of symbolic links"},
  };
  fs::create_symlink(folder.File("loop"), folder.File("loop"));
  for (const Bad& b : bad) {
    result = modMain::SeedFolder(b.example, folder.path());
    EXPECT_TRUE(result.exampleFound) << b.what;
    EXPECT_EQ(result.problems, (std::vector<std::string>{"The example folder " + b.example +
                                                         " cannot be read: " + b.reason + "."}))
        << b.what;
  }
  EXPECT_FALSE(modMain::SeedFolder(folder.File("none"), folder.path()).exampleFound);
}

}  // namespace
