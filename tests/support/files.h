// Files for tests: a scratch folder that cleans up after itself, and whole
// files read and written in one call.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace halvo::testkit {

// A fresh folder under the system's temporary folder, removed with its
// contents at the end of the scope.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    // Writes `bytes` into the file `name` here, with `mode`; the file's path.
    std::string write(std::string_view name, std::string_view bytes, mode_t mode = 0644) const;
    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

  private:
    std::filesystem::path path_;
};

// The file's bytes; empty when it cannot be read.
std::string readFile(const std::filesystem::path& path);
// Whether all of `bytes` reached the file (written in one go when they fit
// the stream's buffer, as /proc's id maps need).
bool writeFile(const std::filesystem::path& path, std::string_view bytes);

} // namespace halvo::testkit
