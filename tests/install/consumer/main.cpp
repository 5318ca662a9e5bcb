// A program outside the library's tree: one header, one colour query, one platform type.
#include <cstdio>

#include "KivLUTSetting.h"

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
  return 0;
}
