// Timing helpers shared by the benchmarks that time whole operations.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

namespace benchtiming {

inline double seconds_of(const std::function<void()>& f) {
  const auto t0 = std::chrono::steady_clock::now();
  f();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// Median of `runs` timings of `f`, in seconds.
inline double median_of(int runs, const std::function<void()>& f) {
  std::vector<double> t;
  for (int i = 0; i < runs; ++i) t.push_back(seconds_of(f));
  std::sort(t.begin(), t.end());
  return t[t.size() / 2];
}

inline std::string fmt_time(double s) {
  char buf[64];
  if (s >= 1) std::snprintf(buf, sizeof buf, "%.2f s", s);
  else if (s >= 1e-3) std::snprintf(buf, sizeof buf, "%.2f ms", s * 1e3);
  else std::snprintf(buf, sizeof buf, "%.1f µs", s * 1e6);
  return buf;
}

}  // namespace benchtiming
