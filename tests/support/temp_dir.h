#ifndef TESTS_SUPPORT_TEMP_DIR_H
#define TESTS_SUPPORT_TEMP_DIR_H

#include <string>

namespace wardend::test {

// A fresh directory below $TMPDIR (or /tmp), removed with its contents on destruction.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }
    // Writes a file below the directory, creating parent directories; returns its path.
    std::string WriteFile(const std::string& relative, const std::string& content) const;

    static std::string Base();

private:
    std::string path_;
};

// The whole content of a file, or empty when it cannot be read.
std::string ReadFile(const std::string& path);

}  // namespace wardend::test

#endif
