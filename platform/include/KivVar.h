#ifndef KIVMV_KIV_VAR_H_
#define KIVMV_KIV_VAR_H_

#include <vector>

#include "KivImage.h"
#include "KivPlatformExport.h"

namespace KIVMV {

// A value that is empty, an int, a double or an image.
class KIVMV_PLATFORM_API KivVar {
 public:
  KivVar() = default;
  KivVar(int value) : kind_(Kind::kInt), int_(value) {}
  KivVar(double value) : kind_(Kind::kDouble), double_(value) {}
  // Holds a copy of the image, which shares its pixels like every KivImage copy; pass
  // image.DeepCopy() for pixels of the variant's own.
  KivVar(const KivImage& image) : kind_(Kind::kImage), image_(image) {}

  // An int as is; a double truncated toward zero, or 0 when it is NaN or its truncation does not
  // fit an int; 0 when empty or an image.
  int ToInt() const;
  // An int widened exactly; a double as is; 0.0 when empty or an image.
  double ToDouble() const;
  // The image held (sharing its pixels), or an empty image when the variant holds no image.
  KivImage ToImage() const;

  bool IsInt() const { return kind_ == Kind::kInt; }
  bool IsDouble() const { return kind_ == Kind::kDouble; }
  bool IsImage() const { return kind_ == Kind::kImage; }
  bool IsEmpty() const { return kind_ == Kind::kEmpty; }

 private:
  // Plain members rather than a std::variant: GCC 12 warns (maybe-uninitialized) when it copies a
  // variant whose alternatives mix trivial numbers with a class such as KivImage.
  enum class Kind { kEmpty, kInt, kDouble, kImage };
  Kind kind_ = Kind::kEmpty;
  int int_ = 0;
  double double_ = 0.0;
  KivImage image_;
};

// An ordered list of KivVar.
class KIVMV_PLATFORM_API KivVarArray {
 public:
  void Append(const KivVar& value) { values_.push_back(value); }
  int Length() const { return static_cast<int>(values_.size()); }
  // Throws std::out_of_range for an index outside [0, Length()).
  const KivVar& operator[](int i) const;
  void Clear() { values_.clear(); }

 private:
  std::vector<KivVar> values_;
};

}  // namespace KIVMV

#endif  // KIVMV_KIV_VAR_H_
