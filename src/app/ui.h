// What the shell asks of the person at the screen: message boxes and the
// text editor. The windowed shell implements these with Qt; headless runs and
// tests use the implementations below or their own recorders.
#pragma once

#include <cstdio>
#include <string>

namespace korvane {

enum class MessageButtons { OK, OKCancel, YesNo };
enum class MessageIcon { None, Critical, Question, Exclamation, Information };
enum class MessageAnswer { OK, Cancel, Yes, No };

class MessageBoxes {
 public:
  virtual ~MessageBoxes() = default;
  // Shows `text` (lines separated by "\n") and waits for the answer.
  // `defaultNo` makes No the default button of a Yes/No box; `topmost` keeps
  // the box above all other windows.
  virtual MessageAnswer Show(const std::string& text, MessageButtons buttons = MessageButtons::OK,
                             MessageIcon icon = MessageIcon::None, bool defaultNo = false,
                             bool topmost = false) = 0;
};

// For runs without a display: prints the text and takes the cautious answer
// (OK for an OK box, Cancel for OK/Cancel, No for Yes/No).
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

}  // namespace korvane
