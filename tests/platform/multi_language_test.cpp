#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "KivMultiLanguage.h"
#include "support/scoped_environment.h"

namespace KIVMV {
namespace {

using language_detail::NormaliseLanguage;
using language_detail::ParseStringTable;
using language_detail::Utf8ToWide;
using testing_support::ScopedEnvironment;

const char kShippedTables[] = KIVLUT_LANG_SOURCE_DIR;
const char kModule[] = "KivLUTSetting";

// Every id the colour-map dialog looks up.
const std::vector<std::string> kDialogIds = {"IDS_GRAY",
                                             "IDS_RAINBOW",
                                             "IDS_HOTMETAL",
                                             "IDS_DIVERGING_MAP",
                                             "IDS_ISOLUMINANT_MAP",
                                             "IDS_RGB_MAP",
                                             "IDD2000_Title",
                                             "IDD2000_2003",
                                             "IDD2000_1",
                                             "IDD2000_2",
                                             "IDS_MSGW_Title",
                                             "IDS_MSG_NOT_SUPPORT_CURRENT_BIT_DEPTH",
                                             "IDS_MSG_NO_IMAGE",
                                             "IDS_MSG_SUPPORT_SINGLECHANNELIMAGE"};

// A scratch folder of string tables, removed at the end of the test.
class TableFolder {
 public:
  TableFolder() {
    char pattern[] = "/tmp/kivlang-XXXXXX";
    const char* made = mkdtemp(pattern);
    folder_ = made != nullptr ? made : "";
  }
  ~TableFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  TableFolder(const TableFolder&) = delete;
  TableFolder& operator=(const TableFolder&) = delete;

  void Write(const std::string& language, const std::string& module, const std::string& bytes) {
    std::filesystem::create_directories(folder_ + "/" + language);
    std::ofstream(folder_ + "/" + language + "/" + module + ".lang", std::ios::binary) << bytes;
  }
  const std::string& Path() const { return folder_; }

