#include "app/prompts.h"

#include <QProcess>
#include <QStringList>

#include <cstdlib>
#include <sstream>
#include <vector>

namespace korvane {

MessageAnswer HeadlessMessageBoxes::Show(const std::string& text, MessageButtons buttons,
                                         MessageIcon, bool, bool) {
  std::string told = text;
  if (buttons != MessageButtons::OK) {
    const std::size_t paragraph = told.rfind("\n\n");
    told.erase(paragraph == std::string::npos ? 0 : paragraph);
  }
  if (out_ && !told.empty()) {
    std::fprintf(out_, "%s\n", told.c_str());
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

}  // namespace

bool SystemTextEditor::Open(const std::string& path) {
  std::vector<std::string> words = EditorCommand();
  QStringList arguments;
  for (std::size_t i = 1; i < words.size(); ++i) arguments << QString::fromStdString(words[i]);
  arguments << QString::fromStdString(path);
  // Detached: the editor outlives the server and is never its zombie.
  return QProcess::startDetached(QString::fromStdString(words[0]), arguments);
}

void EventLoopPrompts::Post(std::function<void()> prompt) {
  waiting_.push_back(std::move(prompt));
  if (drainPosted_) return;
  drainPosted_ = true;
  QMetaObject::invokeMethod(
      &context_,
      [this] {
        drainPosted_ = false;
        RunPending();
      },
      Qt::QueuedConnection);
}

void EventLoopPrompts::RunPending() {
  if (running_) return;  // the outer run takes the rest when its box closes
  running_ = true;
  while (!waiting_.empty()) {
    std::function<void()> prompt = std::move(waiting_.front());
    waiting_.pop_front();
    prompt();
  }
  running_ = false;
}

}  // namespace korvane
