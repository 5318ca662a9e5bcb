// A program outside the library's tree: one header, one colour query, one platform type.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "KivLUTSetting.h"
#include "KivMultiLanguage.h"
#ifdef CONSUMER_HAS_DIALOG
#include "KivLUTSettingDlg.h"
#endif

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
