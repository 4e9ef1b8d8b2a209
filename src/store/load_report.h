// What a loader tells the operator about one file: every line it skipped or
// cut, as "file:line: why", and a summary when the file is done
// ("named.perm: 42 records, 2 lines skipped"). Shared by every file the
// program loads: the record files, the hosts file, perm.dat, the lease file
// and korvane.ini.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "wire/services.h"

namespace korvane {

class FileReport {
 public:
  // `file` is how the lines name the file; every warning also counts in
  // `*total` when it is given.
  FileReport(LogSink& log, std::string file, int* total = nullptr)
      : log_(log), file_(std::move(file)), total_(total) {}

  // "file:line: why, line skipped".
  void Skipped(std::size_t line, std::string_view why);
  // `lines` lines lost at once from `line` on: "file:line: why".
  void Lost(std::size_t line, std::size_t lines, std::string_view why);
  // A line that was read, but not all of it: "file:line: why".
  void Cut(std::size_t line, std::string_view why);
  // A warning about the whole file: "file: why".
  void Note(std::string_view why);

  // One more line read into what the file holds.
  void Took() { ++taken_; }
  void TookOther() { ++other_; }
  // "file: N things[, M others][, K lines skipped][, J lines cut]", the
  // nouns given in the singular.
  void Summary(std::string_view thing, std::string_view other = "");

  int warnings() const { return warnings_; }
  const std::string& file() const { return file_; }

 private:
  void Warn(std::string text);

  LogSink& log_;
  std::string file_;
  int* total_;
  int warnings_ = 0;
  std::size_t taken_ = 0, other_ = 0, skipped_ = 0, cut_ = 0, lastCut_ = 0;
};

// "1 line", "2 lines": `noun` is the singular; the plural adds "s".
std::string CountOf(std::size_t count, std::string_view noun);

}  // namespace korvane
