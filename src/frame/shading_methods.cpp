// Public frames of the surface-normal shading. Each logs its end message only when its routine
// succeeded: a failing step returns its status after "start" alone.
#include <cfloat>

#include "KivLUTSetting.h"
#include "frame/argument_checks.h"
#include "frame/call_frame.h"
#include "frame/kiv_lut_setting_impl.h"
#include "shading/normal_map.h"
#include "shading/phong_lighting.h"

namespace KIVMV {

namespace {

long EndOnSuccess(CallFrame& frame, long status) {
  return status == LUT_OK ? frame.End(status) : status;
}

// A light or eye position the lighting cannot use: the origin, or the "no data" point.
bool IsUnsetPosition(const KivVector3d& position) {
  return position == KivVector3d(FLT_MAX, FLT_MAX, FLT_MAX) ||
         position == KivVector3d(0.0f, 0.0f, 0.0f);
}

// Only an ordered comparison refuses a coefficient, so a NaN passes.
bool OutsideUnit(float coefficient) { return coefficient < 0.0f || coefficient > 1.0f; }

long CheckLightingArguments(const KivRangeImage& img, const KivVector3d& light,
                            const KivVector3d& eye, int mode, float coefA, float coefB, float coefC,
                            float coefD) {
  if (WrappedPixelProduct(img.Height(), img.Width()) == 0) return LUT_ERR_RANGE_IMAGE_EMPTY;
  if (IsUnsetPosition(light)) return LUT_ERR_PARAM_1;
  if (IsUnsetPosition(eye)) return LUT_ERR_PARAM_2;
  if (!IsMapType(mode)) return LUT_ERR_PARAM_3;
  if (coefA <= 0.0f || coefA > 10.0f) return LUT_ERR_PARAM_4;
  if (OutsideUnit(coefB)) return LUT_ERR_PARAM_5;
  if (OutsideUnit(coefC)) return LUT_ERR_PARAM_6;
  if (OutsideUnit(coefD)) return LUT_ERR_PARAM_7;
  return LUT_OK;
}

}  // namespace

long KivLUTSetting::SetColorNormalMap(KivVector3dArray& normals, KivColorArray* out) {
  CallFrame frame(frame_entries::kSetColorNormalMap);
  if (normals.Length() <= 0) return LUT_ERR_PARAM_1;
  KivLUTSettingImpl spare;  // used only if the object's own could not be allocated
  return EndOnSuccess(frame, OwnImpl(spare).SetColorNormalMap(normals, out));
}

long KivLUTSetting::SetColorNormalMapPhong(KivRangeImage& img, KivColorArray* out) {
  CallFrame frame(frame_entries::kSetColorNormalMapPhong);
  if (WrappedPixelProduct(img.Height(), img.Width()) == 0) return LUT_ERR_RANGE_IMAGE_EMPTY;
  KivLUTSettingImpl spare;  // used only if the object's own could not be allocated
  return EndOnSuccess(frame, OwnImpl(spare).SetColorNormalMapPhong(img, out));
}

long KivLUTSetting::SetColorNormalMap(KivRangeImage& img, KivVector3d& vectorA,
                                      KivVector3d& vectorB, int mode, float coefA, float coefB,
                                      float coefC, float coefD, KivColorArray* out) {
  CallFrame frame(frame_entries::kSetColorNormalMapLighting);
  if (const long check =
          CheckLightingArguments(img, vectorA, vectorB, mode, coefA, coefB, coefC, coefD);
      check != LUT_OK) {
    return check;
  }
  KivLUTSettingImpl fresh;  // a call-local implementation object (kiv_lut_setting_impl.h)
  return EndOnSuccess(
      frame, fresh.SetColorNormalMap(img, vectorA, vectorB, mode, coefA, coefB, coefC, coefD, out));
}

long KivLUTSettingImpl::SetColorNormalMap(KivVector3dArray& normals, KivColorArray* out) {
  return ColourNormalMap(normals, out);
}

long KivLUTSettingImpl::SetColorNormalMapPhong(KivRangeImage& img, KivColorArray* out) {
  KivVector3dArray normals;
  if (const long computed = ComputeNormalsOf(img, normals); computed != LUT_OK) return computed;
  return ColourNormalMap(normals, out);
}

long KivLUTSettingImpl::SetColorNormalMap(KivRangeImage& img, KivVector3d& vectorA,
                                          KivVector3d& vectorB, int mode, float coefA, float coefB,
                                          float coefC, float coefD, KivColorArray* out) {
  return ShadeRangeImage(img, vectorA, vectorB, mode, coefA, coefB, coefC, coefD, out);
}

}  // namespace KIVMV
