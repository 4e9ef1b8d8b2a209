// Stand-ins for the operator: boxes that record what they show and answer
// as told, an editor that records what it opens, and a prompt queue that
// holds posted prompts until the test lets them run.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "app/prompts.h"

using namespace korvane;

struct ShownBox {
  std::string text;
  MessageButtons buttons;
  MessageIcon icon;
  bool topmost;
  bool defaultNo = false;
};

class RecordingBoxes : public MessageBoxes {
 public:
  MessageAnswer Show(const std::string& text, MessageButtons buttons, MessageIcon icon,
                     bool defaultNo, bool topmost) override {
    shown.push_back({text, buttons, icon, topmost, defaultNo});
    if (whileOpen) whileOpen();
    return answer;
  }
  std::vector<std::string> Texts() const {
    std::vector<std::string> texts;
    for (const ShownBox& box : shown) texts.push_back(box.text);
    return texts;
  }
  std::vector<ShownBox> shown;
  MessageAnswer answer = MessageAnswer::No;
  // Runs while a box is open, as the event loop of a real box would.
  std::function<void()> whileOpen;
};

class RecordingEditor : public TextEditor {
 public:
  bool Open(const std::string& path) override {
    opened.push_back(path);
    return works;
  }
  std::vector<std::string> opened;
  bool works = true;  // false: as if no editor could be started
};

class HeldPrompts : public PromptQueue {
 public:
  void Post(std::function<void()> prompt) override { held.push_back(std::move(prompt)); }
  // Runs the held prompts in order, and those they post; how many ran.
  int RunAll() {
    int ran = 0;
    while (!held.empty()) {
      std::function<void()> prompt = std::move(held.front());
      held.pop_front();
      prompt();
      ++ran;
    }
    return ran;
  }
  std::deque<std::function<void()>> held;
};
