// The frame every public method runs in: one logger per call, "start", the argument checks, one
// routine, the end message, the routine's status.
#pragma once

#include "KivFastLoggerPrivate.h"
#include "frame/end_messages.h"

namespace KIVMV {

// What a method writes to the log: its name, the tag of its "start" line, its end message and the
// tag of that line. The tags are fixed numbers that the suite's log readers search for.
struct FrameEntry {
  const char* methodName;
  int startLine;
  const char* endMessage;
  int endLine;
};

// The frame entry of every public method, in the order of the public header's families.
namespace frame_entries {
inline constexpr FrameEntry kColorBlend = {"ColorBlend", 544, kBlendEndMessage, 559};
inline constexpr FrameEntry kColorMapLUTIntArray = {"ColorMapLUT", 524, kNonLinearEndMessage, 536};
inline constexpr FrameEntry kColorMapLUTBoundsColours = {"ColorMapLUT", 419, kNonLinearEndMessage,
                                                         440};
inline constexpr FrameEntry kColorMapLUTBounds = {"ColorMapLUT", 334, kNonLinearEndMessage, 356};
inline constexpr FrameEntry kColorMapLUT = {"ColorMapLUT", 447, kNonLinearEndMessage, 463};
// The segmenting ColorMapLUT logs under the name of the parameterised linear mapping it extends.
inline constexpr FrameEntry kColorMapLUTPara = {"LinearColorMapLUT", 863, kLinearEndMessage, 909};
inline constexpr FrameEntry kGetColor = {"GetColor", 313, kColorQueryEndMessage, 325};
inline constexpr FrameEntry kLinearColorMapLUTArrayPara = {"LinearColorMapLUT", 817,
                                                           kLinearEndMessage, 854};
inline constexpr FrameEntry kLinearColorMapLUTBoundsColours = {"LinearColorMapLUT", 392,
                                                               kLinearEndMessage, 413};
inline constexpr FrameEntry kLinearColorMapLUTBounds = {"LinearColorMapLUT", 363, kLinearEndMessage,
                                                        385};
inline constexpr FrameEntry kLinearColorMapLUT = {"LinearColorMapLUT", 500, kLinearEndMessage, 517};
inline constexpr FrameEntry kLinearColorMapLUTPara = {"LinearColorMapLUT", 773, kLinearEndMessage,
                                                      810};
inline constexpr FrameEntry kLinearColorMapLUTFractions = {"LinearColorMapLUT", 916,
                                                           kLinearEndMessage, 939};
inline constexpr FrameEntry kLinearSetColorLUTArray = {"LinearSetColorLUT", 287,
                                                       kArrayLinearEndMessage, 304};
inline constexpr FrameEntry kLinearSetColorLUTImage = {"LinearSetColorLUT", 218, kLinearEndMessage,
                                                       232};
inline constexpr FrameEntry kSetColorLUTArray = {"SetColorLUT", 261, kArrayNonLinearEndMessage,
                                                 281};
inline constexpr FrameEntry kSetColorLUTImage = {"SetColorLUT", 198, kNonLinearEndMessage, 211};
inline constexpr FrameEntry kSetColorLUTImageBoundsColours = {"SetColorLUT", 238,
                                                              kNonLinearEndMessage, 253};
// Phong lighting of a range image ends with its own text; the normal-map Phong variant shares the
// normal map's.
inline constexpr FrameEntry kSetColorNormalMapLighting = {"SetColorNormalMap", 696,
                                                          kLightingEndMessage, 765};
inline constexpr FrameEntry kSetColorNormalMap = {"SetColorNormalMap", 567, kNormalMapEndMessage,
                                                  580};
inline constexpr FrameEntry kSetColorNormalMapPhong = {"SetColorNormalMapPhong", 587,
                                                       kNormalMapEndMessage, 598};
}  // namespace frame_entries

class CallFrame {
 public:
  // Logs "start".
  explicit CallFrame(const FrameEntry& entry) : entry_(entry) {
    Write(kStartMessage, entry_.startLine);
  }

  // Logs the end message; call it once the routine has returned, whatever its status.
  long End(long status) {
    Write(entry_.endMessage, entry_.endLine);
    return status;
  }

 private:
  void Write(const char* message, int line) noexcept {
    // A logging failure must not change the outcome of a colouring call, so it has no stage code of
    // its own and is swallowed here.
    try {
      logger_.Log(message, kLogClassName, entry_.methodName, line);
    } catch (...) {
    }
  }

  KivFastLoggerPrivate logger_;
  const FrameEntry& entry_;
};

}  // namespace KIVMV
