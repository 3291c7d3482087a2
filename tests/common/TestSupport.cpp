#include "common/TestSupport.h"

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <stdlib.h>

namespace pw::test {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "panelwright-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

ScopedPlatform::ScopedPlatform(const platform::Platform& platform)
    : systemLog_(platform.systemLog, platform.host.get()), preferences_(platform.defaults) {}

ScopedPlatform::~ScopedPlatform() = default;

std::filesystem::path sourcePath(const std::string& relative) {
    return std::filesystem::path(PW_SOURCE_DIR) / relative;
}

std::string readFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

} // namespace pw::test
