#pragma once
// A fresh folder under the system's temporary folder, removed with the object.

#include <string>
#include <vector>

#include "IO/Location.h"

namespace krtest {

class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;

    const std::string& Path() const { return mPath; }
    IO::Location Location() const { return IO::Location(ZR::UniString(mPath)); }
    std::string Sub(const std::string& name) const { return mPath + "/" + name; }

private:
    std::string mPath;
};

inline IO::Location Loc(const std::string& path) {
    return IO::Location(ZR::UniString(path));
}

// Whole-file helpers for assertions.
std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);
bool Exists(const std::string& path);
unsigned int ModeOf(const std::string& path);  // permission bits; 0 if missing
// The names in a folder, sorted; those that start with prefix only, if one is
// given. Empty for a folder that isn't there.
std::vector<std::string> Listing(const std::string& folder, const std::string& prefix = "");

}  // namespace krtest
