// A fresh folder under the system's temporary folder for a test's files.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace KIVMV {
namespace testing_support {

// Made with a unique name (mkdtemp) and removed with everything in it at the end.
class TempFolder {
 public:
  explicit TempFolder(const std::string& prefix = "kivlut") {
    const std::string pattern =
        (std::filesystem::temp_directory_path() / (prefix + "_XXXXXX")).string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    const char* made = mkdtemp(buffer.data());
    EXPECT_NE(made, nullptr) << "cannot create a temporary folder";
    if (made != nullptr) path_ = made;
  }
  ~TempFolder() {
    std::error_code code;
    if (!path_.empty()) std::filesystem::remove_all(path_, code);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string operator/(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace testing_support
}  // namespace KIVMV
