#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <climits>
#include <cmath>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "Kiv3DDataConvert.h"
#include "platform_3d_fault.h"
#include "range_pixel_rules.h"

namespace KIVMV {
namespace {

// How the values of one conversion change: to physical heights for a floating-point target, kept
// for an integer one.
struct ZScale {
  bool physical = false;
  double offsetZ = 0.0;
  double resolutionZ = 1.0;
};

template <typename S, typename D>
inline D ConvertPixel(S v, const ZScale& scale) {
  if (!internal::IsValidPixel(v)) return internal::RangePixel<D>::kMarker;
  const double value = static_cast<double>(v);
  if constexpr (std::is_floating_point_v<D>) {
    const double z =
        scale.physical ? internal::PhysicalZ(value, scale.offsetZ, scale.resolutionZ) : value;
    return internal::SaturateToValid<D>(z);
  } else {
    return internal::RoundToValidInteger<D>(value);
  }
}

template <typename S, typename D>
void ConvertRow(const S* in, D* out, int width, const ZScale& scale) {
  for (int col = 0; col < width; ++col) out[col] = ConvertPixel<S, D>(in[col], scale);
}

template <typename S, typename D>
class ConvertRowsBody {
 public:
  ConvertRowsBody(const cv::Mat& in, cv::Mat& out, const ZScale& scale)
      : in_(in), out_(out), scale_(scale) {}

  void operator()(const tbb::blocked_range<int>& rows) const {
    internal::ThrowIfPlatform3DFault(detail::Platform3DFault::kWork);
    for (int row = rows.begin(); row != rows.end(); ++row) {
      ConvertRow<S, D>(in_.ptr<S>(row), out_.ptr<D>(row), in_.cols, scale_);
    }
  }

 private:
  const cv::Mat& in_;
  cv::Mat& out_;
  const ZScale& scale_;
};

}  // namespace

long Kiv3DDataConvert::RangeImageDataTypeConvert(KivRangeImage& src, KivRangeImage* dst, int type) {
  if (dst == nullptr) return kKivPlatformNullArgument;
  if (!IsKnownSampleType(type)) return kKivPlatformUnsupportedType;
  if (!internal::PixelMatrixMatches(src)) return kKivPlatformInvalidArgument;
  if (static_cast<int64_t>(src.Width()) * SampleSize(type) > INT_MAX) {
    return kKivPlatformInvalidArgument;
  }
  const bool toFloating = type == KIV_DATA_F32 || type == KIV_DATA_F64;
  if (toFloating && !(std::isfinite(src.ResolutionZ()) && std::isfinite(src.OffsetZ()))) {
    return kKivPlatformInvalidArgument;
  }

  try {
    const ZScale scale{toFloating, src.OffsetZ(), src.ResolutionZ()};
    internal::ThrowIfPlatform3DFault(detail::Platform3DFault::kAllocation);
    internal::ThrowIfPlatform3DFault(detail::Platform3DFault::kOpenCvAllocation);
    // Built beside the source and moved in at the end, so src == dst reads the old pixels
    // throughout and a failure leaves dst as it was.
    KivRangeImage result(src.Width(), src.Height(), static_cast<KivDataType>(type));
    result.SetType(src.Type());
    if (toFloating) {
      result.SetResolution(src.ResolutionX(), src.ResolutionY(), 1.0);
      result.SetOffset(src.OffsetX(), src.OffsetY(), 0.0);
    } else {
      result.SetResolution(src.ResolutionX(), src.ResolutionY(), src.ResolutionZ());
      result.SetOffset(src.OffsetX(), src.OffsetY(), src.OffsetZ());
    }

    if (src.Width() > 0 && src.Height() > 0) {
      const cv::Mat& in = src.Mat();
      cv::Mat& out = result.Mat();
      const tbb::blocked_range<int> rows(0, src.Height(), internal::RowGrain(src.Height()));
      internal::VisitRangePixelType(src.DataType(), [&](auto s) {
        internal::VisitRangePixelType(type, [&](auto d) {
          using S = decltype(s);
          using D = decltype(d);
          tbb::parallel_for(rows, ConvertRowsBody<S, D>(in, out, scale));
        });
      });
    }
    *dst = std::move(result);
    return kKivPlatformOk;
  } catch (...) {
    return internal::StatusOfCurrentException();
  }
}

}  // namespace KIVMV
