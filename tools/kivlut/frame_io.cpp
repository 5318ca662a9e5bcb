// Frames come in as PNG, TIFF, PFM or headerless raw files and go out the same ways; pictures are
// written beside their target and renamed over it, so a reader never sees half a file.
#include "frame_io.h"

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>
#include <system_error>
#include <utility>
#include <vector>

#ifdef _WIN32
#include <process.h>
#else
#include <unistd.h>
#endif

namespace kivlut {
namespace {

namespace fs = std::filesystem;

constexpr const char* kCannotRead = "cannot read the file";
constexpr const char* kCannotDecode = "not an image OpenCV can decode";

struct PixelTypeWord {
  const char* name;
  KIVMV::KivDataType type;
};

constexpr PixelTypeWord kPixelTypeWords[] = {
    {"u8", KIVMV::KIV_DATA_U8},   {"s8", KIVMV::KIV_DATA_S8},   {"u16", KIVMV::KIV_DATA_U16},
    {"s16", KIVMV::KIV_DATA_S16}, {"s32", KIVMV::KIV_DATA_S32}, {"f32", KIVMV::KIV_DATA_F32},
    {"f64", KIVMV::KIV_DATA_F64},
};

std::string Lowered(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// System messages start with a capital ("No such file or directory"); ours are lower case.
std::string LowerFirst(std::string text) {
  if (!text.empty()) text[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[0])));
  return text;
}

std::string SystemReason(int errorNumber) {
  return LowerFirst(std::generic_category().message(errorNumber));
}

// The name of an OpenCV depth as a person would say it ("8-bit", "signed 16-bit", "32-bit float").
std::string DepthText(int depth) {
  switch (depth) {
    case CV_8U:
      return "8-bit";
    case CV_8S:
      return "signed 8-bit";
    case CV_16U:
      return "16-bit";
    case CV_16S:
      return "signed 16-bit";
    case CV_32S:
      return "signed 32-bit";
    case CV_32F:
      return "32-bit float";
    case CV_64F:
      return "64-bit float";
    case CV_16F:
      return "16-bit float";
    default:
      return "depth " + std::to_string(depth);
  }
}

std::string ChannelText(int channels) {
  return std::to_string(channels) + (channels == 1 ? " channel" : " channels");
}

// "640x480:u16", as the layout is written on the command line.
std::string LayoutText(const RawLayout& layout) {
  return std::to_string(layout.width) + "x" + std::to_string(layout.height) + ":" +
         PixelTypeName(layout.type);
}

// Raw files are little-endian whatever the host is; on a big-endian host each sample is turned
// around on its way in and out.
bool HostIsLittleEndian() {
  const std::uint16_t probe = 1;
  unsigned char first = 0;
  std::memcpy(&first, &probe, 1);
  return first == 1;
}

void ReverseEachSample(unsigned char* bytes, std::size_t sampleCount, std::size_t sampleSize) {
  for (std::size_t i = 0; i < sampleCount; ++i) {
    unsigned char* sample = bytes + i * sampleSize;
    for (std::size_t a = 0, b = sampleSize - 1; a < b; ++a, --b) std::swap(sample[a], sample[b]);
  }
}

// A regular file that this process can open for reading; checked before OpenCV sees the path, so
// that a missing file gets its own message instead of a decoder warning.
bool CanOpenForReading(const fs::path& file) {
  std::error_code ec;
  if (!fs::is_regular_file(file, ec)) return false;
  std::ifstream in(file, std::ios::binary);
  return in.is_open();
}

// Why a file cannot be opened: missing is the common case (a typo), and says so.
std::string WhyNotReadable(const fs::path& file) {
  std::error_code ec;
  if (!fs::exists(file, ec) && !ec) return "no such file or folder";
  return kCannotRead;
}

ReadResult ReadRaw(const fs::path& file, const RawLayout& layout) {
  ReadResult result;
  const int sampleSize = KIVMV::SampleSize(layout.type);
  if (sampleSize == 0) {
    result.error = "unknown raw pixel type " + std::to_string(static_cast<int>(layout.type));
    return result;
  }
  if (layout.width <= 0 || layout.height <= 0) {
    result.error = "the raw layout " + LayoutText(layout) + " has no pixels";
    return result;
  }
  std::error_code ec;
  if (!fs::is_regular_file(file, ec)) {
    result.error = WhyNotReadable(file);
    return result;
  }
  std::ifstream in(file, std::ios::binary);
  if (!in.is_open()) {
    result.error = kCannotRead;
    return result;
  }
  in.seekg(0, std::ios::end);
  const std::streamoff size = in.tellg();
  in.seekg(0, std::ios::beg);
  if (size < 0 || !in) {
    result.error = kCannotRead;
    return result;
  }
  const std::uint64_t expected = static_cast<std::uint64_t>(layout.width) *
                                 static_cast<std::uint64_t>(layout.height) *
                                 static_cast<std::uint64_t>(sampleSize);
  if (static_cast<std::uint64_t>(size) != expected) {
    result.error = "size " + std::to_string(size) + " bytes, expected " + std::to_string(expected) +
                   " for " + LayoutText(layout);
    return result;
  }
  cv::Mat pixels(layout.height, layout.width, CV_MAKETYPE(static_cast<int>(layout.type), 1));
  in.read(reinterpret_cast<char*>(pixels.data), static_cast<std::streamsize>(expected));
  if (static_cast<std::uint64_t>(in.gcount()) != expected) {
    result.error = kCannotRead;
    return result;
  }
  if (!HostIsLittleEndian()) {
    ReverseEachSample(pixels.data, pixels.total(), static_cast<std::size_t>(sampleSize));
  }
  result.pixels = pixels;
  return result;
}

ReadResult ReadWithOpenCv(const fs::path& file) {
  ReadResult result;
  if (!CanOpenForReading(file)) {
    result.error = WhyNotReadable(file);
    return result;
  }
  try {
    result.pixels = cv::imread(file.string(), cv::IMREAD_UNCHANGED);
  } catch (const cv::Exception& e) {
    result.pixels.release();
    result.error = std::string(kCannotDecode) + ": " + e.err;
    return result;
  }
  if (result.pixels.empty()) {
    result.error = kCannotDecode;
    // A raw file is only readable with its layout, which OpenCV cannot guess.
    if (Lowered(file.extension().string()) == ".raw") {
      result.error += " (a raw file needs --raw WIDTHxHEIGHT:TYPE)";
    }
  }
  return result;
}

// Removes the file on destruction unless it was moved into place, so every early return and
// every exception between creating and renaming it leaves nothing behind.
class TemporaryFile {
 public:
  explicit TemporaryFile(fs::path path) : path_(std::move(path)) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!moved_) {
      std::error_code ec;
      fs::remove(path_, ec);
    }
  }

  const fs::path& path() const { return path_; }

  // Renames the file over `target`; the rename replaces an existing target in one step.
  bool MoveOver(const fs::path& target, std::string* error) {
    std::error_code ec;
    fs::rename(path_, target, ec);
    if (ec) {
      *error = "cannot rename " + path_.filename().string() + " to " + target.filename().string() +
               ": " + LowerFirst(ec.message());
      return false;
    }
    moved_ = true;
    return true;
  }

 private:
  fs::path path_;
  bool moved_ = false;
};

