// What the shell asks of the person at the screen: message boxes and the
// text editor, and the queue that holds back a box until the handler that
// wanted it has returned. The windowed shell implements the boxes with Qt;
// headless runs and tests use the implementations below or their own
// recorders.
#pragma once

#include <QObject>

#include <cstdio>
#include <deque>
#include <functional>
#include <string>

namespace korvane {

enum class MessageButtons { OK, OKCancel, YesNo };
enum class MessageIcon { None, Critical, Question, Exclamation, Information };
enum class MessageAnswer { OK, Cancel, Yes, No };

class MessageBoxes {
 public:
  virtual ~MessageBoxes() = default;
  // Shows `text` (lines separated by "\n") and waits for the answer; a
  // windowed implementation runs a nested event loop meanwhile.
  // `defaultNo` makes No the default button of a Yes/No box; `topmost` keeps
  // the box above all other windows.
  virtual MessageAnswer Show(const std::string& text, MessageButtons buttons = MessageButtons::OK,
                             MessageIcon icon = MessageIcon::None, bool defaultNo = false,
                             bool topmost = false) = 0;
};

// For runs without a display: takes the cautious answer (OK for an OK box,
// Cancel for OK/Cancel, No for Yes/No) and prints the text, but not the
// question that nobody can answer: the last paragraph of a box with a choice.
class HeadlessMessageBoxes : public MessageBoxes {
 public:
  explicit HeadlessMessageBoxes(std::FILE* out = stderr) : out_(out) {}
  MessageAnswer Show(const std::string& text, MessageButtons buttons, MessageIcon icon,
                     bool defaultNo, bool topmost) override;

 private:
  std::FILE* out_;
};

class TextEditor {
 public:
  virtual ~TextEditor() = default;
  // Opens `path` in the user's editor without waiting for it to close.
  // False when no editor could be started.
  virtual bool Open(const std::string& path) = 0;
};

// $VISUAL, else $EDITOR (either may carry arguments, split at blanks), else
// xdg-open.
class SystemTextEditor : public TextEditor {
 public:
  bool Open(const std::string& path) override;
};

// Runs a prompt once the handler that is running has returned. A box opened
// from inside an engine would run the event loop there, and a datagram or a
// timer tick could then enter the engine again.
class PromptQueue {
 public:
  virtual ~PromptQueue() = default;
  virtual void Post(std::function<void()> prompt) = 0;
};

// Runs the prompts from the Qt event loop of this thread, in order and one
// at a time (a prompt posted while another's box is open waits for it).
// Prompts still waiting when the queue goes are dropped.
class EventLoopPrompts : public PromptQueue {
 public:
  void Post(std::function<void()> prompt) override;
  // Runs the waiting prompts now: for a handler of the event loop that may
  // not see the loop again (the close).
  void RunPending();

 private:
  std::deque<std::function<void()>> waiting_;
  bool drainPosted_ = false;
  bool running_ = false;
  QObject context_;
};

}  // namespace korvane
