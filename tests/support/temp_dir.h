// A private directory for a test's files, removed with everything in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace murv::testing {

class TempDir {
public:
    TempDir() {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base && *base ? base : "/tmp") + "/murvio-test-XXXXXX";
        if (::mkdtemp(pattern.data())) path_ = pattern;
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
