#pragma once
/// @file
/// A URI taken apart into scheme, user info, host, port, path, query and
/// fragment, and put together again.

#include "IO/IOExport.h"
#include "ZR/UniString.h"

namespace IO::URI {

class IO_EXPORT URI {
public:
    /// Takes "scheme://userinfo@host:port/path?query#fragment" apart; parts
    /// that are missing stay empty. An IPv6 host keeps its brackets.
    explicit URI(const ZR::UniString& text);

    const ZR::UniString& GetScheme() const { return mScheme; }
    const ZR::UniString& GetHost() const { return mHost; }
    const ZR::UniString& GetPort() const { return mPort; }
    const ZR::UniString& GetPath() const { return mPath; }
    void SetHost(const ZR::UniString& host) { mHost = host; }

    /// Encoding 0: every byte outside the unreserved set and "/:@" of the
    /// path is written as "%XX"; 1: the parts as they are.
    ZR::UniString ToString(int encoding) const;

private:
    ZR::UniString mScheme, mUserInfo, mHost, mPort, mPath, mQuery, mFragment;
    bool mHasQuery = false, mHasFragment = false;
};

}  // namespace IO::URI
