#include "Support/TempFolder.h"

#include <sys/stat.h>

#include <algorithm>
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

bool Exists(const std::string& path) {
    return std::filesystem::exists(path);
}

unsigned int ModeOf(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0 ? st.st_mode & 07777 : 0;
}

std::vector<std::string> Listing(const std::string& folder, const std::string& prefix) {
    std::vector<std::string> names;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
        std::string name = entry.path().filename().string();
        if (name.rfind(prefix, 0) == 0) names.push_back(name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace krtest
