#pragma once
/// @file
/// One value type for a local path and for a project location. A project
/// location carries server URL, user name, password (the refresh token) and a
/// resource path (the project path). Its text form round-trips all four exactly,
/// whatever characters they hold; its display text never shows the password.

#include "IO/IOExport.h"
#include "ZR/UniString.h"

namespace IO {

/// One name of a path.
class IO_EXPORT Name {
public:
    Name() = default;
    Name(const ZR::UniString& text) : mText(text) {}
    Name(const char* text) : mText(text) {}

    const ZR::UniString& GetUniString() const { return mText; }
    ZR::String ToString() const { return mText.ToString(); }
    bool IsEmpty() const { return mText.IsEmpty(); }
    bool operator==(const Name& other) const { return mText == other.mText; }

private:
    ZR::UniString mText;
};

class IO_EXPORT Location {
public:
    enum class Kind { Empty, Local, Server };

    Location() = default;
    /// A local path. Repeated and trailing slashes are dropped; a relative
    /// path is kept relative.
    explicit Location(const ZR::UniString& path);
    static Location FromPath(const ZR::UniString& path) { return Location(path); }
    static Location ServerLocation(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                   const ZR::UniString& password,
                                   const ZR::UniString& resourcePath);

    Kind GetKind() const { return mKind; }
    bool IsEmpty() const { return mKind == Kind::Empty; }
    bool IsLocal() const { return mKind == Kind::Local; }
    bool IsServer() const { return mKind == Kind::Server; }
    void Clear() { *this = Location(); }

    /// Local paths.
    ///
    /// ToPath: the path text; a server location gives its display text, never the token.
    ZR::UniString ToPath() const;
    /// The path of a local location without a copy; empty text for any other.
    const ZR::UniString& GetLocalPath() const;
    Location& AppendName(const Name& name);
    Location operator+(const Name& name) const {
        Location l(*this);
        l.AppendName(name);
        return l;
    }
    bool GetLastLocalName(Name* name) const;
    /// Splits off the last name into *name; false if there is none.
    bool MoveLastLocalName(Name* name);
    Location GetParent() const;

    /// Project locations.
    const ZR::UniString& GetServerUrl() const { return mServerUrl; }
    const ZR::UniString& GetUserName() const { return mUserName; }
    const ZR::UniString& GetPassword() const { return mPassword; }
    const ZR::UniString& GetResourcePath() const { return mPath; }
    void SetServerUrl(const ZR::UniString& url);
    void SetUserName(const ZR::UniString& user) { mUserName = user; }
    void SetPassword(const ZR::UniString& password) { mPassword = password; }
    void SetResourcePath(const ZR::UniString& path) { mPath = path; }

    /// Text forms. ToText/Set round-trip every kind; Set also takes a plain path.
    ZR::UniString ToText() const;
    bool Set(const ZR::UniString& text);
    /// The older text form of a local path: a "file://" URL with %XX escapes.
    bool SetObsolete(const ZR::UniString& text);
    ZR::UniString ToObsoleteText() const;
    /// For people: the path, or the server location without its password (and
    /// without a password written into the server URL).
    ZR::UniString ToDisplayText() const;

    bool operator==(const Location& other) const;
    bool operator!=(const Location& other) const { return !(*this == other); }

private:
    Kind mKind = Kind::Empty;
    ZR::UniString mPath;  ///< local path, or the resource path of a server location
    ZR::UniString mServerUrl;
    ZR::UniString mUserName;
    ZR::UniString mPassword;
};

}  // namespace IO

template <>
struct std::hash<IO::Location> {
    std::size_t operator()(const IO::Location& l) const noexcept {
        return std::hash<std::string>()(l.ToText().Std());
    }
};