// ".NAME.kivlut-<pid>-<n>.EXT" beside `file`: hidden, unique across the threads of this process
// and across processes, and with the target's extension, from which OpenCV picks the encoder.
fs::path TemporarySibling(const fs::path& file) {
  static std::atomic<unsigned long long> counter{0};
#ifdef _WIN32
  const long long pid = _getpid();
#else
  const long long pid = static_cast<long long>(getpid());
#endif
  const unsigned long long n = counter.fetch_add(1, std::memory_order_relaxed);
  const std::string name = "." + file.stem().string() + ".kivlut-" + std::to_string(pid) + "-" +
                           std::to_string(n) + file.extension().string();
  return file.parent_path() / name;
}

bool FolderExists(const fs::path& file) {
  const fs::path folder = file.parent_path();
  if (folder.empty()) return true;  // the working folder
  std::error_code ec;
  return fs::is_directory(folder, ec);
}

// Why a file could not be written where the encoder gave no reason: try to create it ourselves
// and report what the system says, else blame the encoder.
std::string WhyNotWritable(const fs::path& file) {
  errno = 0;
  std::ofstream probe(file, std::ios::binary | std::ios::trunc);
  if (!probe.is_open()) {
    return errno != 0 ? SystemReason(errno) : std::string("the file cannot be created");
  }
  return "the encoder failed";
}

bool WriteBytesOrThrow(const fs::path& file, const void* bytes, std::size_t size,
                       std::string* error) {
  if (!FolderExists(file)) {
    *error = "cannot write the file: the folder does not exist";
    return false;
  }
  TemporaryFile temp(TemporarySibling(file));
  {
    errno = 0;
    std::ofstream out(temp.path(), std::ios::binary | std::ios::trunc);
    if (!out.is_open()) {
      *error = "cannot write the file: " +
               (errno != 0 ? SystemReason(errno) : std::string("the file cannot be created"));
      return false;
    }
    out.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    out.close();
    if (out.fail()) {
      *error = "cannot write the file: " +
               (errno != 0 ? SystemReason(errno) : std::string("the write failed"));
      return false;
    }
  }
  return temp.MoveOver(file, error);
}

