/**
 * A folder for as long as somebody needs it.
 */
#ifndef TOOLS_TEMP_FOLDER_H
#define TOOLS_TEMP_FOLDER_H

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace tools {

/** A folder that is gone when its owner is. */
class TempFolder {
  public:
    TempFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "norvex-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("no temporary folder");
        }
        path_ = pattern;
    }
    ~TempFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;
    const std::filesystem::path &path() const { return path_; }

  private:
    std::filesystem::path path_;
};

}  // namespace tools

#endif
