// What a dialog's check on OK returns: the message to show ("" when the
// fields may be taken), the field to put the focus on, and whether the box
// carries the information icon (a missing entry) or the exclamation icon.
#pragma once

#include <string>

namespace korvane {

template <class Field>
struct FormCheck {
  std::string message;
  Field focus{};
  bool information = false;

  bool ok() const { return message.empty(); }
  bool operator==(const FormCheck&) const = default;
};

// A refusal: messages that ask for a missing entry ("Please enter ...")
// carry the information icon.
template <class Field>
FormCheck<Field> Refuse(std::string message, Field focus) {
  const bool asks = message.rfind("Please enter", 0) == 0;
  return {std::move(message), focus, asks};
}

}  // namespace korvane