// What each frame format is called, the extension that makes OpenCV choose its encoder ("" for
// raw, which bypasses OpenCV), and the pixel types it holds unchanged, one bit per KivDataType.
struct FormatTraits {
  FrameFormat format;
  const char* name;
  const char* encoderExtension;
  unsigned heldTypes;
};

constexpr unsigned TypeBit(KIVMV::KivDataType type) { return 1u << type; }
// The bits of KIV_DATA_U8 .. KIV_DATA_F64, which are 0 .. 6.
constexpr unsigned kEveryType = TypeBit(KIVMV::KIV_DATA_F64) * 2 - 1;

constexpr FormatTraits kFormats[] = {
    {FrameFormat::kPng, "PNG", ".png", TypeBit(KIVMV::KIV_DATA_U8) | TypeBit(KIVMV::KIV_DATA_U16)},
    {FrameFormat::kTiff, "TIFF", ".tiff",
     TypeBit(KIVMV::KIV_DATA_U8) | TypeBit(KIVMV::KIV_DATA_U16) | TypeBit(KIVMV::KIV_DATA_F32)},
    {FrameFormat::kPfm, "PFM", ".pfm", TypeBit(KIVMV::KIV_DATA_F32)},
    {FrameFormat::kRaw, "raw", "", kEveryType},
};

const FormatTraits* TraitsOf(FrameFormat format) {
  for (const FormatTraits& traits : kFormats) {
    if (traits.format == format) return &traits;
  }
  return nullptr;
}

bool FormatHolds(FrameFormat format, int type) {
  const FormatTraits* traits = TraitsOf(format);
  return traits != nullptr && KIVMV::IsKnownSampleType(type) &&
         (traits->heldTypes & TypeBit(static_cast<KIVMV::KivDataType>(type))) != 0;
}

const char* FormatName(FrameFormat format) {
  const FormatTraits* traits = TraitsOf(format);
  return traits != nullptr ? traits->name : "?";
}

bool WriteRangeFrameOrThrow(const fs::path& file, const KIVMV::KivRangeImage& image,
                            FrameFormat format, std::string* error) {
  const int type = image.DataType();
  if (!KIVMV::IsKnownSampleType(type)) {
    *error = "unknown pixel type " + std::to_string(type);
    return false;
  }
  const cv::Mat& pixels = image.Mat();
  if (image.Width() <= 0 || image.Height() <= 0 || pixels.empty()) {
    *error = "the range image has no pixels";
    return false;
  }
  if (pixels.dims != 2 || pixels.rows != image.Height() || pixels.cols != image.Width() ||
      pixels.type() != CV_MAKETYPE(type, 1)) {
    *error = "the range image's pixels do not match its width, height and type";
    return false;
  }
  if (!FormatHolds(format, type)) {
    *error = std::string(FormatName(format)) + " cannot hold " +
             PixelTypeName(static_cast<KIVMV::KivDataType>(type)) + " pixels";
    return false;
  }
  if (format == FrameFormat::kRaw) {
    cv::Mat ordered = pixels.isContinuous() ? pixels : pixels.clone();
    if (!HostIsLittleEndian()) {
      ordered = pixels.clone();
      ReverseEachSample(ordered.data, ordered.total(), ordered.elemSize1());
    }
    return WriteBytesOrThrow(file, ordered.data, ordered.total() * ordered.elemSize(), error);
  }
  std::vector<unsigned char> encoded;
  if (!cv::imencode(TraitsOf(format)->encoderExtension, pixels, encoded)) {
    *error = std::string("cannot encode the pixels as ") + FormatName(format);
    return false;
  }
  return WriteBytesOrThrow(file, encoded.data(), encoded.size(), error);
}

bool WritePictureOrThrow(const fs::path& file, const cv::Mat& picture, std::string* error) {
  const std::string extension = file.extension().string();
  if (extension.empty()) {
    *error = "cannot write files without an extension";
    return false;
  }
  if (!cv::haveImageWriter(file.string())) {
    *error = "cannot write " + extension + " files";
    return false;
  }
  if (picture.empty()) {
    *error = "cannot write the picture: it has no pixels";
    return false;
  }
  if (!FolderExists(file)) {
    *error = "cannot write the picture: the folder does not exist";
    return false;
  }
  TemporaryFile temp(TemporarySibling(file));
  if (!cv::imwrite(temp.path().string(), picture)) {
    *error = "cannot write the picture: " + WhyNotWritable(temp.path());
    return false;
  }
  return temp.MoveOver(file, error);
}

