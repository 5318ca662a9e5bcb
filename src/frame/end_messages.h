// The fixed texts the public methods write to the suite's log and standard output.
//
// The host's log viewer reads the GBK code page, so the Chinese texts are stored as their GBK
// bytes; the UTF-8 text follows each one as a comment.
#pragma once

namespace KIVMV {

inline constexpr char kStartMessage[] = "start";
inline constexpr char kLogClassName[] = "KivLUTSetting";

// 颜色融合结束
inline constexpr char kBlendEndMessage[] = "\xd1\xd5\xc9\xab\xc8\xda\xba\xcf\xbd\xe1\xca\xf8";
// 源图像颜色非线性映射结束
inline constexpr char kNonLinearEndMessage[] =
    "\xd4\xb4\xcd\xbc\xcf\xf1\xd1\xd5\xc9\xab\xb7\xc7\xcf\xdf\xd0\xd4\xd3\xb3\xc9\xe4\xbd\xe1\xca"
    "\xf8";
// 源图像颜色线性映射结束
inline constexpr char kLinearEndMessage[] =
    "\xd4\xb4\xcd\xbc\xcf\xf1\xd1\xd5\xc9\xab\xcf\xdf\xd0\xd4\xd3\xb3\xc9\xe4\xbd\xe1\xca\xf8";
// 获取深度值颜色结束
inline constexpr char kColorQueryEndMessage[] =
    "\xbb\xf1\xc8\xa1\xc9\xee\xb6\xc8\xd6\xb5\xd1\xd5\xc9\xab\xbd\xe1\xca\xf8";
// 3D 相关数组颜色线性映射结束
inline constexpr char kArrayLinearEndMessage[] =
    "3D "
    "\xcf\xe0\xb9\xd8\xca\xfd\xd7\xe9\xd1\xd5\xc9\xab\xcf\xdf\xd0\xd4\xd3\xb3\xc9\xe4\xbd\xe1\xca"
    "\xf8";
// 3D 相关数组颜色非线性映射结束
inline constexpr char kArrayNonLinearEndMessage[] =
    "3D "
    "\xcf\xe0\xb9\xd8\xca\xfd\xd7\xe9\xd1\xd5\xc9\xab\xb7\xc7\xcf\xdf\xd0\xd4\xd3\xb3\xc9\xe4\xbd"
    "\xe1\xca\xf8";
// 图像光照渲染结束
inline constexpr char kLightingEndMessage[] =
    "\xcd\xbc\xcf\xf1\xb9\xe2\xd5\xd5\xe4\xd6\xc8\xbe\xbd\xe1\xca\xf8";
// 法向量渲染结束
inline constexpr char kNormalMapEndMessage[] =
    "\xb7\xa8\xcf\xf2\xc1\xbf\xe4\xd6\xc8\xbe\xbd\xe1\xca\xf8";

// SetColorLUT耗时： (written to standard output before the elapsed milliseconds)
inline constexpr char kTimingPrefix[] = "SetColorLUT\xba\xc4\xca\xb1\xa3\xba";

}  // namespace KIVMV