 private:
  std::string folder_;
};

TEST(MultiLanguage, DecodesUtf8OfEveryLength) {
  struct Case {
    std::string utf8;
    std::wstring wide;
  } cases[] = {
      {"", L""},
      {"Grey Level", L"Grey Level"},
      {"\xC3\xA9", std::wstring(1, wchar_t(0xE9))},                      // é, two bytes
      {"\xE7\x81\xB0\xE5\xBA\xA6", {wchar_t(0x7070), wchar_t(0x5EA6)}},  // 灰度, three bytes
      {"\xEF\xBC\x81", std::wstring(1, wchar_t(0xFF01))},                // full-width !
  };
  for (const Case& c : cases) EXPECT_EQ(Utf8ToWide(c.utf8), c.wide) << c.utf8;

  // Four bytes: one code point above the basic plane.
  const std::wstring emoji = Utf8ToWide("\xF0\x9F\x98\x80");
  if (sizeof(wchar_t) >= 4) {
    ASSERT_EQ(emoji.size(), 1u);
    EXPECT_EQ(static_cast<unsigned long>(emoji[0]), 0x1F600ul);
  } else {
    ASSERT_EQ(emoji.size(), 2u);
    EXPECT_EQ(static_cast<unsigned long>(emoji[0]), 0xD83Dul);
    EXPECT_EQ(static_cast<unsigned long>(emoji[1]), 0xDE00ul);
  }
}

TEST(MultiLanguage, MalformedBytesBecomeReplacementCharacters) {
  const wchar_t r = wchar_t(0xFFFD);
  struct Case {
    std::string utf8;
    std::wstring wide;
  } cases[] = {
      {"a\x80z", {L'a', r, L'z'}},         // lone continuation byte
      {"\xC3", {r}},                       // truncated at the end
      {"\xC3z", {r, L'z'}},                // lead byte without its continuation
      {"\xC0\xAF", {r, r}},                // overlong '/'
      {"\xE0\x80\xAF", {r, r, r}},         // overlong, three bytes
      {"\xED\xA0\x80", {r, r, r}},         // a UTF-16 surrogate
      {"\xF4\x90\x80\x80", {r, r, r, r}},  // above U+10FFFF
      {"\xFF\xFE", {r, r}},                // bytes that never start a sequence
  };
  for (const Case& c : cases) EXPECT_EQ(Utf8ToWide(c.utf8), c.wide);
}

TEST(MultiLanguage, ParsesTablesLineByLine) {
  const std::string contents =
      "\xEF\xBB\xBF# comment\r\n"
      "; another comment\n"
      "\n"
      "  IDS_A  =  spaced text  \r\n"
      "IDS_B=a=b\n"
      "no equals sign here\n"
      "=no id\n"
      "IDS_ESC=one\\ntwo\\tthree\\\\four\\x\n"
      "IDS_EMPTY=\n"
      "IDS_TWICE=first\n"
      "IDS_TWICE=second\n"
      "IDS_ZH=\xE7\x81\xB0\xE5\xBA\xA6";  // no final line break
  const std::map<std::string, std::wstring> table = ParseStringTable(contents);
  const std::map<std::string, std::wstring> expected = {
      {"IDS_A", L"spaced text"},
      {"IDS_B", L"a=b"},
      {"IDS_ESC", L"one\ntwo\tthree\\four\\x"},
      {"IDS_EMPTY", L""},
      {"IDS_TWICE", L"second"},
      {"IDS_ZH", {wchar_t(0x7070), wchar_t(0x5EA6)}},
  };
  EXPECT_EQ(table, expected);
}

TEST(MultiLanguage, NormalisesLanguageNames) {
  EXPECT_EQ(NormaliseLanguage(""), "en");
  EXPECT_EQ(NormaliseLanguage("en"), "en");
  EXPECT_EQ(NormaliseLanguage("zh_CN"), "zh_CN");
  EXPECT_EQ(NormaliseLanguage("zh-CN"), "zh_CN");
  EXPECT_EQ(NormaliseLanguage("zh_CN.UTF-8"), "zh_CN");
  EXPECT_EQ(NormaliseLanguage(".UTF-8"), "en");
}

TEST(MultiLanguage, ReplacesTextOnlyWhenFound) {
  TableFolder folder;
  folder.Write("en", "Mod", "IDS_HELLO=Hello\n");
  KivMultiLanguage language(folder.Path(), "en");

  std::wstring text = L"default";
  EXPECT_EQ(language.DynamicLoadString("IDS_HELLO", "Mod", &text), kKivPlatformOk);
  EXPECT_EQ(text, L"Hello");

  text = L"default";
  EXPECT_EQ(language.DynamicLoadString("IDS_MISSING", "Mod", &text), kKivLanguageTextNotFound);
  EXPECT_EQ(text, L"default");

  EXPECT_EQ(language.DynamicLoadString("IDS_HELLO", "NoSuchModule", &text),
            kKivLanguageTextNotFound);
  EXPECT_EQ(text, L"default");

  KivMultiLanguage french(folder.Path(), "fr");
  EXPECT_EQ(french.DynamicLoadString("IDS_HELLO", "Mod", &text), kKivLanguageTextNotFound);
  EXPECT_EQ(text, L"default");
}

TEST(MultiLanguage, NullArgumentsChangeNothing) {
  TableFolder folder;
  folder.Write("en", "Mod", "IDS_HELLO=Hello\n");
  KivMultiLanguage language(folder.Path(), "en");
  std::wstring text = L"keep";
  EXPECT_EQ(language.DynamicLoadString(nullptr, "Mod", &text), kKivPlatformNullArgument);
  EXPECT_EQ(language.DynamicLoadString("IDS_HELLO", nullptr, &text), kKivPlatformNullArgument);
  EXPECT_EQ(language.DynamicLoadString("IDS_HELLO", "Mod", nullptr), kKivPlatformNullArgument);
  EXPECT_EQ(text, L"keep");
}

TEST(MultiLanguage, NamesCannotLeaveTheFolder) {
  TableFolder folder;
  folder.Write("en", "Mod", "IDS_HELLO=Hello\n");
  // A table one level up that a path in the module or language name would reach.
  std::ofstream(folder.Path() + "/Up.lang") << "IDS_HELLO=escaped\n";
  KivMultiLanguage language(folder.Path(), "en");
  std::wstring text = L"default";
  EXPECT_EQ(language.DynamicLoadString("IDS_HELLO", "../Up", &text), kKivLanguageTextNotFound);
  KivMultiLanguage climbing(folder.Path() + "/en", "..");
  EXPECT_EQ(climbing.DynamicLoadString("IDS_HELLO", "Up", &text), kKivLanguageTextNotFound);
  EXPECT_EQ(text, L"default");
}

TEST(MultiLanguage, ReadsFolderAndLanguageFromTheEnvironment) {
  TableFolder folder;
  folder.Write("en", "Mod", "IDS_HELLO=Hello\n");
  folder.Write("zh_CN", "Mod", "IDS_HELLO=\xE4\xBD\xA0\xE5\xA5\xBD\n");  // 你好
  ScopedEnvironment dir("KIV_LANG_DIR", folder.Path().c_str());
  {
    ScopedEnvironment lang("KIV_LANG", nullptr);
    KivMultiLanguage language;
    EXPECT_EQ(language.Folder(), folder.Path());
    EXPECT_EQ(language.Language(), "en");
    std::wstring text;
    EXPECT_EQ(language.DynamicLoadString("IDS_HELLO", "Mod", &text), kKivPlatformOk);
    EXPECT_EQ(text, L"Hello");
  }
  {
    ScopedEnvironment lang("KIV_LANG", "zh-CN.UTF-8");
    KivMultiLanguage language;
    EXPECT_EQ(language.Language(), "zh_CN");
    std::wstring text;
    EXPECT_EQ(language.DynamicLoadString("IDS_HELLO", "Mod", &text), kKivPlatformOk);
    EXPECT_EQ(text, (std::wstring{wchar_t(0x4F60), wchar_t(0x597D)}));
  }
}

TEST(MultiLanguage, KeepsATableOnceRead) {
  TableFolder folder;
  folder.Write("en", "Mod", "IDS_HELLO=Hello\n");
  KivMultiLanguage language(folder.Path(), "en");
  std::wstring text;
  ASSERT_EQ(language.DynamicLoadString("IDS_HELLO", "Mod", &text), kKivPlatformOk);
  folder.Write("en", "Mod", "IDS_HELLO=Changed\n");
  EXPECT_EQ(language.DynamicLoadString("IDS_HELLO", "Mod", &text), kKivPlatformOk);
  EXPECT_EQ(text, L"Hello");
  // A new object reads the file again.
  KivMultiLanguage fresh(folder.Path(), "en");
  EXPECT_EQ(fresh.DynamicLoadString("IDS_HELLO", "Mod", &text), kKivPlatformOk);
  EXPECT_EQ(text, L"Changed");
}

TEST(MultiLanguage, DefaultFolderIsTheOneBesideTheLibrary) {
  ScopedEnvironment dir("KIV_LANG_DIR", nullptr);
  ScopedEnvironment lang("KIV_LANG", nullptr);
  KivMultiLanguage language;
  ASSERT_FALSE(language.Folder().empty()) << "no string tables beside the platform library";
  std::wstring text;
  EXPECT_EQ(language.DynamicLoadString("IDS_GRAY", kModule, &text), kKivPlatformOk);
  EXPECT_EQ(text, L"Grey Level");
}

TEST(MultiLanguage, ShippedTablesHoldEveryDialogId) {
  for (const char* languageName : {"en", "zh_CN"}) {
    KivMultiLanguage language(kShippedTables, languageName);
    for (const std::string& id : kDialogIds) {
      std::wstring text;
      EXPECT_EQ(language.DynamicLoadString(id.c_str(), kModule, &text), kKivPlatformOk)
          << languageName << " " << id;
      EXPECT_FALSE(text.empty()) << languageName << " " << id;
      for (const wchar_t c : text) {
        EXPECT_NE(static_cast<unsigned long>(c), 0xFFFDul) << languageName << " " << id;
      }
    }
  }
}

TEST(MultiLanguage, ShippedEnglishTableMatchesTheDialogDefaults) {
  const std::map<std::string, std::wstring> expected = {
      {"IDS_GRAY", L"Grey Level"},
      {"IDS_RAINBOW", L"Rainbow"},
      {"IDS_HOTMETAL", L"Hot Metal Code"},
      {"IDS_DIVERGING_MAP", L"Diverging Map"},
      {"IDS_ISOLUMINANT_MAP", L"Isoluminant Map"},
      {"IDS_RGB_MAP", L"RGB Map"},
      {"IDD2000_Title", L"KivLUTSetting"},
      {"IDD2000_2003", L"Code Type"},
      {"IDD2000_1", L"OK"},
      {"IDD2000_2", L"CANCEL"},
      {"IDS_MSGW_Title", L"Warning"},
      {"IDS_MSG_NOT_SUPPORT_CURRENT_BIT_DEPTH", L"Does not support current image depth!"},
      {"IDS_MSG_NO_IMAGE", L"No Image"},
      {"IDS_MSG_SUPPORT_SINGLECHANNELIMAGE", L"Only support single channel image!"},
  };
  KivMultiLanguage language(kShippedTables, "en");
  for (const auto& [id, text] : expected) {
    std::wstring loaded;
    EXPECT_EQ(language.DynamicLoadString(id.c_str(), kModule, &loaded), kKivPlatformOk) << id;
    EXPECT_EQ(loaded, text) << id;
  }
}

TEST(MultiLanguage, ShippedChineseTableIsChinese) {
  KivMultiLanguage english(kShippedTables, "en");
  KivMultiLanguage chinese(kShippedTables, "zh_CN");
  for (const std::string& id : kDialogIds) {
    std::wstring en;
    std::wstring zh;
    ASSERT_EQ(english.DynamicLoadString(id.c_str(), kModule, &en), kKivPlatformOk) << id;
    ASSERT_EQ(chinese.DynamicLoadString(id.c_str(), kModule, &zh), kKivPlatformOk) << id;
    EXPECT_NE(en, zh) << id;
    bool hasHan = false;
    for (const wchar_t c : zh) {
      const auto code = static_cast<unsigned long>(c);
      hasHan = hasHan || (code >= 0x4E00 && code <= 0x9FFF);
    }
    EXPECT_TRUE(hasHan) << id;
  }
}

}  // namespace
}  // namespace KIVMV
