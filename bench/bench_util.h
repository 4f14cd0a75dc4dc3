// Small helpers shared by the benchmark programs: a clock and the narrowing of messages.
#pragma once

#include <chrono>
#include <string>

namespace corvi::bench {

using Clock = std::chrono::steady_clock;

inline double Seconds(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// A wide message as ASCII, '?' for the rest.
inline std::string Narrow(const wchar_t* text) {
  std::string out;
  for (; text != nullptr && *text != 0; ++text) {
    out.push_back(*text < 0x80 ? static_cast<char>(*text) : '?');
  }
  return out;
}

}  // namespace corvi::bench
