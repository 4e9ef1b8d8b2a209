// The look-up tool's reading of a reply: bytes in, the text it shows out.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

namespace modQuery {

// The reply as lines joined by CR LF: whether the answer is authoritative,
// the response code when it is not 0, then each record of the answer
// (followed by sources[i] for the i-th answer record, when given and not
// empty), authority and additional sections, one line each. A reply that
// is cut or whose names loop is shown as far as it decodes, with a line
// saying where it stops. nullopt when the reply is not the one to query
// `id` (another ID, or too short to hold one): it is ignored.
// `question` and `type` are what was asked.
std::optional<std::string> AnswerText(std::string_view reply, int32_t id,
                                      std::string_view question, int type,
                                      const std::vector<std::string>& sources = {});

}  // namespace modQuery

}  // namespace korvane
