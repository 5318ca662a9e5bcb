#ifndef KIVMV_KIV_VAR_H_
#define KIVMV_KIV_VAR_H_

#include <variant>
#include <vector>

namespace KIVMV {

// A value that is empty, an int or a double.
class KivVar {
 public:
  KivVar() = default;
  KivVar(int value) : value_(value) {}
  KivVar(double value) : value_(value) {}

  // An int as is; a double truncated toward zero, or 0 when it is NaN or its truncation does not
  // fit an int; 0 when empty.
  int ToInt() const;
  // An int widened exactly; a double as is; 0.0 when empty.
  double ToDouble() const;

  bool IsInt() const { return std::holds_alternative<int>(value_); }
  bool IsDouble() const { return std::holds_alternative<double>(value_); }
  bool IsEmpty() const { return std::holds_alternative<std::monostate>(value_); }

 private:
  std::variant<std::monostate, int, double> value_;
};

// An ordered list of KivVar.
class KivVarArray {
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
