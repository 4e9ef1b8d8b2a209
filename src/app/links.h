// The two web pages the menus open in the browser. Addresses under
// .invalid: the product has no public site of its own here.
#pragma once

namespace korvane::modMain {

inline constexpr const char* kWebsitePage = "https://korvane.example.invalid/";
inline constexpr const char* kRegisterDomainPage = "https://korvane.example.invalid/register-domain";

}  // namespace korvane::modMain
