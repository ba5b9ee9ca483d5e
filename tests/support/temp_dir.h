// A private directory for a test's files, removed with everything in it.
#pragma once

#include <filesystem>
#include <random>
#include <string>
#include <system_error>

namespace murv::testing {

class TempDir {
public:
    TempDir() {
        namespace fs = std::filesystem;
        std::error_code ec;
        const fs::path base = fs::temp_directory_path(ec);
        std::random_device seed;
        for (int attempt = 0; attempt < 100 && path_.empty(); ++attempt) {
            const fs::path dir = base / ("murvio-test-" + std::to_string(seed()));
            if (fs::create_directory(dir, ec)) path_ = dir.generic_string();
        }
    }
    ~TempDir() {
        std::error_code ec;
        if (!path_.empty()) std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }
    std::string File(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

}  // namespace murv::testing
