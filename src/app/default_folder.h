// The program folder when none is given. A program run from a folder of its
// own (a build tree, a copied portable folder) keeps using that folder; an
// installed one (/usr/bin holds no korvane.ini and is no place for records,
// logs and leases) uses the user's data folder, made from the installed
// example on first use.
#pragma once

#include <string>
#include <vector>

namespace korvane {

namespace modMain {

// What decides the choice: the executable's folder, the environment, and what
// the file system says about the folders involved.
struct FolderFacts {
  std::string executableFolder;  // absolute
  std::string xdgDataHome;       // $XDG_DATA_HOME ("" when unset)
  std::string home;              // $HOME ("" when unset)
  bool holdsOptions = false;     // the executable's folder holds korvane.ini
  bool writable = false;         // this user may make files in it
  // ../share/korvane/example exists beside it: an installed program.
  bool besideExample = false;
  bool ownHoldsOptions = false;  // the user's data folder holds korvane.ini
};

struct DefaultFolder {
  std::string folder;
  bool own = false;  // the user's data folder, made when missing
  // Copy the example's missing files into it: its korvane.ini, copied last,
  // is missing (a first use, or one that was cut short).
  bool seed = false;
  std::string example;  // the installed example folder
};

// Pure: the facts in, the folder out.
DefaultFolder ChooseDefaultFolder(const FolderFacts& facts);

// The facts of this machine for `executableFolder` (environment values are
// passed in, so another process's can be used).
FolderFacts ReadFolderFacts(const std::string& executableFolder, const std::string& xdgDataHome,
                            const std::string& home);

struct SeedResult {
  bool exampleFound = false;
  std::vector<std::string> copied;    // names relative to the folder, in copy order
  std::vector<std::string> problems;  // one line each; none stops the start
};

// Copies every file of `example` that `folder` lacks, keeping the example's
// subfolders, korvane.ini last. A file that exists is never written over;
// each copy appears whole or not at all.
SeedResult SeedFolder(const std::string& example, const std::string& folder);

struct PreparedFolder {
  bool ok = false;                 // the folder exists (or was made)
  std::vector<std::string> lines;  // for the log: the folder used, what was copied, problems
};

// Makes the user's data folder (mode 0700) when missing and seeds it; says
// which folder is used. Not ok (with the reason) when it cannot be made.
PreparedFolder PrepareOwnFolder(const DefaultFolder& choice);

}  // namespace modMain

}  // namespace korvane
