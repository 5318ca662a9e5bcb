// A program outside the library's tree: one colour query, one platform type, and one call of each
// kind of the library's own API beyond KivLUTSetting, through the installed headers.
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

#include "KivColorBar.h"
#include "KivColorTable.h"
#include "KivColoring.h"
#include "KivLUTSetting.h"
#include "KivMultiLanguage.h"
#ifdef CONSUMER_HAS_DIALOG
#include "KivLUTSettingDlg.h"
#endif

namespace {

bool Failed(const char* what, long status) {
  if (status == KIVMV::KIV_EXT_OK) return false;
  std::printf("%s failed: %s\n", what, KIVMV::KivExtStatusName(status));
  return true;
}

// A table by name and one from stops, a 4 x 3 float image with a hole coloured through each, two
// normals, and a colour bar attached to a picture.
bool ExtensionsWork() {
  KIVMV::KivColorTable viridis, custom;
  if (Failed("ByName", KIVMV::KivColorTable::ByName("viridis", &viridis)) ||
      Failed("FromStops", KIVMV::KivColorTable::FromStops(
                              {{0.0, {0, 0, 0}}, {1.0, {255, 255, 255}}}, &custom))) {
    return false;
  }
  KIVMV::KivRangeImage image(4, 3, KIVMV::KivDataType(5));
  float* heights = image.Ptr<float>();
  for (int i = 0; i < 12; ++i) heights[i] = static_cast<float>(i);
  heights[5] = std::numeric_limits<float>::quiet_NaN();
  KIVMV::KivColoringOptions options;
  options.mode = KIVMV::KivColoringMode::kEqualised;
  KIVMV::KivColorArray colours;
  KIVMV::KivColoringInfo info;
  if (Failed("KivColorRangeImage",
             KIVMV::KivColorRangeImage(image, viridis, options, &colours, &info)) ||
      Failed("KivColorRangeImage from stops",
             KIVMV::KivColorRangeImage(image, custom, KIVMV::KivColoringOptions{}, &colours))) {
    return false;
  }
  if (info.validCount != 11 || info.noDataCount != 1) {
    std::puts("KivColorRangeImage counted the hole wrongly");
    return false;
  }
  KIVMV::KivVector3dArray normals;
  normals.SetSize(2);
  normals[0] = KIVMV::KivVector3d(0.0f, 0.0f, 1.0f);
  KIVMV::KivColorArray normalColours;
  if (Failed("KivColorNormalMap", KIVMV::KivColorNormalMap(normals, &normalColours))) {
    return false;
  }
  KIVMV::KivColorBarOptions barOptions;
  cv::Mat bar, picture;
  if (Failed("KivDrawColorBar", KIVMV::KivDrawColorBar(viridis, info, barOptions, &bar)) ||
      Failed("KivAttachColorBar",
             KIVMV::KivAttachColorBar(colours, 4, 3, bar, barOptions, &picture))) {
    return false;
  }
  std::printf("extensions: bar %dx%d, picture %dx%d\n", bar.cols, bar.rows, picture.cols,
              picture.rows);
  return !bar.empty() && picture.cols > bar.cols;
}

}  // namespace

int main() {
  KIVMV::KivLUTSetting lut;
  KIVMV::KivColor colour;
  if (lut.GetColor(1.0, 1, &colour) != KIVMV::LUT_OK) {
    std::puts("GetColor failed");
    return 1;
  }
  KIVMV::KivRangeImage image(3, 2, KIVMV::KivDataType(2));
  if (image.Width() != 3 || image.Height() != 2) {
    std::puts("range image has the wrong size");
    return 1;
  }
  std::printf("rainbow top: %d %d %d\n", colour[0], colour[1], colour[2]);
  if (!ExtensionsWork()) return 1;

  // The string tables installed beside the libraries, found without being told where.
  unsetenv("KIV_LANG_DIR");
  setenv("KIV_LANG", "zh_CN", 1);
  KIVMV::KivMultiLanguage language;
  std::wstring grey = L"Grey Level";
  if (language.DynamicLoadString("IDS_GRAY", "KivLUTSetting", &grey) != KIVMV::kKivPlatformOk) {
    std::puts("no installed string table");
    return 1;
  }
  std::printf("grey in Chinese:");
  for (const wchar_t c : grey) std::printf(" %04lx", static_cast<unsigned long>(c));
  std::printf("\n");

#ifdef CONSUMER_HAS_DIALOG
  KIVMV::KivLUTSettingDlg dialog;
  int stored = -1;
  if (dialog.SetParam(3) != KIVMV::LUT_OK || dialog.GetParam(&stored) != KIVMV::LUT_OK) {
    std::puts("dialog parameters failed");
    return 1;
  }
  std::printf("dialog map: %d\n", stored);
#endif
  return 0;
}
