// Fuzz bytes to values, and values back to fuzz bytes.
//
// Every value a fuzz target needs is read through one of the helpers below, written once as a
// template over an "archive": FuzzReader takes the value out of libFuzzer's input through
// FuzzedDataProvider, FuzzWriter appends the bytes that make FuzzReader give back exactly that
// value. The seed-corpus generator describes its inputs as values and lets FuzzWriter produce the
// bytes, so a seed cannot drift from the layout the targets read.
//
// Each helper follows the same three steps: turn the value into its encoded form (only meaningful
// when writing), pass the encoded form through the archive (reading overwrites it), and decode it
// back into the value. Decoding what was just encoded gives the value bit for bit.
#pragma once

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

namespace kivfuzz {

// Reads values from a fuzz input. Integers come off the end of the input and byte blocks off the
// front, as FuzzedDataProvider arranges it; an exhausted input reads as the lowest value of each
// range and as empty blocks.
class FuzzReader {
 public:
  FuzzReader(const uint8_t* data, size_t size) : provider_(data, size) {}

  template <typename T>
  void Integer(T& value, T lowest, T highest) {
    value = provider_.ConsumeIntegralInRange<T>(lowest, highest);
  }

  void Block(std::vector<uint8_t>& bytes, size_t maxSize) {
    size_t size = 0;
    Integer<size_t>(size, 0, maxSize);
    bytes = provider_.ConsumeBytes<uint8_t>(size);
  }

 private:
  FuzzedDataProvider provider_;
};

// Records values as the bytes FuzzReader turns back into them.
class FuzzWriter {
 public:
  // `value` must lie in [lowest, highest].
  template <typename T>
  void Integer(T& value, T lowest, T highest) {
    static_assert(std::is_integral<T>::value, "integers only");
    const uint64_t range = static_cast<uint64_t>(highest) - static_cast<uint64_t>(lowest);
    const uint64_t offset = static_cast<uint64_t>(value) - static_cast<uint64_t>(lowest);
    // The reader takes one byte, most significant first, for every eight bits of the range.
    int bytes = 0;
    while (bytes < static_cast<int>(sizeof(T)) && (range >> (8 * bytes)) > 0) ++bytes;
    for (int i = bytes - 1; i >= 0; --i) {
      tail_.push_back(static_cast<uint8_t>((offset >> (8 * i)) & 0xFFu));
    }
  }

  void Block(std::vector<uint8_t>& bytes, size_t maxSize) {
    size_t size = std::min(bytes.size(), maxSize);
    Integer<size_t>(size, 0, maxSize);
    front_.insert(front_.end(), bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size));
  }

  // The input: the blocks in order, then the integers, last-read first.
  std::vector<uint8_t> Bytes() const {
    std::vector<uint8_t> input(front_);
    input.insert(input.end(), tail_.rbegin(), tail_.rend());
    return input;
  }

 private:
  std::vector<uint8_t> front_;
  std::vector<uint8_t> tail_;
};

// ---- Value helpers -----------------------------------------------------------------------------

template <class Archive>
bool Flag(Archive& archive, bool& value) {
  uint8_t bit = value ? 1 : 0;
  archive.Integer(bit, uint8_t{0}, uint8_t{1});
  value = bit != 0;
  return value;
}

// One of `count` alternatives, 0 .. count - 1.
template <class Archive>
int Choice(Archive& archive, int& value, int count) {
  archive.Integer(value, 0, count - 1);
  return value;
}

// An image side or array length in 0..limit, small values far more likely: the size class comes
// first (up to 3, 16, 64 or `limit`), so most inputs stay fast and every size can still be reached.
template <class Archive>
int Extent(Archive& archive, int& value, int limit) {
  static constexpr int kClassTops[] = {3, 16, 64};
  int sizeClass = 3;
  for (int c = 0; c < 3; ++c) {
    if (value <= kClassTops[c]) {
      sizeClass = c;
      break;
    }
  }
  archive.Integer(sizeClass, 0, 3);
  const int top = sizeClass < 3 ? std::min(kClassTops[sizeClass], limit) : limit;
  value = std::clamp(value, 0, top);
  archive.Integer(value, 0, top);
  return value;
}

// An int that is usually in [lowest, highest] and sometimes any 32-bit value.
template <class Archive>
int NearInt(Archive& archive, int& value, int lowest, int highest) {
  bool wide = value < lowest || value > highest;
  if (Flag(archive, wide)) {
    archive.Integer(value, INT_MIN, INT_MAX);
  } else {
    archive.Integer(value, lowest, highest);
  }
  return value;
}

