#include "app/secure_random.h"

#include <sys/random.h>

#include <cerrno>
#include <random>

namespace korvane {

uint32_t SecureRandom32() {
  thread_local uint32_t block[64];
  thread_local std::size_t left = 0;
  if (left == 0) {
    std::size_t got = 0;
    auto* bytes = reinterpret_cast<char*>(block);
    while (got < sizeof block) {
      ssize_t n = getrandom(bytes + got, sizeof block - got, 0);
      if (n > 0) {
        got += static_cast<std::size_t>(n);
      } else if (n < 0 && errno != EINTR) {
        // No getrandom: the library's random device reads the same pool.
        std::random_device device;
        for (uint32_t& word : block) word = device();
        got = sizeof block;
      }
    }
    left = sizeof block / sizeof block[0];
  }
  return block[--left];
}

}  // namespace korvane
