#include "Support/TempFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace krtest {

TempFolder::TempFolder() {
    std::string base = std::filesystem::temp_directory_path().string() + "/krc-test-XXXXXX";
    if (!mkdtemp(base.data())) throw std::runtime_error("mkdtemp failed");
    mPath = base;
}

TempFolder::~TempFolder() {
    std::error_code ec;
    // Folders made read-only by a test must be removable.
    for (auto it = std::filesystem::recursive_directory_iterator(mPath, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec))
        std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(mPath, ec);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

void WriteFile(const std::string& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

bool Exists(const std::string& path) { return std::filesystem::exists(path); }

}  // namespace krtest