// A colour-map number: -3..14 around the accepted 0..10, or any int.
template <class Archive>
int MapType(Archive& archive, int& value) {
  return NearInt(archive, value, -3, 14);
}

// Values a bound, resolution, coefficient or pixel is most likely to break on.
inline const std::vector<double>& SpecialDoubles() {
  static const std::vector<double> values = {
      0.0,
      -0.0,
      1.0,
      -1.0,
      0.5,
      0.25,
      0.75,
      2.0,
      10.0,
      255.0,
      256.0,
      1023.0,
      65535.0,
      1e-8,
      1e-4,
      std::numeric_limits<double>::denorm_min(),
      static_cast<double>(FLT_MAX),
      -static_cast<double>(FLT_MAX),
      DBL_MAX,
      -DBL_MAX,
      static_cast<double>(INT_MAX),
      static_cast<double>(INT_MIN),
      9.3e18,
      -9.3e18,
      std::numeric_limits<double>::infinity(),
      -std::numeric_limits<double>::infinity(),
      std::numeric_limits<double>::quiet_NaN(),
  };
  return values;
}

template <typename T>
bool SameBits(T a, T b) {
  return std::memcmp(&a, &b, sizeof(T)) == 0;
}

// A double: one of the special values, a multiple of 1/64 between -512 and 512, or any bit pattern.
template <class Archive>
double Real(Archive& archive, double& value) {
  const std::vector<double>& specials = SpecialDoubles();
  const int count = static_cast<int>(specials.size());
  int kind = count + 1;  // any bit pattern
  for (int i = 0; i < count; ++i) {
    if (SameBits(value, specials[static_cast<size_t>(i)])) kind = i;
  }
  if (kind == count + 1 && std::fabs(value) <= 512.0 && value * 64.0 == std::floor(value * 64.0) &&
      !SameBits(value, -0.0)) {
    kind = count;
  }
  archive.Integer(kind, 0, count + 1);
  if (kind < count) {
    value = specials[static_cast<size_t>(kind)];
  } else if (kind == count) {
    int sixtyFourths = 0;
    if (std::fabs(value) <= 512.0) sixtyFourths = static_cast<int>(value * 64.0);
    archive.Integer(sixtyFourths, -512 * 64, 512 * 64);
    value = sixtyFourths / 64.0;
  } else {
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    archive.Integer(bits, uint64_t{0}, UINT64_MAX);
    std::memcpy(&value, &bits, sizeof bits);
  }
  return value;
}

// A float: the special values (narrowed where they fit), multiples of 1/64, or any bit pattern.
template <class Archive>
float Real32(Archive& archive, float& value) {
  static const std::vector<float> specials = [] {
    std::vector<float> fitting;
    for (double v : SpecialDoubles()) {
      if (std::isnan(v) || std::isinf(v) || std::fabs(v) <= static_cast<double>(FLT_MAX)) {
        fitting.push_back(static_cast<float>(v));
      }
    }
    fitting.push_back(FLT_MIN);
    fitting.push_back(1e-30f);
    fitting.push_back(10.0001f);
    return fitting;
  }();
  const int count = static_cast<int>(specials.size());
  int kind = count + 1;
  for (int i = 0; i < count; ++i) {
    if (SameBits(value, specials[static_cast<size_t>(i)])) kind = i;
  }
  if (kind == count + 1 && std::fabs(value) <= 512.0f &&
      value * 64.0f == std::floor(value * 64.0f) && !SameBits(value, -0.0f)) {
    kind = count;
  }
  archive.Integer(kind, 0, count + 1);
  if (kind < count) {
    value = specials[static_cast<size_t>(kind)];
  } else if (kind == count) {
    int sixtyFourths = 0;
    if (std::fabs(value) <= 512.0f) sixtyFourths = static_cast<int>(value * 64.0f);
    archive.Integer(sixtyFourths, -512 * 64, 512 * 64);
    value = static_cast<float>(sixtyFourths) / 64.0f;
  } else {
    uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    archive.Integer(bits, uint32_t{0}, UINT32_MAX);
    std::memcpy(&value, &bits, sizeof bits);
  }
  return value;
}

// A colour of four int components: usually bytes, sometimes any ints.
struct ColourValue {
  int c[4] = {0, 0, 0, 0};
};

template <class Archive>
void Colour(Archive& archive, ColourValue& colour) {
  for (int& component : colour.c) NearInt(archive, component, 0, 255);
}

}  // namespace kivfuzz
