#pragma once
/// @file
/// Project locations and server URLs.

#include <string>

#include "IO/Location.h"
#include "KRCB/KRClientBaseExport.h"
#include "ZR/Containers.h"
#include "ZR/UniString.h"

namespace KRCB {

/// A project location of a server, user and refresh token, with no project
/// path yet. A server URL with a user name or password in it
/// ("https://anna:pw@srv") throws ZR::IllegalArgumentException and leaves
/// location as it was: the user name and token go in their own fields.
KRCB_EXPORT void CreateServerLocation(IO::Location& location, const ZR::UniString& serverUrl,
                                      const ZR::UniString& userName,
                                      const ZR::UniString& refreshToken);
KRCB_EXPORT void SetProjectPath(IO::Location& location, const ZR::UniString& projectPath);
/// Empty for a location that is not a project location.
KRCB_EXPORT ZR::UniString GetPortalServerUrl(const IO::Location& location);
KRCB_EXPORT ZR::UniString GetProjectPath(const IO::Location& location);

/// True if the URL's authority (between "scheme://", or the start of a text
/// without scheme, and the first "/", "?" or "#") holds a user name or
/// password: an "@".
KRCB_EXPORT bool HasUserInfo(const ZR::UniString& url);
/// The URL with its user name and password dropped, for messages.
KRCB_EXPORT ZR::UniString WithoutUserInfo(const ZR::UniString& url);

/// Compares two management server URLs.
///  strict: the same URL: scheme, host and port equal (host without regard to
///          case, a default port counting as absent), and the same path
///          without regard to case and to a trailing "/".
///  loose:  the same host without regard to case, whatever the scheme, port
///          and path ("http://Srv:8080/a" and "https://srv" match loosely).
/// A text without a scheme is taken as a host name.
KRCB_EXPORT bool IsEqualServerUrls(const ZR::UniString& a, const ZR::UniString& b, bool strict);
/// A key of the URL for tables: two URLs have equal keys exactly when they are
/// equal strictly.
KRCB_EXPORT std::string ServerUrlKey(const ZR::UniString& url);

/// Makes a text usable as one file name: "%", "/", "\", ":", "*", "?", '"',
/// "<", ">", "|" and control characters become "%XX"; so do a leading or
/// trailing blank or dot. An empty name becomes "%00". Answers true if the
/// name was changed. extraCharacters, if given, are escaped too.
KRCB_EXPORT bool FileNameEncode(const ZR::UniString& name, ZR::UniString& encoded,
                                const ZR::UniString* extraCharacters);
/// The reverse; false on a malformed escape.
KRCB_EXPORT bool FileNameDecode(const ZR::UniString& encoded, ZR::UniString& name);

/// A project path's elements: "/a/b/c" gives "a", "b", "c".
KRCB_EXPORT void GetProjectPathElements(const ZR::UniString& path,
                                        ZR::Array<ZR::UniString>& elements);
/// The path of the folder that holds what stands at path: "/a/b" gives "/a",
/// "/a" gives the empty path of the root folder, as does the empty path.
KRCB_EXPORT ZR::UniString GetParentFolderPath(const ZR::UniString& path);

namespace Management {
/// The last element of a project path.
KRCB_EXPORT ZR::UniString GetProjectName(const ZR::UniString& projectPath);
/// Appends "/name" to path, with one "/" between them however either side
/// is written ("/a/" and "/b" give "/a/b"). An empty name leaves path as it is.
KRCB_EXPORT void AppendToResourcePath(const ZR::UniString& name, ZR::UniString& path);
/// Whether the server can take name as the name of a folder, project or
/// library: not empty, at most 255 bytes, no blank at either end, not "." or
/// "..", and none of the characters / \ : * ? " < > | or a control character.
KRCB_EXPORT bool IsResourceNameValid(const ZR::UniString& name);
}  // namespace Management

}  // namespace KRCB
