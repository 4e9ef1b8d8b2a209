// Building DNS message bytes by hand, for tests of the decoder and the engine.
#pragma once

#include <string>

#include "support/fakes.h"

std::string U16(int v);
std::string U32(long v);
// A name in uncompressed wire form: "www.example." -> 3www7example0.
std::string Wire(const std::string& name);
// A compression pointer to offset `at`.
inline std::string Ptr(int at) { return Bytes({0xC0 | (at >> 8), at & 255}); }
// A record of class IN; `owner` in wire form.
std::string RR(const std::string& owner, int type, long ttl, const std::string& rdata);
