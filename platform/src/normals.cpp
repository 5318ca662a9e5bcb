#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <utility>

#include "Kiv3DDataOperation.h"
#include "KivConfiguration.h"
#include "platform_3d_fault.h"
#include "range_pixel_rules.h"

namespace KIVMV {

namespace {

struct Vec3 {
  double x;
  double y;
  double z;
};

inline Vec3 Minus(const Vec3& a, const Vec3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }

inline Vec3 Cross(const Vec3& a, const Vec3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

inline double Dot(const Vec3& a, const Vec3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

// The unit vector along v; false when v is zero or its length is not finite, since such a vector
// has no direction.
inline bool Unit(const Vec3& v, Vec3* unit) {
  const double length = std::sqrt(Dot(v, v));
  if (!(length > 0.0) || !std::isfinite(length)) return false;
  *unit = {v.x / length, v.y / length, v.z / length};
  return true;
}

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

// The image's pixels as physical points. The X offset and resolution go with the row index and the
// Y ones with the column index, as everywhere in the suite.
template <typename T>
class PointGrid {
 public:
  explicit PointGrid(const KivRangeImage& image)
      : pixels_(image.Mat()),
        width_(image.Width()),
        height_(image.Height()),
        resolutionX_(image.ResolutionX()),
        resolutionY_(image.ResolutionY()),
        resolutionZ_(image.ResolutionZ()),
        offsetX_(image.OffsetX()),
        offsetY_(image.OffsetY()),
        offsetZ_(image.OffsetZ()) {}

  int Width() const { return width_; }

  // False for a position outside the image or an invalid pixel.
  bool Point(int row, int col, Vec3* p) const {
    if (row < 0 || row >= height_ || col < 0 || col >= width_) return false;
    const T v = pixels_.ptr<T>(row)[col];
    if (!internal::IsValidPixel(v)) return false;
    *p = {(col - offsetY_) * resolutionY_, (row - offsetX_) * resolutionX_,
          internal::PhysicalZ(static_cast<double>(v), offsetZ_, resolutionZ_)};
    return true;
  }

 private:
  const cv::Mat& pixels_;
  int width_;
  int height_;
  double resolutionX_;
  double resolutionY_;
  double resolutionZ_;
  double offsetX_;
  double offsetY_;
  double offsetZ_;
};

// A derivative from the pixel and its two neighbours in one direction: central when both are
// valid, otherwise one-sided toward the valid one, the +1 side first.
inline bool Tangent(const Vec3& centre, bool hasMinus, const Vec3& minus, bool hasPlus,
                    const Vec3& plus, Vec3* tangent) {
  if (hasMinus && hasPlus) {
    *tangent = Minus(plus, minus);
  } else if (hasPlus) {
    *tangent = Minus(plus, centre);
  } else if (hasMinus) {
    *tangent = Minus(centre, minus);
  } else {
    return false;
  }
  return true;
}

// The normal and bend angle of one pixel; serial, so the parallel body only splits the rows.
template <typename T>
void NormalAt(const PointGrid<T>& grid, int row, int col, KivVector3d* normal, float* bend) {
  *normal = KivVector3d(kNaN, kNaN, kNaN);
  if (bend != nullptr) *bend = kNaN;
  Vec3 centre{}, left{}, right{}, up{}, down{};
  if (!grid.Point(row, col, &centre)) return;
  const bool hasLeft = grid.Point(row, col - 1, &left);
  const bool hasRight = grid.Point(row, col + 1, &right);
  const bool hasUp = grid.Point(row - 1, col, &up);
  const bool hasDown = grid.Point(row + 1, col, &down);

  Vec3 alongCol{}, alongRow{}, unit{};
  if (Tangent(centre, hasLeft, left, hasRight, right, &alongCol) &&
      Tangent(centre, hasUp, up, hasDown, down, &alongRow) &&
      Unit(Cross(alongCol, alongRow), &unit)) {
    // Toward the viewer: the camera looks down the z axis.
    if (unit.z < 0.0) unit = {-unit.x, -unit.y, -unit.z};
    *normal = KivVector3d(static_cast<float>(unit.x), static_cast<float>(unit.y),
                          static_cast<float>(unit.z));
  }

  if (bend == nullptr || !(hasLeft && hasRight && hasUp && hasDown)) return;
  Vec3 forward{}, backward{};
  if (Unit(Cross(Minus(right, centre), Minus(down, centre)), &forward) &&
      Unit(Cross(Minus(centre, left), Minus(centre, up)), &backward)) {
    // atan2 of sine and cosine keeps small angles accurate where acos of the dot would not.
    const double sine = std::sqrt(Dot(Cross(forward, backward), Cross(forward, backward)));
    *bend = static_cast<float>(std::atan2(sine, Dot(forward, backward)));
  }
}

template <typename T>
class NormalsBody {
 public:
  NormalsBody(const PointGrid<T>& grid, KivVector3d* normals, float* bends)
      : grid_(grid), normals_(normals), bends_(bends) {}

  void operator()(const tbb::blocked_range<int>& rows) const {
    internal::ThrowIfPlatform3DFault(detail::Platform3DFault::kWork);
    const int width = grid_.Width();
    for (int row = rows.begin(); row != rows.end(); ++row) {
      const std::size_t first = static_cast<std::size_t>(row) * static_cast<std::size_t>(width);
      for (int col = 0; col < width; ++col) {
        NormalAt(grid_, row, col, normals_ + first + col,
                 bends_ == nullptr ? nullptr : bends_ + first + col);
      }
    }
  }

 private:
  const PointGrid<T>& grid_;
  KivVector3d* normals_;
  float* bends_;
};

bool GeometryIsFinite(const KivRangeImage& image) {
  const double values[] = {image.ResolutionX(), image.ResolutionY(), image.ResolutionZ(),
                           image.OffsetX(),     image.OffsetY(),     image.OffsetZ()};
  return std::all_of(std::begin(values), std::end(values),
                     [](double v) { return std::isfinite(v); });
}

}  // namespace

namespace internal {

int RowGrain(int rows) {
  int chunks = 0;
  KivGetStaticTBB(&chunks);
  if (chunks < 1) chunks = cv::getNumberOfCPUs();
  return std::max(1, rows / std::max(1, chunks));
}

long StatusOfCurrentException() noexcept {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return kKivPlatformOutOfMemory;
  } catch (const cv::Exception& e) {
    // OpenCV reports a failed allocation of matrix memory this way rather than with bad_alloc.
    return e.code == cv::Error::StsNoMem ? kKivPlatformOutOfMemory : kKivPlatformInternalError;
  } catch (...) {
    return kKivPlatformInternalError;
  }
}

}  // namespace internal

long Kiv3DDataOperation::ComputeNormals(KivRangeImage& image, KivVector3dArray* normals,
                                        Kiv3DFloatArray* aux) {
  if (normals == nullptr) return kKivPlatformNullArgument;
  if (!internal::PixelMatrixMatches(image) || !GeometryIsFinite(image)) {
    return kKivPlatformInvalidArgument;
  }
  const int64_t count = static_cast<int64_t>(image.Width()) * image.Height();
  if (count > INT_MAX) return kKivPlatformInvalidArgument;

  try {
    internal::ThrowIfPlatform3DFault(detail::Platform3DFault::kAllocation);
    internal::ThrowIfPlatform3DFault(detail::Platform3DFault::kOpenCvAllocation);
    // Filled beside the outputs and moved in at the end, so a failure leaves them as they were.
    KivVector3dArray result;
    result.SetSize(static_cast<int>(count));
    Kiv3DFloatArray bends(aux == nullptr ? 0 : static_cast<int>(count));

    if (count > 0) {
      KivVector3d* first = &result[0];
      float* firstBend = aux == nullptr ? nullptr : bends.Data();
      const tbb::blocked_range<int> rows(0, image.Height(), internal::RowGrain(image.Height()));
      internal::VisitRangePixelType(image.DataType(), [&](auto pixel) {
        using T = decltype(pixel);
        const PointGrid<T> grid(image);
        tbb::parallel_for(rows, NormalsBody<T>(grid, first, firstBend));
      });
    }
    *normals = std::move(result);
    if (aux != nullptr) *aux = std::move(bends);
    return kKivPlatformOk;
  } catch (...) {
    return internal::StatusOfCurrentException();
  }
}

}  // namespace KIVMV
