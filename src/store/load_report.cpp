#include "store/load_report.h"

namespace korvane {

std::string CountOf(std::size_t count, std::string_view noun) {
  std::string text = std::to_string(count) + " " + std::string(noun);
  if (count != 1) text += 's';
  return text;
}

void FileReport::Warn(std::string text) {
  ++warnings_;
  if (total_) ++*total_;
  log_.AddLine(text);
}

void FileReport::Skipped(std::size_t line, std::string_view why) {
  ++skipped_;
  Warn(file_ + ":" + std::to_string(line) + ": " + std::string(why) + ", line skipped");
}

void FileReport::Lost(std::size_t line, std::size_t lines, std::string_view why) {
  skipped_ += lines;
  Warn(file_ + ":" + std::to_string(line) + ": " + std::string(why));
}

void FileReport::Cut(std::size_t line, std::string_view why) {
  if (line != lastCut_) ++cut_;
  lastCut_ = line;
  Warn(file_ + ":" + std::to_string(line) + ": " + std::string(why));
}

void FileReport::Note(std::string_view why) { Warn(file_ + ": " + std::string(why)); }

void FileReport::Summary(std::string_view thing, std::string_view other) {
  std::string text = file_ + ": " + CountOf(taken_, thing);
  if (other_ > 0) text += ", " + CountOf(other_, other);
  if (skipped_ > 0) text += ", " + CountOf(skipped_, "line") + " skipped";
  if (cut_ > 0) text += ", " + CountOf(cut_, "line") + " cut";
  log_.AddLine(text);
}

}  // namespace korvane
