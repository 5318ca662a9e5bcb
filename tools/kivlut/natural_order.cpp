#include "natural_order.h"

#include <cstddef>

namespace kivlut {
namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The digit run starting at `begin`, without its leading zeros: [start, end).
void DigitRun(const std::string& text, std::size_t begin, std::size_t* start, std::size_t* end) {
  std::size_t i = begin;
  while (i < text.size() && IsDigit(text[i])) ++i;
  *end = i;
  std::size_t first = begin;
  while (first + 1 < i && text[first] == '0') ++first;
  *start = first;
}

}  // namespace

bool NaturalLess(const std::string& a, const std::string& b) {
  std::size_t i = 0;
  std::size_t j = 0;
  while (i < a.size() && j < b.size()) {
    if (IsDigit(a[i]) && IsDigit(b[j])) {
      std::size_t aStart = 0, aEnd = 0, bStart = 0, bEnd = 0;
      DigitRun(a, i, &aStart, &aEnd);
      DigitRun(b, j, &bStart, &bEnd);
      // Without leading zeros the longer run is the larger number; of equal length, the first
      // differing digit decides. Numbers of any length compare, none overflows.
      const std::size_t aLength = aEnd - aStart;
      const std::size_t bLength = bEnd - bStart;
      if (aLength != bLength) return aLength < bLength;
      const int order = a.compare(aStart, aLength, b, bStart, bLength);
      if (order != 0) return order < 0;
      i = aEnd;
      j = bEnd;
      continue;
    }
    const auto ac = static_cast<unsigned char>(a[i]);
    const auto bc = static_cast<unsigned char>(b[j]);
    if (ac != bc) return ac < bc;
    ++i;
    ++j;
  }
  if ((i < a.size()) != (j < b.size())) return j < b.size();
  return a < b;
}

}  // namespace kivlut