// Runs a write that may throw; an exception becomes "FAILURE: what" in `error` (which may be null),
// so that nothing escapes to the caller and every failure reads like the others.
template <typename Write>
bool Guarded(const char* failure, std::string* error, Write write) {
  std::string ignored;
  std::string& why = error != nullptr ? *error : ignored;
  try {
    return write(&why);
  } catch (const cv::Exception& e) {
    why = std::string(failure) + ": " + e.err;
  } catch (const std::exception& e) {
    why = std::string(failure) + ": " + e.what();
  }
  return false;
}

}  // namespace

ReadResult ReadPixels(const std::filesystem::path& file, const std::optional<RawLayout>& raw) {
  try {
    return raw ? ReadRaw(file, *raw) : ReadWithOpenCv(file);
  } catch (const cv::Exception& e) {
    ReadResult failed;
    failed.error = std::string(kCannotRead) + ": " + e.err;
    return failed;
  } catch (const std::exception& e) {
    ReadResult failed;
    failed.error = std::string(kCannotRead) + ": " + e.what();
    return failed;
  }
}

std::optional<KIVMV::KivRangeImage> ToRangeImage(const cv::Mat& pixels, const Axes& axes,
                                                 std::string* error) {
  std::string ignored;
  std::string& why = error != nullptr ? *error : ignored;
  if (pixels.empty()) {
    why = "the image has no pixels";
    return std::nullopt;
  }
  if (pixels.dims != 2) {
    why = "unsupported pixel layout: " + std::to_string(pixels.dims) + " dimensions";
    return std::nullopt;
  }
  if (pixels.channels() != 1 || !KIVMV::IsKnownSampleType(pixels.depth())) {
    why = "unsupported pixel type: " + ChannelText(pixels.channels()) + " of " +
          DepthText(pixels.depth());
    return std::nullopt;
  }
  try {
    KIVMV::KivRangeImage image(pixels.cols, pixels.rows,
                               static_cast<KIVMV::KivDataType>(pixels.depth()));
    // The library walks the pixels as one block, so a matrix with row padding is copied.
    if (pixels.isContinuous()) {
      image.Mat() = pixels;
    } else {
      pixels.copyTo(image.Mat());
    }
    image.SetResolution(axes.resolution[0], axes.resolution[1], axes.resolution[2]);
    image.SetOffset(axes.offset[0], axes.offset[1], axes.offset[2]);
    return image;
  } catch (const cv::Exception& e) {
    why = "cannot make a range image: " + e.err;
  } catch (const std::exception& e) {
    why = std::string("cannot make a range image: ") + e.what();
  }
  return std::nullopt;
}

bool WriteRangeFrame(const std::filesystem::path& file, const KIVMV::KivRangeImage& image,
                     FrameFormat format, std::string* error) {
  return Guarded("cannot write the file", error, [&](std::string* why) {
    return WriteRangeFrameOrThrow(file, image, format, why);
  });
}

bool WritePictureAtomically(const std::filesystem::path& file, const cv::Mat& picture,
                            std::string* error) {
  return Guarded("cannot write the picture", error,
                 [&](std::string* why) { return WritePictureOrThrow(file, picture, why); });
}

bool WriteBytesAtomically(const std::filesystem::path& file, const void* bytes, std::size_t size,
                          std::string* error) {
  return Guarded("cannot write the file", error,
                 [&](std::string* why) { return WriteBytesOrThrow(file, bytes, size, why); });
}

namespace {

// The frame size a video is written at: the picture's, rounded up to even for mp4v.
cv::Size EvenSize(cv::Size size, bool mp4) {
  if (!mp4) return size;
  return cv::Size(size.width + size.width % 2, size.height + size.height % 2);
}

}  // namespace

struct VideoFile::State {
  fs::path file;
  double fps = 0.0;
  TemporaryFile temp;
  cv::VideoWriter writer;
  cv::Size size;
  int frames = 0;
  bool broken = false;
  bool mp4 = false;

  State(fs::path target, double rate)
      : file(std::move(target)), fps(rate), temp(TemporarySibling(file)) {}
};

VideoFile::VideoFile(std::filesystem::path file, double fps)
    : state_(std::make_unique<State>(std::move(file), fps)) {}

