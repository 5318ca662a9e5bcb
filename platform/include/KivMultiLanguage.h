#ifndef KIVMV_KIV_MULTI_LANGUAGE_H_
#define KIVMV_KIV_MULTI_LANGUAGE_H_

#include <map>
#include <string>

#include "KivPlatformExport.h"
#include "KivPlatformStatus.h"

namespace KIVMV {

// DynamicLoadString found no text for the id (no table for the module and language, or no such
// id in it); the text was left as it was.
inline constexpr long kKivLanguageTextNotFound = 101;

// Translation service: texts looked up by id in per-module string tables.
//
// A string table is a UTF-8 file <folder>/<language>/<module>.lang of lines "ID=text". Blank
// lines and lines starting with '#' or ';' are skipped, as is a byte-order mark; spaces around
// the id and around the text are dropped; in the text "\n", "\t" and "\\" stand for a line
// break, a tab and a backslash. When an id appears twice, the later line wins.
//
// The folder is the environment variable KIV_LANG_DIR when it is set and not empty, otherwise
// the string-table folder installed beside the platform library (<prefix>/share/KivLUTSetting/
// lang, found relative to the library, so a relocated install still finds it). The language is
// KIV_LANG when set and not empty ("zh_CN"; an encoding suffix such as ".UTF-8" is ignored and
// '-' reads as '_'), otherwise "en". Both are read when the object is constructed; a table is
// read from disk on first use and kept by the object.
//
// Module and language names are restricted to letters, digits, '_' and '-', so that a name can
// never point outside the folder.
class KIVMV_PLATFORM_API KivMultiLanguage {
 public:
  // Folder and language from the environment, as above.
  KivMultiLanguage();
  // An explicit folder and language, whatever the environment says.
  KivMultiLanguage(const std::string& folder, const std::string& language);
  virtual ~KivMultiLanguage();

  KivMultiLanguage(const KivMultiLanguage&) = default;
  KivMultiLanguage& operator=(const KivMultiLanguage&) = default;

  // Replaces *text by the translation of `id` in the table of `module` and returns
  // kKivPlatformOk; when there is none, leaves *text as it was and returns
  // kKivLanguageTextNotFound. A null argument gives kKivPlatformNullArgument and changes nothing.
  long DynamicLoadString(const char* id, const char* module, std::wstring* text);

  // The folder and language this object reads its tables from.
  const std::string& Folder() const { return folder_; }
  const std::string& Language() const { return language_; }

 private:
  using Table = std::map<std::string, std::wstring>;
  const Table& TableOf(const std::string& module);

  std::string folder_;
  std::string language_;
  std::map<std::string, Table> tables_;
};

namespace language_detail {

// UTF-8 to the platform's wide characters (UTF-32, or UTF-16 with surrogate pairs where wchar_t
// has 16 bits). Every byte that does not start a well-formed sequence (overlong forms,
// surrogates and values above U+10FFFF included) becomes one U+FFFD.
KIVMV_PLATFORM_API std::wstring Utf8ToWide(const std::string& utf8);

// The id-to-text pairs of one string table's contents, by the rules of KivMultiLanguage.
KIVMV_PLATFORM_API std::map<std::string, std::wstring> ParseStringTable(
    const std::string& contents);

// KIV_LANG as a folder name: "zh-CN.UTF-8" gives "zh_CN"; empty gives "en".
KIVMV_PLATFORM_API std::string NormaliseLanguage(const std::string& language);

// The string-table folder installed beside the platform library, or "" when the library cannot
// tell where it was loaded from.
KIVMV_PLATFORM_API std::string InstalledFolder();

}  // namespace language_detail

}  // namespace KIVMV

#endif  // KIVMV_KIV_MULTI_LANGUAGE_H_
