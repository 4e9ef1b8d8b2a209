// Numbers nobody can predict: the kernel's cryptographic generator.
#pragma once

#include <cstdint>

namespace korvane {

// From getrandom(2), read a block at a time.
uint32_t SecureRandom32();

}  // namespace korvane
