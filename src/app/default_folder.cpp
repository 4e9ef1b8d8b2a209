#include "app/default_folder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

namespace korvane {

namespace modMain {

namespace fs = std::filesystem;

namespace {

std::string Normal(const fs::path& path) {
  std::string text = path.lexically_normal().string();
  while (text.size() > 1 && text.back() == '/') text.pop_back();
  return text;
}

bool Absolute(const std::string& path) { return !path.empty() && path.front() == '/'; }

// Present, even as a link to nothing: such a name is the operator's.
bool Present(const fs::path& path) {
  std::error_code error;
  return fs::symlink_status(path, error).type() != fs::file_type::not_found;
}

std::string Joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

std::string Unreadable(const fs::path& example, const std::error_code& error) {
  return "The example folder " + example.string() + " cannot be read: " + error.message() + ".";
}

// The example's entries relative to it, sorted, korvane.ini last (its
// presence marks a finished copy); those listed before a listing fails.
std::vector<fs::path> ExampleEntries(const fs::path& example, SeedResult& result) {
  std::vector<fs::path> entries;
  std::error_code error;
  fs::recursive_directory_iterator it(example, error), end;
  for (; !error && it != end; it.increment(error))
    entries.push_back(it->path().lexically_relative(example));
  if (error) result.problems.push_back(Unreadable(example, error));
  std::sort(entries.begin(), entries.end());
  std::stable_partition(entries.begin(), entries.end(),
                        [](const fs::path& entry) { return entry != "korvane.ini"; });
  return entries;
}

// Copies to a hidden name beside the target, then links it in: the target
// never shows half a file, and a file that appeared meanwhile is kept.
std::error_code CopyWhole(const fs::path& from, const fs::path& to) {
  const fs::path part = to.parent_path() / ("." + to.filename().string() + ".korvane-part");
  std::error_code error;
  fs::copy_file(from, part, fs::copy_options::overwrite_existing, error);
  if (!error && link(part.c_str(), to.c_str()) != 0 && errno != EEXIST)
    error = std::error_code(errno, std::generic_category());
  std::error_code ignored;
  fs::remove(part, ignored);
  return error;
}

}  // namespace

DefaultFolder ChooseDefaultFolder(const FolderFacts& facts) {
  DefaultFolder choice;
  choice.folder = facts.executableFolder;
  choice.example = Normal(fs::path(facts.executableFolder) / "../share/korvane/example");
  if (facts.holdsOptions || (facts.writable && !facts.besideExample)) return choice;
  // Relative values are to be ignored (XDG base directories).
  std::string dataHome;
  if (Absolute(facts.xdgDataHome)) dataHome = facts.xdgDataHome;
  else if (Absolute(facts.home)) dataHome = facts.home + "/.local/share";
  else return choice;  // no home: the executable's folder, as a portable copy
  choice.folder = Normal(fs::path(dataHome) / "korvane");
  choice.own = true;
  choice.seed = !facts.ownHoldsOptions;
  return choice;
}

FolderFacts ReadFolderFacts(const std::string& executableFolder, const std::string& xdgDataHome,
                            const std::string& home) {
  FolderFacts facts{executableFolder, xdgDataHome, home};
  std::error_code error;
  facts.holdsOptions = Present(fs::path(executableFolder) / "korvane.ini");
  facts.writable = access(executableFolder.c_str(), W_OK) == 0;
  facts.besideExample = fs::is_directory(ChooseDefaultFolder(facts).example, error);
  const DefaultFolder choice = ChooseDefaultFolder(facts);
  facts.ownHoldsOptions = choice.own && Present(fs::path(choice.folder) / "korvane.ini");
  return facts;
}

SeedResult SeedFolder(const std::string& example, const std::string& folder) {
  SeedResult result;
  std::error_code error;
  const fs::file_status status = fs::status(example, error);
  if (status.type() == fs::file_type::not_found) return result;
  result.exampleFound = true;
  if (!fs::is_directory(status)) {
    if (!error) error = std::make_error_code(std::errc::not_a_directory);
    result.problems.push_back(Unreadable(example, error));
    return result;
  }
  for (const fs::path& entry : ExampleEntries(example, result)) {
    const fs::path from = fs::path(example) / entry, to = fs::path(folder) / entry;
    if (Present(to)) continue;
    if (fs::is_directory(from, error)) {
      fs::create_directory(to, error);
    } else {
      error = CopyWhole(from, to);
      if (!error) result.copied.push_back(entry.string());
    }
    if (error) result.problems.push_back("The example file " + from.string() + " was not copied: " +
                                         error.message() + ".");
  }
  return result;
}

PreparedFolder PrepareOwnFolder(const DefaultFolder& choice) {
  PreparedFolder prepared;
  std::error_code error;
  const bool made = !fs::is_directory(choice.folder, error);
  if (made) {
    // Only the user's: records, leases and logs name the machines of the network.
    fs::create_directories(fs::path(choice.folder).parent_path(), error);
    if (!error && mkdir(choice.folder.c_str(), 0700) != 0)
      error = std::error_code(errno, std::generic_category());
    std::error_code ignored;
    if (error && !fs::is_directory(choice.folder, ignored)) {  // not made by a start beside this one
      prepared.lines.push_back("The program folder " + choice.folder + " cannot be made: " +
                               error.message() + ".");
      return prepared;
    }
  }
  prepared.ok = true;
  prepared.lines.push_back("Program folder: " + choice.folder);
  if (!choice.seed) return prepared;
  SeedResult seed = SeedFolder(choice.example, choice.folder);
  if (!seed.exampleFound && made)
    prepared.lines.push_back("Program folder created empty: there is no example folder " +
                             choice.example + ".");
  else if (!seed.copied.empty())
    prepared.lines.push_back("Program folder " + std::string(made ? "created" : "completed") +
                             " from the example " + choice.example + ": " + Joined(seed.copied) + ".");
  prepared.lines.insert(prepared.lines.end(), seed.problems.begin(), seed.problems.end());
  return prepared;
}

}  // namespace modMain

}  // namespace korvane
