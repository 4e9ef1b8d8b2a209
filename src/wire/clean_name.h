#pragma once

#include <string>
#include <string_view>

namespace korvane {

namespace modMain {

// Trimmed, lower case, only a-z 0-9 "-" "."; no leading, trailing or double
// dots. May return "".
std::string CleanName(std::string_view name);

}  // namespace modMain

}  // namespace korvane
