#include "app/prompts.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>
#include <string>

#include "app/app_world.h"
#include "support/fakes.h"

using namespace korvane;

namespace {

TEST(HeadlessMessageBoxes, TakeTheCautiousAnswerAndPrintNoQuestion) {
  const std::string error =
      "An error has occured in Korvane!\n\nError: 53 File not found\n\nA support file...\n\n"
      "Review the support file with text editor now ?";
  struct Case {
    std::string text;
    MessageButtons buttons;
    MessageAnswer answer;
    std::string printed;
  } cases[] = {
      {"Could not start DNS service!\n\nPort used by other DNS server.", MessageButtons::OK,
       MessageAnswer::OK, "Could not start DNS service!\n\nPort used by other DNS server.\n"},
      {error, MessageButtons::YesNo, MessageAnswer::No,
       "An error has occured in Korvane!\n\nError: 53 File not found\n\nA support file...\n"},
      {"Exit Korvane ?", MessageButtons::YesNo, MessageAnswer::No, ""},
      {"Discard the changes?", MessageButtons::OKCancel, MessageAnswer::Cancel, ""},
  };
  for (const Case& c : cases) {
    char* text = nullptr;
    size_t size = 0;
    std::FILE* out = open_memstream(&text, &size);
    ASSERT_NE(out, nullptr);
    HeadlessMessageBoxes boxes(out);
    EXPECT_EQ(boxes.Show(c.text, c.buttons, MessageIcon::Question, false, false), c.answer);
    std::fclose(out);
    EXPECT_EQ(std::string(text, size), c.printed);
    std::free(text);
  }
}

// Sets environment variables for one test and puts the old values back.
class Environment {
 public:
  void Set(const char* name, const char* value) {
    const char* old = std::getenv(name);
    saved_.push_back({name, old ? std::optional<std::string>(old) : std::nullopt});
    if (value) setenv(name, value, 1);
    else unsetenv(name);
  }
  ~Environment() {
    for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
      if (it->second) setenv(it->first.c_str(), it->second->c_str(), 1);
      else unsetenv(it->first.c_str());
    }
  }

 private:
  std::vector<std::pair<std::string, std::optional<std::string>>> saved_;
};

TEST(SystemTextEditor, ChoosesVisualThenEditorThenXdgOpen) {
  TempDir dir;
  dir.Write("notes.txt", "x");
  const std::string file = dir.File("notes.txt");
  struct Case {
    const char *visual, *editor, *path;  // null: unset (path: left alone)
    bool opened;
  } cases[] = {
      {nullptr, "true --some-flag", nullptr, true},            // arguments ride along
      {"/nonexistent/visual-editor", "true", nullptr, false},  // VISUAL wins even when it cannot start
      {"  ", "true", nullptr, true},                           // a blank VISUAL counts as unset
      {nullptr, nullptr, dir.path().c_str(), false},           // no xdg-open here
      {nullptr, file.c_str(), nullptr, false}};                // exists, but is not a program
  for (const Case& c : cases) {
    Environment env;
    env.Set("VISUAL", c.visual);
    env.Set("EDITOR", c.editor);
    if (c.path) env.Set("PATH", c.path);
    EXPECT_EQ(SystemTextEditor().Open(file), c.opened) << (c.visual ? c.visual : "-") << " " << (c.editor ? c.editor : "-");
  }
}

TEST(SystemTextEditor, TheEditorGetsItsArgumentsAndThePathAndIsNotWaitedFor) {
  TempDir dir;
  // Writes its arguments, one a line, once the test lets it go on.
  dir.Write("editor", "#!/bin/sh\nfor i in $(seq 500); do [ -e \"$0.go\" ] && break; sleep 0.01; done\n"
                      "printf '%s\\n' \"$@\" > \"$0.args\"\n");
  chmod(dir.File("editor").c_str(), 0755);
  Environment env;
  env.Set("VISUAL", nullptr);
  env.Set("EDITOR", (dir.File("editor") + " -n  +1").c_str());
  ASSERT_TRUE(SystemTextEditor().Open("/tmp/a file.txt"));
  dir.Write("editor.go", "");
  for (int i = 0; i < 500 && dir.Read("editor.args").empty(); ++i) usleep(10000);
  EXPECT_EQ(dir.Read("editor.args"), "-n\n+1\n/tmp/a file.txt\n");
}

TEST(EventLoopPrompts, RunAfterTheHandlerInOrderAndOneAtATime) {
  EnsureEventLoop();
  std::vector<std::string> ran;
  {
    EventLoopPrompts prompts;
    prompts.Post([&] {
      ran.push_back("first");
      prompts.Post([&] { ran.push_back("third"); });
      RunEvents();  // the event loop of an open box
      ran.push_back("first closed");
    });
    prompts.Post([&] { ran.push_back("second"); });
    EXPECT_TRUE(ran.empty());
    RunEvents();
    EXPECT_EQ(ran, (std::vector<std::string>{"first", "first closed", "second", "third"}));

    prompts.Post([&] { ran.push_back("at close"); });
    prompts.RunPending();
    RunEvents();
    EXPECT_EQ(ran.size(), 5u);
    EXPECT_EQ(ran.back(), "at close");
    prompts.Post([&] { ran.push_back("dropped"); });
  }
  RunEvents();
  EXPECT_EQ(ran.size(), 5u);
}

}  // namespace