VideoFile::~VideoFile() {
  // The writer closes its file before TemporaryFile removes it.
  if (state_) state_->writer.release();
}

bool VideoFile::Broken() const { return state_->broken; }

int VideoFile::FramesWritten() const { return state_->frames; }

bool VideoFile::Append(const cv::Mat& picture, std::string* error) {
  return Guarded("cannot write the video", error, [&](std::string* why) {
    State& s = *state_;
    if (s.broken) {
      *why = "cannot write the video: it could not be opened";
      return false;
    }
    if (picture.empty() || picture.depth() != CV_8U ||
        (picture.channels() != 3 && picture.channels() != 1)) {
      *why = "a video frame must be an 8-bit picture of 3 or 1 channels, not " +
             std::to_string(picture.channels()) + " channels of depth " +
             std::to_string(picture.depth());
      return false;
    }
    cv::Mat colour = picture;
    if (picture.channels() == 1) cv::cvtColor(picture, colour, cv::COLOR_GRAY2BGR);
    if (s.frames == 0 && !s.writer.isOpened()) {
      if (!FolderExists(s.file)) {
        s.broken = true;
        *why = "cannot write the video: the folder does not exist";
        return false;
      }
      s.mp4 = Lowered(s.file.extension().string()) == ".mp4";
      const bool mp4 = s.mp4;
      const int fourcc = mp4 ? cv::VideoWriter::fourcc('m', 'p', '4', 'v')
                             : cv::VideoWriter::fourcc('M', 'J', 'P', 'G');
      // OpenCV's own MJPEG writer keeps any size; FFmpeg's would drop an odd last column or row.
      const std::string temp = s.temp.path().string();
      const bool opened =
          (!mp4 && s.writer.open(temp, cv::CAP_OPENCV_MJPEG, fourcc, s.fps, colour.size(), true)) ||
          s.writer.open(temp, fourcc, s.fps, EvenSize(colour.size(), mp4), true);
      if (!opened) {
        s.broken = true;
        *why = std::string("cannot write the video: OpenCV has no writer for ") +
               (mp4 ? "mp4v in .mp4" : "MJPG in .avi") + " here, or " +
               WhyNotWritable(s.temp.path());
        return false;
      }
      s.size = colour.size();
    }
    if (colour.size() != s.size) {
      *why = "frame size " + std::to_string(colour.cols) + "x" + std::to_string(colour.rows) +
             " differs from the video's " + std::to_string(s.size.width) + "x" +
             std::to_string(s.size.height) + " (the first frame's picture)";
      return false;
    }
    const cv::Size written = EvenSize(colour.size(), s.mp4);
    if (written != colour.size()) {
      // mp4v codes whole 2x2 blocks of chroma: an odd picture gets one black column or row.
      cv::copyMakeBorder(colour, colour, 0, written.height - colour.rows, 0,
                         written.width - colour.cols, cv::BORDER_CONSTANT, cv::Scalar(0, 0, 0));
    }
    s.writer.write(colour);
    ++s.frames;
    return true;
  });
}

bool VideoFile::Finish(std::string* error) {
  return Guarded("cannot write the video", error, [&](std::string* why) {
    State& s = *state_;
    if (s.frames == 0) {
      *why = "no frame was coloured, so no video was written";
      return false;
    }
    s.writer.release();
    return s.temp.MoveOver(s.file, why);
  });
}

bool LooksLikeFrame(const std::filesystem::path& file, bool rawGiven) {
  const std::string name = file.filename().string();
  // Hidden names are skipped: among them are the temporary files of a picture being written.
  if (name.empty() || name[0] == '.') return false;
  const std::string extension = Lowered(file.extension().string());
  return extension == ".png" || extension == ".tif" || extension == ".tiff" ||
         extension == ".pfm" || (rawGiven && extension == ".raw");
}

std::optional<KIVMV::KivDataType> ParsePixelType(const std::string& text) {
  if (text.size() == 1 && text[0] >= '0' && text[0] <= '6') {
    return static_cast<KIVMV::KivDataType>(text[0] - '0');
  }
  const std::string word = Lowered(text);
  for (const PixelTypeWord& entry : kPixelTypeWords) {
    if (word == entry.name) return entry.type;
  }
  return std::nullopt;
}

const char* PixelTypeName(KIVMV::KivDataType type) {
  for (const PixelTypeWord& entry : kPixelTypeWords) {
    if (entry.type == type) return entry.name;
  }
  return "unknown";
}

}  // namespace kivlut
