#include "support/fakes.h"

#include <sys/time.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

using namespace korvane;

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "korvane-test-XXXXXX").string();
  if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void TempDir::Write(const std::string& name, const std::string& content) const {
  std::ofstream out(File(name), std::ios::binary | std::ios::trunc);
  out << content;
}

std::string TempDir::Read(const std::string& name) const {
  std::ifstream in(File(name), std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

void TempDir::SetModified(const std::string& name, DateTime when) const {
  struct timeval times[2];
  times[0].tv_sec = times[1].tv_sec = static_cast<time_t>(std::floor(when));
  times[0].tv_usec = times[1].tv_usec =
      static_cast<suseconds_t>((when - std::floor(when)) * 1e6);
  if (utimes(File(name).c_str(), times) != 0) throw std::runtime_error("utimes failed");
}

std::string Bytes(std::initializer_list<int> values) {
  std::string out;
  for (int v : values) out.push_back(static_cast<char>(v));
  return out;
}
