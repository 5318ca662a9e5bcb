#include <dlfcn.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

#include "KivMultiLanguage.h"

// Where the string tables are installed: relative to the folder of the installed library, and
// the absolute folder of the configured prefix as a last resort.
#ifndef KIVPLATFORM_LANG_RELATIVE_DIR
#define KIVPLATFORM_LANG_RELATIVE_DIR "../share/KivLUTSetting/lang"
#endif
#ifndef KIVPLATFORM_LANG_INSTALL_DIR
#define KIVPLATFORM_LANG_INSTALL_DIR "/usr/local/share/KivLUTSetting/lang"
#endif

namespace KIVMV {
namespace language_detail {
namespace {

constexpr char32_t kReplacementCharacter = 0xFFFD;

void AppendCodePoint(char32_t code, std::wstring* out) {
  if constexpr (sizeof(wchar_t) >= 4) {
    out->push_back(static_cast<wchar_t>(code));
  } else {
    if (code < 0x10000) {
      out->push_back(static_cast<wchar_t>(code));
    } else {
      const char32_t rest = code - 0x10000;
      out->push_back(static_cast<wchar_t>(0xD800 + (rest >> 10)));
      out->push_back(static_cast<wchar_t>(0xDC00 + (rest & 0x3FF)));
    }
  }
}

bool IsContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// The code point of the well-formed sequence starting at `at`, and its length; 0 when the bytes
// there do not form one.
std::size_t DecodeOne(const std::string& s, std::size_t at, char32_t* code) {
  const auto lead = static_cast<unsigned char>(s[at]);
  std::size_t length = 0;
  char32_t value = 0;
  char32_t smallest = 0;
  if (lead < 0x80) {
    *code = lead;
    return 1;
  } else if ((lead & 0xE0) == 0xC0) {
    length = 2;
    value = lead & 0x1F;
    smallest = 0x80;
  } else if ((lead & 0xF0) == 0xE0) {
    length = 3;
    value = lead & 0x0F;
    smallest = 0x800;
  } else if ((lead & 0xF8) == 0xF0) {
    length = 4;
    value = lead & 0x07;
    smallest = 0x10000;
  } else {
    return 0;
  }
  if (s.size() - at < length) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(s[at + i]);
    if (!IsContinuation(byte)) return 0;
    value = (value << 6) | (byte & 0x3F);
  }
  // Overlong forms, UTF-16 surrogates and values beyond Unicode are not characters.
  if (value < smallest || (value >= 0xD800 && value <= 0xDFFF) || value > 0x10FFFF) return 0;
  *code = value;
  return length;
}

std::string Trim(const std::string& s) {
  const char* const kSpace = " \t\r\n";
  const std::size_t first = s.find_first_not_of(kSpace);
  if (first == std::string::npos) return std::string();
  const std::size_t last = s.find_last_not_of(kSpace);
  return s.substr(first, last - first + 1);
}

std::string Unescape(const std::string& s) {
  std::string out;
  out.reserve(s.size());
  for (std::size_t i = 0; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 1 < s.size()) {
      const char next = s[i + 1];
      if (next == 'n' || next == 't' || next == '\\') {
        out.push_back(next == 'n' ? '\n' : next == 't' ? '\t' : '\\');
        ++i;
        continue;
      }
    }
    out.push_back(s[i]);
  }
  return out;
}

// Letters, digits, '_' and '-' only: a module or language name never leaves the folder.
bool IsSafeName(const std::string& name) {
  if (name.empty()) return false;
  for (const char c : name) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '_' || c == '-';
    if (!ok) return false;
  }
  return true;
}

bool IsDirectory(const std::string& path) {
  struct stat info {};
  return !path.empty() && ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

std::string EnvironmentValue(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string() : std::string(value);
}

}  // namespace

