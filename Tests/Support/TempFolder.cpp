#include "Support/TempFolder.h"

#include <sys/stat.h>

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

}  // namespace krtest
