#include "app/ui.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <vector>

namespace korvane {

MessageAnswer HeadlessMessageBoxes::Show(const std::string& text, MessageButtons buttons,
                                         MessageIcon, bool, bool) {
  if (out_) {
    std::fprintf(out_, "%s\n", text.c_str());
    std::fflush(out_);
  }
  switch (buttons) {
    case MessageButtons::OK: return MessageAnswer::OK;
    case MessageButtons::OKCancel: return MessageAnswer::Cancel;
    case MessageButtons::YesNo: break;
  }
  return MessageAnswer::No;
}

namespace {

std::vector<std::string> EditorCommand() {
  for (const char* variable : {"VISUAL", "EDITOR"}) {
    const char* value = std::getenv(variable);
    if (!value) continue;
    std::vector<std::string> words;
    std::istringstream in(value);
    for (std::string word; in >> word;) words.push_back(word);
    if (!words.empty()) return words;
  }
  return {"xdg-open"};
}

bool IsExecutableFile(const std::string& path) {
  struct stat info{};
  return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && access(path.c_str(), X_OK) == 0;
}

// Searched here rather than in the child, where only async-signal-safe calls
// belong.
std::string FindProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) return IsExecutableFile(name) ? name : "";
  const char* path = std::getenv("PATH");
  std::istringstream folders(path ? path : "/usr/local/bin:/usr/bin:/bin");
  for (std::string folder; std::getline(folders, folder, ':');) {
    std::string candidate = (folder.empty() ? "." : folder) + "/" + name;
    if (IsExecutableFile(candidate)) return candidate;
  }
  return "";
}

}  // namespace

bool SystemTextEditor::Open(const std::string& path) {
  std::vector<std::string> words = EditorCommand();
  std::string program = FindProgram(words[0]);
  if (program.empty()) return false;
  words.push_back(path);
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);

  // The exec failure travels back through a close-on-exec pipe: an empty
  // read means the editor is running. The middle process exits at once so
  // the editor is never our zombie.
  int report[2];
  if (pipe2(report, O_CLOEXEC) != 0) return false;
  pid_t child = fork();
  if (child < 0) {
    close(report[0]);
    close(report[1]);
    return false;
  }
  if (child == 0) {
    close(report[0]);
    pid_t editor = fork();
    if (editor != 0) _exit(editor < 0 ? 1 : 0);
    setsid();
    execv(program.c_str(), argv.data());
    int error = errno;
    ssize_t ignored = write(report[1], &error, sizeof error);
    (void)ignored;
    _exit(127);
  }
  close(report[1]);
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  int error = 0;
  ssize_t got;
  do {
    got = read(report[0], &error, sizeof error);
  } while (got < 0 && errno == EINTR);
  close(report[0]);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0 && got == 0;
}

}  // namespace korvane
