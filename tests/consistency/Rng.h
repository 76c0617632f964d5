// A small seeded random source whose sequence is the same on every platform and library
// (the standard distributions are not), so that a seed names one stream for good.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace consistency {

class Rng {
 public:
  explicit Rng(uint64_t seed) : state_(seed) {}

  // SplitMix64.
  uint64_t next() {
    uint64_t z = (state_ += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  // Uniform in [0, n); n > 0. The modulo bias is irrelevant at these sizes.
  uint64_t below(uint64_t n) { return next() % n; }
  int range(int lo, int hi) { return lo + int(below(uint64_t(hi - lo + 1))); }
  bool chance(unsigned percent) { return below(100) < percent; }
  template <class T>
  const T& pick(const std::vector<T>& v) {
    return v[below(v.size())];
  }
  // An index drawn by weight.
  std::size_t weighted(std::initializer_list<unsigned> weights) {
    unsigned total = 0;
    for (unsigned w : weights) total += w;
    uint64_t r = below(total);
    std::size_t i = 0;
    for (unsigned w : weights) {
      if (r < w) return i;
      r -= w;
      ++i;
    }
    return 0;
  }

 private:
  uint64_t state_;
};

}  // namespace consistency
