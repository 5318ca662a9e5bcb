// Reading frames and pictures from files, and writing them so that a failure leaves nothing behind.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <opencv2/core.hpp>
#include <optional>
#include <string>

#include "KivLUTSetting.h"
#include "options.h"

namespace kivlut {

// The pixels of a file exactly as stored, or why they could not be read.
struct ReadResult {
  cv::Mat pixels;     // empty on failure
  std::string error;  // "cannot read the file", "size 1000 bytes, expected 614400 for 640x480:u16"
};

// PNG and TIFF (8/16-bit, float TIFF), PFM, or any other format OpenCV reads, with the file's own
// depth and channels; a raw file when `raw` is given (its size must match the layout exactly).
ReadResult ReadPixels(const std::filesystem::path& file, const std::optional<RawLayout>& raw);

// A range image sharing `pixels` (one channel, any of the seven depths) with the given axes, or
// the reason it cannot be one ("unsupported pixel type: 3 channels").
std::optional<KIVMV::KivRangeImage> ToRangeImage(const cv::Mat& pixels, const Axes& axes,
                                                 std::string* error);

enum class FrameFormat { kPng, kTiff, kPfm, kRaw };

// Writes the pixels of a range image in `format` so that ReadPixels gives them back unchanged:
// PNG holds u8 and u16, TIFF u8, u16 and float, PFM float, raw every type. False with a reason
// for a type the format cannot hold or a failed write.
bool WriteRangeFrame(const std::filesystem::path& file, const KIVMV::KivRangeImage& image,
                     FrameFormat format, std::string* error);

// Encodes `picture` in the format of the file's extension into a temporary file in the same
// folder, then renames it over `file`; on failure the temporary file is removed and `file` is
// untouched.
bool WritePictureAtomically(const std::filesystem::path& file, const cv::Mat& picture,
                            std::string* error);

// Writes `size` bytes into a temporary file in the same folder, then renames it over `file`; on
// failure the temporary file is removed, `file` is untouched and `error` says why.
bool WriteBytesAtomically(const std::filesystem::path& file, const void* bytes, std::size_t size,
                          std::string* error);

// One video written picture by picture: into a hidden temporary file beside `file` (with its
// extension, from which OpenCV picks the container), renamed over `file` by Finish(). Destroyed
// unfinished, or finished without a frame, it leaves nothing behind and `file` untouched. .avi is
// encoded as MJPG at the picture's size, .mp4 as mp4v, an odd width or height padded with one
// black column or row (mp4v takes even sizes only).
class VideoFile {
 public:
  VideoFile(std::filesystem::path file, double fps);
  ~VideoFile();
  VideoFile(const VideoFile&) = delete;
  VideoFile& operator=(const VideoFile&) = delete;

  // Appends an 8-bit picture of 3 (blue first) or 1 channel; the first one opens the video and
  // fixes its size. False with a reason for a picture of another size or kind (the video stays
  // as it was) or when OpenCV cannot write the video (`Broken()` then).
  bool Append(const cv::Mat& picture, std::string* error);
  // Renames the video into place; false with a reason when no frame was appended or the rename
  // failed.
  bool Finish(std::string* error);
  // OpenCV refused to open the video: no later picture can be appended.
  bool Broken() const;
  int FramesWritten() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Whether a file met in an input folder is a frame: .png, .tif, .tiff, .pfm, and .raw when
// `rawGiven`.
bool LooksLikeFrame(const std::filesystem::path& file, bool rawGiven);

// u8, s8, u16, s16, s32, f32, f64 (or 0..6) to a pixel type.
std::optional<KIVMV::KivDataType> ParsePixelType(const std::string& text);
const char* PixelTypeName(KIVMV::KivDataType type);

}  // namespace kivlut
