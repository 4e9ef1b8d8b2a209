// Whole-file helpers shared by every file the program rewrites.
#pragma once

#include <optional>
#include <string>

#include "wire/services.h"

namespace korvane {

// Writes `content` to a temporary file beside `path` and renames it over
// `path`, so readers never see a torn file. False on any failure.
bool WriteFileAtomically(const std::string& path, const std::string& content);
// The whole file, or nullopt when it cannot be read.
std::optional<std::string> ReadWholeFile(const std::string& path);
// The file's modification time, or nullopt.
std::optional<DateTime> FileModificationTime(const std::string& path);

}  // namespace korvane
