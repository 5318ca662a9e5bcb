// The C++ side of the Python tests: runs KivLUTSetting's methods and the colourings, colour bars
// and image reader of the library's own API on inputs a test wrote as .npy files, and writes what
// C++ gave back, so that the tests can compare the module with the library byte for byte.
//
// Usage: reference_runner JOBFILE. Each line of JOBFILE is one call:
//   PREFIX OP KEY=VALUE ...
// Array arguments name .npy files (C order; '<u1', '<i1', '<u2', '<i2', '<i4', '<f4', '<f8').
// Everything the call gave back is written as PREFIX.txt (one "key value..." line each) and
// PREFIX.NAME.npy. Several calls in one process keep the suite fast.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "KivColorBar.h"
#include "KivColorTable.h"
#include "KivColoring.h"
#include "KivLUTSetting.h"
#include "KivSequenceColoring.h"

namespace {

using KIVMV::KivColor;

// An .npy array: its type code as OpenCV's depth, its shape and its bytes.
struct Npy {
  int depth = CV_8U;
  std::vector<int64_t> shape;
  std::vector<unsigned char> bytes;
  int64_t Count() const {
    int64_t n = 1;
    for (int64_t d : shape) n *= d;
    return n;
  }
};

int DepthOf(const std::string& descr) {
  static const std::map<std::string, int> kDepths = {
      {"<u1", CV_8U},  {"|u1", CV_8U},  {"<i1", CV_8S},  {"|i1", CV_8S}, {"<u2", CV_16U},
      {"<i2", CV_16S}, {"<i4", CV_32S}, {"<f4", CV_32F}, {"<f8", CV_64F}};
  const auto it = kDepths.find(descr);
  if (it == kDepths.end()) throw std::runtime_error("unsupported npy dtype " + descr);
  return it->second;
}

const char* DescrOf(int depth) {
  switch (depth) {
    case CV_8U:
      return "|u1";
    case CV_8S:
      return "|i1";
    case CV_16U:
      return "<u2";
    case CV_16S:
      return "<i2";
    case CV_32S:
      return "<i4";
    case CV_32F:
      return "<f4";
    case CV_64F:
      return "<f8";
    default:
      throw std::runtime_error("no npy dtype for depth " + std::to_string(depth));
  }
}

// The value of `key` in numpy's header dictionary, up to the next comma outside parentheses.
std::string HeaderField(const std::string& header, const std::string& key) {
  const size_t at = header.find("'" + key + "'");
  if (at == std::string::npos) throw std::runtime_error("npy header lacks " + key);
  size_t p = header.find(':', at) + 1;
  while (header[p] == ' ') ++p;
  size_t end = p;
  int depth = 0;
  while (end < header.size() && !(depth == 0 && (header[end] == ',' || header[end] == '}'))) {
    if (header[end] == '(') ++depth;
    if (header[end] == ')') --depth;
    ++end;
  }
  return header.substr(p, end - p);
}

Npy ReadNpy(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot open " + path);
  char magic[8];
  in.read(magic, 8);
  if (!in || std::memcmp(magic, "\x93NUMPY", 6) != 0) throw std::runtime_error("not npy: " + path);
  uint32_t headerLength = 0;
  if (magic[6] == 1) {
    unsigned char b[2];
    in.read(reinterpret_cast<char*>(b), 2);
    headerLength = b[0] | (b[1] << 8);
  } else {
    unsigned char b[4];
    in.read(reinterpret_cast<char*>(b), 4);
    headerLength = b[0] | (b[1] << 8) | (b[2] << 16) | (static_cast<uint32_t>(b[3]) << 24);
  }
  std::string header(headerLength, '\0');
  in.read(&header[0], headerLength);
  Npy npy;
  std::string descr = HeaderField(header, "descr");
  npy.depth = DepthOf(descr.substr(1, descr.size() - 2));
  if (HeaderField(header, "fortran_order") != "False")
    throw std::runtime_error("Fortran order: " + path);
  const std::string shape = HeaderField(header, "shape");
  for (size_t p = 1; p < shape.size();) {
    size_t end = p;
    while (end < shape.size() && isdigit(static_cast<unsigned char>(shape[end]))) ++end;
    if (end > p) npy.shape.push_back(std::stoll(shape.substr(p, end - p)));
    p = end + 1;
  }
  npy.bytes.resize(
      static_cast<size_t>(npy.Count() * static_cast<int64_t>(CV_ELEM_SIZE1(npy.depth))));
  in.read(reinterpret_cast<char*>(npy.bytes.data()),
          static_cast<std::streamsize>(npy.bytes.size()));
  if (!in && !npy.bytes.empty()) throw std::runtime_error("short npy data: " + path);
  return npy;
}

void WriteNpy(const std::string& path, int depth, const std::vector<int64_t>& shape,
              const void* data) {
  std::string dims;
  int64_t count = 1;
  for (int64_t d : shape) {
    dims += std::to_string(d) + ", ";
    count *= d;
  }
  if (shape.size() > 1) dims.resize(dims.size() - 1);
  std::string header = std::string("{'descr': '") + DescrOf(depth) +
                       "', 'fortran_order': False, 'shape': (" + dims + "), }";
  // numpy pads the header with spaces so that the data starts at a multiple of 64.
  while ((10 + header.size() + 1) % 64 != 0) header += ' ';
  header += '\n';
  std::ofstream out(path, std::ios::binary);
  out.write("\x93NUMPY\x01\x00", 8);
  const unsigned char length[2] = {static_cast<unsigned char>(header.size() & 0xff),
                                   static_cast<unsigned char>(header.size() >> 8)};
  out.write(reinterpret_cast<const char*>(length), 2);
  out << header;
  out.write(static_cast<const char*>(data),
            static_cast<std::streamsize>(count * CV_ELEM_SIZE1(depth)));
  if (!out) throw std::runtime_error("cannot write " + path);
}

// A matrix of any channel count, as (rows, cols) or (rows, cols, channels); it may be a view.
void WriteMat(const std::string& path, const cv::Mat& mat, bool dropSingleChannel) {
  const cv::Mat dense = mat.isContinuous() ? mat : mat.clone();
  std::vector<int64_t> shape = {dense.rows, dense.cols};
  if (!(dropSingleChannel && dense.channels() == 1)) shape.push_back(dense.channels());
  WriteNpy(path, dense.depth(), shape, dense.data);
}

// The colour bytes of a KivColorArray as (Length(), Channel()).
void WriteColors(const std::string& path, const KIVMV::KivColorArray& colors) {
  const int64_t length = colors.Length();
  const int64_t channels = colors.Channel();
  if (length * channels > 0 &&
      colors.Mat().total() * colors.Mat().elemSize() < static_cast<size_t>(length * channels))
    throw std::runtime_error("colour array holds fewer bytes than its length says");
  std::vector<unsigned char> bytes(static_cast<size_t>(length * channels));
  if (!bytes.empty()) {
    const cv::Mat dense = colors.Mat().isContinuous() ? colors.Mat() : colors.Mat().clone();
    std::memcpy(bytes.data(), dense.data, bytes.size());
  }
  WriteNpy(path, CV_8U, {length, channels}, bytes.data());
}

// The test escapes spaces (a table is named "hot metal") and percent signs of a value.
std::string Unescape(const std::string& text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && text.compare(i + 1, 2, "20") == 0) {
      plain += ' ';
      i += 2;
    } else if (text[i] == '%' && text.compare(i + 1, 2, "25") == 0) {
      plain += '%';
      i += 2;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

class Job {
 public:
  explicit Job(const std::vector<std::string>& tokens) {
    for (size_t i = 2; i < tokens.size(); ++i) {
      const size_t eq = tokens[i].find('=');
      if (eq == std::string::npos) throw std::runtime_error("not KEY=VALUE: " + tokens[i]);
      args_[tokens[i].substr(0, eq)] = Unescape(tokens[i].substr(eq + 1));
    }
  }
  bool Has(const std::string& key) const { return args_.count(key) != 0; }
  const std::string& Str(const std::string& key) const {
    const auto it = args_.find(key);
    if (it == args_.end()) throw std::runtime_error("missing argument " + key);
    return it->second;
  }
  double Double(const std::string& key) const { return std::strtod(Str(key).c_str(), nullptr); }
  int Int(const std::string& key) const { return std::stoi(Str(key)); }
  std::vector<double> Doubles(const std::string& key) const {
    std::vector<double> values;
    std::stringstream in(Str(key));
    std::string item;
    while (std::getline(in, item, ',')) values.push_back(std::strtod(item.c_str(), nullptr));
    return values;
  }
  KivColor Color(const std::string& key) const {
    const std::vector<double> c = Doubles(key);
    KivColor color;
    for (size_t i = 0; i < c.size() && i < 4; ++i)
      color[static_cast<int>(i)] = static_cast<int>(c[i]);
    return color;
  }
  KIVMV::KivRgb Rgb(const std::string& key) const {
    const std::vector<double> c = Doubles(key);
    return KIVMV::KivRgb{static_cast<uint8_t>(c.at(0)), static_cast<uint8_t>(c.at(1)),
                         static_cast<uint8_t>(c.at(2))};
  }

 private:
  std::map<std::string, std::string> args_;
};

// The range image of array argument `key` (default "img"), with the job's res, off and type.
KIVMV::KivRangeImage RangeImage(const Job& job, const std::string& key = "img") {
  const Npy npy = ReadNpy(job.Str(key));
  if (npy.shape.size() != 2) throw std::runtime_error("range image not 2-D");
  KIVMV::KivRangeImage image(static_cast<int>(npy.shape[1]), static_cast<int>(npy.shape[0]),
                             static_cast<KIVMV::KivDataType>(npy.depth));
  if (!npy.bytes.empty()) std::memcpy(image.Data(), npy.bytes.data(), npy.bytes.size());
  if (job.Has("res")) {
    const std::vector<double> r = job.Doubles("res");
    image.SetResolution(r.at(0), r.at(1), r.at(2));
  }
  if (job.Has("off")) {
    const std::vector<double> o = job.Doubles("off");
    image.SetOffset(o.at(0), o.at(1), o.at(2));
  }
  if (job.Has("type")) image.SetType(job.Int("type"));
  return image;
}

KIVMV::KivImage GreyImage(const Job& job) {
  const Npy npy = ReadNpy(job.Str("grey"));
  if (npy.shape.size() != 2) throw std::runtime_error("grey image not 2-D");
  KIVMV::KivImage image(static_cast<int>(npy.shape[1]), static_cast<int>(npy.shape[0]), 1,
                        static_cast<KIVMV::KivImageType>(npy.depth));
  if (!npy.bytes.empty()) std::memcpy(image.Data(), npy.bytes.data(), npy.bytes.size());
  return image;
}

KIVMV::Kiv3DFloatArray FloatArray(const Job& job) {
  const Npy npy = ReadNpy(job.Str("floats"));
  if (npy.depth != CV_32F) throw std::runtime_error("floats not float32");
  KIVMV::Kiv3DFloatArray values(static_cast<int>(npy.Count()));
  if (!npy.bytes.empty()) std::memcpy(values.Data(), npy.bytes.data(), npy.bytes.size());
  return values;
}

KIVMV::Kiv3DIntArray IntArray(const Job& job) {
  const Npy npy = ReadNpy(job.Str("ints"));
  if (npy.depth != CV_32S) throw std::runtime_error("ints not int32");
  KIVMV::Kiv3DIntArray values(static_cast<int>(npy.Count()));
  if (!npy.bytes.empty()) std::memcpy(values.Data(), npy.bytes.data(), npy.bytes.size());
  return values;
}

KIVMV::KivVector3dArray Normals(const Job& job) {
  const Npy npy = ReadNpy(job.Str("normals"));
  if (npy.depth != CV_32F) throw std::runtime_error("normals not float32");
  KIVMV::KivVector3dArray normals;
  normals.SetSize(static_cast<int>(npy.Count() / 3));
  if (!npy.bytes.empty()) std::memcpy(normals.Data(), npy.bytes.data(), npy.bytes.size());
  return normals;
}

// (N, C) as a 1 x N array, (H, W, C) as an H x W one, as the module takes them.
KIVMV::KivColorArray ColorArray(const std::string& path) {
  const Npy npy = ReadNpy(path);
  KIVMV::KivColorArray colors;
  if (npy.shape.size() == 2) {
    colors.Create(static_cast<int>(npy.shape[0]), static_cast<int>(npy.shape[1]));
  } else {
    colors.SetSize(static_cast<int>(npy.shape[1]), static_cast<int>(npy.shape[0]),
                   static_cast<int>(npy.shape[2]));
  }
  if (!npy.bytes.empty()) std::memcpy(colors.Data(), npy.bytes.data(), npy.bytes.size());
  return colors;
}

KIVMV::KivVector3d Vector(const Job& job, const std::string& key) {
  const std::vector<double> v = job.Doubles(key);
  return KIVMV::KivVector3d(static_cast<float>(v.at(0)), static_cast<float>(v.at(1)),
                            static_cast<float>(v.at(2)));
}

KIVMV::LinearColorMapLUT_Para Para(const Job& job) {
  const std::vector<double> p = job.Doubles("para");
  if (p.size() != 10) throw std::runtime_error("para takes 10 numbers");
  KIVMV::LinearColorMapLUT_Para para;
  para.value0 = p[0];
  para.value1 = p[1];
  para.value2 = p[2];
  para.value3 = p[3];
  para.value4 = p[4];
  para.index0 = static_cast<int32_t>(p[5]);
  para.index1 = static_cast<int32_t>(p[6]);
  para.index2 = static_cast<int32_t>(p[7]);
  para.index3 = static_cast<int32_t>(p[8]);
  para.index4 = static_cast<int32_t>(p[9]);
  return para;
}

std::string Exact(double v) {
  char text[64];
  std::snprintf(text, sizeof text, "%.17g", v);
  return text;
}

// What one call gave back, written when the call is over.
class Result {
 public:
  explicit Result(std::string prefix) : prefix_(std::move(prefix)) {}
  void Line(const std::string& line) { text_ << line << '\n'; }
  void Status(long status) { Line("status " + std::to_string(status)); }
  void Color(const KivColor& c) {
    Line("color " + std::to_string(c[0]) + " " + std::to_string(c[1]) + " " + std::to_string(c[2]) +
         " " + std::to_string(c[3]));
  }
  void Para(const KIVMV::LinearColorMapLUT_Para& p) {
    Line("para " + Exact(p.value0) + " " + Exact(p.value1) + " " + Exact(p.value2) + " " +
         Exact(p.value3) + " " + Exact(p.value4) + " " + std::to_string(p.index0) + " " +
         std::to_string(p.index1) + " " + std::to_string(p.index2) + " " +
         std::to_string(p.index3) + " " + std::to_string(p.index4));
  }
  std::string Path(const std::string& name) const { return prefix_ + "." + name + ".npy"; }
  void Colors(const std::string& name, const KIVMV::KivColorArray& colors) {
    WriteColors(Path(name), colors);
    Line("colors " + name + " " + std::to_string(colors.Length()) + " " +
         std::to_string(colors.Channel()) + " " + std::to_string(colors.Width()) + " " +
         std::to_string(colors.Height()));
  }
  void Image(const std::string& name, const cv::Mat& mat) {
    WriteMat(Path(name), mat, false);
    Line("image_" + name + " 1");
  }
  void Vars(const std::string& name, const KIVMV::KivVarArray& vars) {
    Line(name + "_length " + std::to_string(vars.Length()));
    for (int i = 0; i < vars.Length(); ++i) {
      const KIVMV::KivVar& v = vars[i];
      const std::string item = name + "_" + std::to_string(i);
      if (v.IsImage()) {
        WriteMat(Path(item), v.ToImage().Mat(), false);
        Line(item + " image");
      } else if (v.IsInt()) {
        Line(item + " int " + std::to_string(v.ToInt()));
      } else if (v.IsDouble()) {
        Line(item + " double " + Exact(v.ToDouble()));
      } else {
        Line(item + " empty");
      }
    }
  }
  void Save() const {
    std::ofstream out(prefix_ + ".txt");
    out << text_.str();
  }

 private:
  std::string prefix_;
  std::ostringstream text_;
};

void Info(Result& result, const KIVMV::KivColoringInfo& info, const Job& job) {
  result.Line(std::string("info_mode ") +
              (info.mode == KIVMV::KivColoringMode::kEqualised ? "equalised" : "linear"));
  result.Line("info_minimum " + Exact(info.minimum));
  result.Line("info_maximum " + Exact(info.maximum));
  result.Line("info_valid_count " + std::to_string(info.validCount));
  result.Line("info_no_data_count " + std::to_string(info.noDataCount));
  result.Line("info_low " + Exact(info.low));
  result.Line("info_high " + Exact(info.high));
  WriteNpy(result.Path("entry_start"), CV_64F, {static_cast<int64_t>(info.entryStart.size())},
           info.entryStart.data());
  if (job.Has("query")) {
    const Npy query = ReadNpy(job.Str("query"));
    std::vector<double> positions(static_cast<size_t>(query.Count()));
    const double* q = reinterpret_cast<const double*>(query.bytes.data());
    for (size_t i = 0; i < positions.size(); ++i) positions[i] = info.TablePosition(q[i]);
    WriteNpy(result.Path("positions"), CV_64F, {static_cast<int64_t>(positions.size())},
             positions.data());
  }
}

KIVMV::KivColorBarOptions BarOptions(const Job& job) {
  KIVMV::KivColorBarOptions options;
  if (job.Has("bar_vertical")) options.vertical = job.Int("bar_vertical") != 0;
  if (job.Has("bar_length")) options.length = job.Int("bar_length");
  if (job.Has("bar_thickness")) options.thickness = job.Int("bar_thickness");
  if (job.Has("bar_unit")) options.unit = job.Str("bar_unit");
  if (job.Has("bar_ticks")) options.ticks = job.Int("bar_ticks");
  if (job.Has("bar_end_caps")) options.endCaps = job.Int("bar_end_caps") != 0;
  if (job.Has("bar_below")) options.belowColor = job.Rgb("bar_below");
  if (job.Has("bar_above")) options.aboveColor = job.Rgb("bar_above");
  if (job.Has("bar_text")) options.textColor = job.Rgb("bar_text");
  if (job.Has("bar_background")) options.background = job.Rgb("bar_background");
  if (job.Has("bar_font")) options.fontScale = job.Double("bar_font");
  return options;
}

// The colouring a kivlut.colorize call or SequenceColorizer asks for: mode "equalize", "linear" or
// "percentile", given bounds, colours and channels.
KIVMV::KivColoringOptions ColoringOptions(const Job& job) {
  KIVMV::KivColoringOptions options;
  const std::string mode = job.Str("mode");
  options.mode =
      mode == "equalize" ? KIVMV::KivColoringMode::kEqualised : KIVMV::KivColoringMode::kLinear;
  if (mode == "percentile") {
    options.bounds = KIVMV::KivBoundsSource::kPercentile;
    const std::vector<double> p = job.Doubles("percentiles");
    options.lowPercentile = p.at(0);
    options.highPercentile = p.at(1);
  } else if (job.Has("low")) {
    options.bounds = KIVMV::KivBoundsSource::kGiven;
    options.low = job.Double("low");
    options.high = job.Double("high");
  }
  if (job.Has("nodata")) options.noDataColor = job.Rgb("nodata");
  if (job.Has("below")) options.belowColor = job.Rgb("below");
  if (job.Has("above")) options.aboveColor = job.Rgb("above");
  options.channels = job.Has("channels") ? job.Int("channels") : 3;
  return options;
}

// colorize: a colouring with options, then, when asked, its colour bar and the picture with the
// bar attached, as kivlut.colorize, colorbar and attach_colorbar chain them.
void Colorize(const std::string& op, const Job& job, Result& result) {
  KIVMV::KivColorTable table;
  long status = KIVMV::KivColorTable::ByName(job.Str("cmap"), &table);
  if (status != KIVMV::KIV_EXT_OK) {
    result.Status(status);
    return;
  }
  const auto rgbLine = [&result](const std::string& key, KIVMV::KivRgb c) {
    result.Line(key + " " + std::to_string(c.r) + " " + std::to_string(c.g) + " " +
                std::to_string(c.b));
  };
  rgbLine("table_first", table.At(0));
  rgbLine("table_last", table.At(255));
  rgbLine("table_no_data", table.NoDataColor());
  const KIVMV::KivColoringOptions options = ColoringOptions(job);
  KIVMV::KivColorArray out;
  KIVMV::KivColoringInfo info;
  int width = 0;
  int height = 0;
  if (op == "colorize_range") {
    const KIVMV::KivRangeImage image = RangeImage(job);
    width = image.Width();
    height = image.Height();
    status = KIVMV::KivColorRangeImage(image, table, options, &out, &info);
  } else {
    const KIVMV::Kiv3DFloatArray values = FloatArray(job);
    width = values.Length();
    height = 1;
    status = KIVMV::KivColorFloatArray(values, table, options, &out, &info);
  }
  result.Status(status);
  if (status != KIVMV::KIV_EXT_OK) return;
  result.Colors("out", out);
  Info(result, info, job);
  if (!job.Has("bar")) return;
  KIVMV::KivColorBarOptions barOptions = BarOptions(job);
  // The bar's end caps default to the colours the colouring used, as the module's colorbar does.
  if (!job.Has("bar_below") && options.belowColor) barOptions.belowColor = options.belowColor;
  if (!job.Has("bar_above") && options.aboveColor) barOptions.aboveColor = options.aboveColor;
  KIVMV::KivColorTable barTable = table;
  if (job.Has("bar_cmap")) KIVMV::KivColorTable::ByName(job.Str("bar_cmap"), &barTable);
  cv::Mat bar;
  status = KIVMV::KivDrawColorBar(barTable, info, barOptions, &bar);
  result.Line("bar_status " + std::to_string(status));
  if (status != KIVMV::KIV_EXT_OK) return;
  result.Image("bar", bar);
  if (!job.Has("attach")) return;
  KIVMV::KivColorBarOptions attachOptions;
  if (job.Has("attach_vertical")) attachOptions.vertical = job.Int("attach_vertical") != 0;
  if (job.Has("attach_background")) attachOptions.background = job.Rgb("attach_background");
  cv::Mat attached;
  status = KIVMV::KivAttachColorBar(out, width, height, bar, attachOptions, &attached);
  result.Line("attach_status " + std::to_string(status));
  if (status == KIVMV::KIV_EXT_OK) result.Image("attached", attached);
}

// sequence: range images img0 .. img<frames - 1> through one KivSequenceColorizer, in that order,
// as a kivlut.SequenceColorizer colours them; each frame's status, colours and bounds.
void Sequence(const Job& job, Result& result) {
  KIVMV::KivColorTable table;
  KIVMV::KivColorTable::ByName(job.Str("cmap"), &table);
  KIVMV::KivSequenceOptions options;
  options.coloring = ColoringOptions(job);
  options.timeConstant = job.Double("tau");
  options.holdFrames = job.Int("hold");
  options.boundDeadBand = job.Double("band");
  options.entryTolerance = job.Double("tolerance");
  KIVMV::KivSequenceColorizer colorizer(table, options);
  for (int k = 0; k < job.Int("frames"); ++k) {
    const std::string frame = std::to_string(k);
    KIVMV::KivColorArray out;
    KIVMV::KivColoringInfo info;
    const long status = colorizer.ColorFrame(RangeImage(job, "img" + frame), &out, &info);
    result.Line("status" + frame + " " + std::to_string(status));
    if (status != KIVMV::KIV_EXT_OK) continue;
    result.Colors("out" + frame, out);
    std::ostringstream bounds;
    bounds.precision(17);
    bounds << "bounds" << frame << " " << info.low << " " << info.high;
    result.Line(bounds.str());
  }
}

void Run(const std::string& op, const Job& job, Result& result) {
  KIVMV::KivLUTSetting lut;
  KIVMV::KivColorArray out;
  if (op == "get_color") {
    KivColor color(-1, -1, -1, -1);
    result.Status(lut.GetColor(job.Double("value"), job.Int("map"), &color));
    result.Color(color);
  } else if (op == "cm_image") {
    KIVMV::KivRangeImage image = RangeImage(job);
    result.Status(lut.ColorMapLUT(image, job.Int("map"), &out));
    result.Colors("out", out);
  } else if (op == "cm_image_bounds") {
    KIVMV::KivRangeImage image = RangeImage(job);
    result.Status(
        lut.ColorMapLUT(image, job.Int("map"), job.Double("low"), job.Double("high"), &out));
    result.Colors("out", out);
  } else if (op == "cm_image_entries") {
    KIVMV::KivRangeImage image = RangeImage(job);
    result.Status(lut.ColorMapLUT(image, job.Int("map"), job.Double("low"), job.Double("high"),
                                  job.Int("lo"), job.Int("hi"), job.Color("below"),
                                  job.Color("above"), &out));
    result.Colors("out", out);
  } else if (op == "cm_ints") {
    KIVMV::Kiv3DIntArray values = IntArray(job);
    result.Status(lut.ColorMapLUT(values, job.Int("map"), job.Int("low"), job.Int("high"), &out));
    result.Colors("out", out);
  } else if (op == "cm_segments") {
    KIVMV::KivRangeImage image = RangeImage(job);
    KIVMV::LinearColorMapLUT_Para para = Para(job);
    KivColor under = job.Color("under");
    KivColor over = job.Color("over");
    KIVMV::KivVarArray vectorA;
    KIVMV::KivVarArray vectorB;
    result.Status(lut.ColorMapLUT(image, &out, para, under, over, job.Int("map"),
                                  job.Int("auto") != 0, job.Int("size_a"), job.Int("size_b"),
                                  &vectorA, &vectorB));
    result.Colors("out", out);
    result.Para(para);
    result.Vars("vector_a", vectorA);
    result.Vars("vector_b", vectorB);
  } else if (op == "lin_image") {
    KIVMV::KivRangeImage image = RangeImage(job);
    result.Status(lut.LinearColorMapLUT(image, job.Int("map"), &out));
    result.Colors("out", out);
  } else if (op == "lin_image_bounds") {
    KIVMV::KivRangeImage image = RangeImage(job);
    result.Status(
        lut.LinearColorMapLUT(image, job.Int("map"), job.Double("low"), job.Double("high"), &out));
    result.Colors("out", out);
  } else if (op == "lin_image_entries") {
    KIVMV::KivRangeImage image = RangeImage(job);
    result.Status(lut.LinearColorMapLUT(image, job.Int("map"), job.Double("low"),
                                        job.Double("high"), job.Int("lo"), job.Int("hi"),
                                        job.Color("under"), job.Color("over"), &out));
    result.Colors("out", out);
  } else if (op == "lin_image_fractions") {
    KIVMV::KivRangeImage image = RangeImage(job);
    result.Status(lut.LinearColorMapLUT(image, &out, job.Int("map"), job.Double("upper"),
                                        job.Double("lower")));
    result.Colors("out", out);
  } else if (op == "lin_image_para") {
    KIVMV::KivRangeImage image = RangeImage(job);
    KIVMV::LinearColorMapLUT_Para para = Para(job);
    KivColor under = job.Color("under");
    KivColor over = job.Color("over");
    result.Status(lut.LinearColorMapLUT(image, &out, para, under, over, job.Int("map"),
                                        job.Int("auto") != 0));
    result.Colors("out", out);
    result.Para(para);
  } else if (op == "lin_floats_para") {
    KIVMV::Kiv3DFloatArray values = FloatArray(job);
    KIVMV::LinearColorMapLUT_Para para = Para(job);
    KivColor under = job.Color("under");
    KivColor over = job.Color("over");
    result.Status(lut.LinearColorMapLUT(values, &out, para, under, over, job.Int("map"),
                                        job.Int("auto") != 0));
    result.Colors("out", out);
    result.Para(para);
    WriteNpy(result.Path("values"), CV_32F, {values.Length()}, values.Data());
  } else if (op == "set_grey") {
    KIVMV::KivImage grey = GreyImage(job);
    KIVMV::KivImage dst;
    result.Status(lut.SetColorLUT(grey, &dst, job.Int("map")));
    result.Image("out", dst.Mat());
  } else if (op == "set_grey_entries") {
    KIVMV::KivImage grey = GreyImage(job);
    KIVMV::KivImage dst;
    result.Status(lut.SetColorLUT(grey, &dst, job.Int("map"), job.Int("low"), job.Int("high"),
                                  job.Int("lo"), job.Int("hi"), job.Color("below"),
                                  job.Color("above")));
    result.Image("out", dst.Mat());
  } else if (op == "set_floats") {
    KIVMV::Kiv3DFloatArray values = FloatArray(job);
    result.Status(lut.SetColorLUT(values, static_cast<float>(job.Double("min")),
                                  static_cast<float>(job.Double("max")), job.Int("map"), &out));
    result.Colors("out", out);
  } else if (op == "linset_grey") {
    KIVMV::KivImage grey = GreyImage(job);
    KIVMV::KivImage dst;
    result.Status(lut.LinearSetColorLUT(grey, &dst, job.Int("map")));
    result.Image("out", dst.Mat());
  } else if (op == "linset_floats") {
    KIVMV::Kiv3DFloatArray values = FloatArray(job);
    result.Status(lut.LinearSetColorLUT(values, static_cast<float>(job.Double("min")),
                                        static_cast<float>(job.Double("max")), job.Int("map"),
                                        &out));
    result.Colors("out", out);
  } else if (op == "normal_map") {
    KIVMV::KivVector3dArray normals = Normals(job);
    result.Status(lut.SetColorNormalMap(normals, &out));
    result.Colors("out", out);
  } else if (op == "normal_map_lit") {
    KIVMV::KivRangeImage image = RangeImage(job);
    KIVMV::KivVector3d light = Vector(job, "va");
    KIVMV::KivVector3d eye = Vector(job, "vb");
    result.Status(lut.SetColorNormalMap(
        image, light, eye, job.Int("mode"), static_cast<float>(job.Double("ca")),
        static_cast<float>(job.Double("cb")), static_cast<float>(job.Double("cc")),
        static_cast<float>(job.Double("cd")), &out));
    result.Colors("out", out);
  } else if (op == "normal_map_phong") {
    KIVMV::KivRangeImage image = RangeImage(job);
    result.Status(lut.SetColorNormalMapPhong(image, &out));
    result.Colors("out", out);
  } else if (op == "blend") {
    KIVMV::KivColorArray a = ColorArray(job.Str("a"));
    KIVMV::KivColorArray b = ColorArray(job.Str("b"));
    result.Status(lut.ColorBlend(a, b, job.Double("alpha"), &out));
    result.Colors("out", out);
  } else if (op == "colorize_range" || op == "colorize_floats") {
    Colorize(op, job, result);
  } else if (op == "sequence") {
    Sequence(job, result);
  } else if (op == "names") {
    // One a line: a name may hold a space ("hot metal").
    const std::vector<std::string> names = KIVMV::KivColorTable::Names();
    result.Line("names " + std::to_string(names.size()));
    for (size_t i = 0; i < names.size(); ++i)
      result.Line("name_" + std::to_string(i) + " " + names[i]);
  } else if (op == "status_name") {
    result.Line(std::string("name ") + KIVMV::KivLUTStatusName(job.Int("status")));
  } else if (op == "imread") {
    const cv::Mat image = cv::imread(job.Str("path"), cv::IMREAD_UNCHANGED);
    result.Line(std::string("read ") + (image.empty() ? "0" : "1"));
    if (!image.empty()) WriteMat(result.Path("image"), image, true);
  } else {
    throw std::runtime_error("unknown operation " + op);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: reference_runner JOBFILE\n";
    return 2;
  }
  std::ifstream jobs(argv[1]);
  if (!jobs) {
    std::cerr << "cannot open " << argv[1] << "\n";
    return 2;
  }
  std::string line;
  int failures = 0;
  while (std::getline(jobs, line)) {
    std::istringstream in(line);
    std::vector<std::string> tokens;
    std::string token;
    while (in >> token) tokens.push_back(token);
    if (tokens.size() < 2) continue;
    try {
      Result result(tokens[0]);
      Run(tokens[1], Job(tokens), result);
      result.Save();
    } catch (const std::exception& e) {
      // The test reports the missing result; the other calls still run.
      std::cerr << tokens[0] << ": " << e.what() << "\n";
      ++failures;
    }
  }
  return failures == 0 ? 0 : 1;
}