std::wstring Utf8ToWide(const std::string& utf8) {
  std::wstring out;
  out.reserve(utf8.size());
  std::size_t at = 0;
  while (at < utf8.size()) {
    char32_t code = 0;
    const std::size_t length = DecodeOne(utf8, at, &code);
    if (length == 0) {
      AppendCodePoint(kReplacementCharacter, &out);
      ++at;
    } else {
      AppendCodePoint(code, &out);
      at += length;
    }
  }
  return out;
}

std::map<std::string, std::wstring> ParseStringTable(const std::string& contents) {
  std::map<std::string, std::wstring> table;
  std::string text = contents;
  static const std::string kByteOrderMark = "\xEF\xBB\xBF";
  if (text.compare(0, kByteOrderMark.size(), kByteOrderMark) == 0) {
    text.erase(0, kByteOrderMark.size());
  }
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    const std::string trimmed = Trim(line);
    if (trimmed.empty() || trimmed[0] == '#' || trimmed[0] == ';') continue;
    const std::size_t equals = trimmed.find('=');
    if (equals == std::string::npos) continue;
    const std::string id = Trim(trimmed.substr(0, equals));
    if (id.empty()) continue;
    table[id] = Utf8ToWide(Unescape(Trim(trimmed.substr(equals + 1))));
  }
  return table;
}

std::string NormaliseLanguage(const std::string& language) {
  std::string name = language.substr(0, language.find('.'));
  for (char& c : name) {
    if (c == '-') c = '_';
  }
  return name.empty() ? std::string("en") : name;
}

std::string InstalledFolder() {
  Dl_info info{};
  // Any function of this library tells where the library was loaded from.
  if (::dladdr(reinterpret_cast<void*>(&InstalledFolder), &info) != 0 &&
      info.dli_fname != nullptr) {
    const std::string library = info.dli_fname;
    const std::size_t slash = library.rfind('/');
    if (slash != std::string::npos) {
      const std::string beside = library.substr(0, slash + 1) + KIVPLATFORM_LANG_RELATIVE_DIR;
      if (IsDirectory(beside)) return beside;
    }
  }
  return IsDirectory(KIVPLATFORM_LANG_INSTALL_DIR) ? std::string(KIVPLATFORM_LANG_INSTALL_DIR)
                                                   : std::string();
}

}  // namespace language_detail

KivMultiLanguage::KivMultiLanguage() {
  folder_ = language_detail::EnvironmentValue("KIV_LANG_DIR");
  if (folder_.empty()) folder_ = language_detail::InstalledFolder();
  language_ = language_detail::NormaliseLanguage(language_detail::EnvironmentValue("KIV_LANG"));
}

KivMultiLanguage::KivMultiLanguage(const std::string& folder, const std::string& language)
    : folder_(folder), language_(language_detail::NormaliseLanguage(language)) {}

KivMultiLanguage::~KivMultiLanguage() = default;

const KivMultiLanguage::Table& KivMultiLanguage::TableOf(const std::string& module) {
  const auto found = tables_.find(module);
  if (found != tables_.end()) return found->second;
  Table table;
  if (!folder_.empty() && language_detail::IsSafeName(module) &&
      language_detail::IsSafeName(language_)) {
    std::ifstream file(folder_ + "/" + language_ + "/" + module + ".lang", std::ios::binary);
    if (file) {
      const std::string contents((std::istreambuf_iterator<char>(file)),
                                 std::istreambuf_iterator<char>());
      table = language_detail::ParseStringTable(contents);
    }
  }
  // A missing table is remembered as empty, so the disk is asked once per module.
  return tables_.emplace(module, std::move(table)).first->second;
}

long KivMultiLanguage::DynamicLoadString(const char* id, const char* module, std::wstring* text) {
  if (id == nullptr || module == nullptr || text == nullptr) return kKivPlatformNullArgument;
  try {
    const Table& table = TableOf(module);
    const auto found = table.find(id);
    if (found == table.end()) return kKivLanguageTextNotFound;
    *text = found->second;
    return kKivPlatformOk;
  } catch (const std::exception&) {
    // Out of memory while reading a table: the caller keeps its text.
    return kKivLanguageTextNotFound;
  }
}

}  // namespace KIVMV
