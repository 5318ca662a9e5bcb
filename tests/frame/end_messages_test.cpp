#include "frame/end_messages.h"

#include <gtest/gtest.h>
#include <iconv.h>

#include <cerrno>
#include <string>

#include "frame/call_frame.h"

namespace KIVMV {
namespace {

// GBK bytes to UTF-8 through the C library's iconv; an invalid sequence fails the test.
std::string GbkToUtf8(const std::string& gbk) {
  iconv_t converter = iconv_open("UTF-8", "GBK");
  if (converter == reinterpret_cast<iconv_t>(-1)) {
    ADD_FAILURE() << "iconv cannot convert GBK here";
    return {};
  }
  std::string in = gbk;
  std::string out(in.size() * 4 + 4, '\0');
  char* inPtr = in.data();
  size_t inLeft = in.size();
  char* outPtr = out.data();
  size_t outLeft = out.size();
  const size_t result = iconv(converter, &inPtr, &inLeft, &outPtr, &outLeft);
  const int error = errno;
  iconv_close(converter);
  EXPECT_NE(result, static_cast<size_t>(-1)) << "iconv failed with errno " << error;
  EXPECT_EQ(inLeft, 0u);
  out.resize(out.size() - outLeft);
  return out;
}

TEST(EndMessages, GbkBytesSpellTheChineseTexts) {
  struct {
    const char* gbk;
    const char* utf8;
  } cases[] = {
      {kBlendEndMessage, u8"颜色融合结束"},
      {kNonLinearEndMessage, u8"源图像颜色非线性映射结束"},
      {kLinearEndMessage, u8"源图像颜色线性映射结束"},
      {kColorQueryEndMessage, u8"获取深度值颜色结束"},
      {kArrayLinearEndMessage, u8"3D 相关数组颜色线性映射结束"},
      {kArrayNonLinearEndMessage, u8"3D 相关数组颜色非线性映射结束"},
      {kLightingEndMessage, u8"图像光照渲染结束"},
      {kNormalMapEndMessage, u8"法向量渲染结束"},
      {kTimingPrefix, u8"SetColorLUT耗时："},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(GbkToUtf8(c.gbk), c.utf8);
    // Stored as GBK, not UTF-8: the two encodings differ for every Chinese text here.
    EXPECT_NE(std::string(c.gbk), std::string(c.utf8));
  }
}

TEST(EndMessages, EveryMethodHasItsNameTagsAndText) {
  using namespace frame_entries;
  struct {
    const FrameEntry& entry;
    const char* name;
    int startLine;
    const char* endUtf8;
    int endLine;
  } cases[] = {
      {kColorBlend, "ColorBlend", 544, u8"颜色融合结束", 559},
      {kColorMapLUTIntArray, "ColorMapLUT", 524, u8"源图像颜色非线性映射结束", 536},
      {kColorMapLUTBoundsColours, "ColorMapLUT", 419, u8"源图像颜色非线性映射结束", 440},
      {kColorMapLUTBounds, "ColorMapLUT", 334, u8"源图像颜色非线性映射结束", 356},
      {kColorMapLUT, "ColorMapLUT", 447, u8"源图像颜色非线性映射结束", 463},
      {kColorMapLUTPara, "LinearColorMapLUT", 863, u8"源图像颜色线性映射结束", 909},
      {kGetColor, "GetColor", 313, u8"获取深度值颜色结束", 325},
      {kLinearColorMapLUTArrayPara, "LinearColorMapLUT", 817, u8"源图像颜色线性映射结束", 854},
      {kLinearColorMapLUTBoundsColours, "LinearColorMapLUT", 392, u8"源图像颜色线性映射结束", 413},
      {kLinearColorMapLUTBounds, "LinearColorMapLUT", 363, u8"源图像颜色线性映射结束", 385},
      {kLinearColorMapLUT, "LinearColorMapLUT", 500, u8"源图像颜色线性映射结束", 517},
      {kLinearColorMapLUTPara, "LinearColorMapLUT", 773, u8"源图像颜色线性映射结束", 810},
      {kLinearColorMapLUTFractions, "LinearColorMapLUT", 916, u8"源图像颜色线性映射结束", 939},
      {kLinearSetColorLUTArray, "LinearSetColorLUT", 287, u8"3D 相关数组颜色线性映射结束", 304},
      {kLinearSetColorLUTImage, "LinearSetColorLUT", 218, u8"源图像颜色线性映射结束", 232},
      {kSetColorLUTArray, "SetColorLUT", 261, u8"3D 相关数组颜色非线性映射结束", 281},
      {kSetColorLUTImage, "SetColorLUT", 198, u8"源图像颜色非线性映射结束", 211},
      {kSetColorLUTImageBoundsColours, "SetColorLUT", 238, u8"源图像颜色非线性映射结束", 253},
      {kSetColorNormalMapLighting, "SetColorNormalMap", 696, u8"图像光照渲染结束", 765},
      {kSetColorNormalMap, "SetColorNormalMap", 567, u8"法向量渲染结束", 580},
      {kSetColorNormalMapPhong, "SetColorNormalMapPhong", 587, u8"法向量渲染结束", 598},
  };
  for (const auto& c : cases) {
    EXPECT_STREQ(c.entry.methodName, c.name);
    EXPECT_EQ(c.entry.startLine, c.startLine) << c.name;
    EXPECT_EQ(GbkToUtf8(c.entry.endMessage), c.endUtf8) << c.name << " " << c.startLine;
    EXPECT_EQ(c.entry.endLine, c.endLine) << c.name;
  }
}

}  // namespace
}  // namespace KIVMV
