#pragma once
/// @file
/// Small look-ups for the host: from a typed URL, a project location, or a
/// server URL and user name to what a dialog shows or uses. They ask the
/// login data of the base client; none talks to a server or keeps state.

#include "IO/Location.h"
#include "KRCB/Entities.h"
#include "KRClient/KRClientExport.h"
#include "ZR/Containers.h"
#include "ZR/UniString.h"

namespace KRCB {
class SignalClient;
}

namespace KRC {

namespace Mailbox {
class UserContact;
}

/// The presence of a project member as a host shows it.
enum UserStatus {
    UserOnline = 0,         ///< the signal client sees the user online
    UserOffline = 1,        ///< also the answer without a signal client or contact
    UserOnMobileAlso = 2,   ///< on an active mobile session, and a desktop session too
    UserOnMobile = 3,       ///< on an active mobile session only
    UserMobileOffline = 4,  ///< a mobile session is known, none active
};

/// Normalises a typed server address: "http://" in front of one without a
/// scheme; a local host ("localhost" in any case, "127.0.0.1", "::1")
/// becomes the machine's name if it has one. Always true.
KRCLIENT_EXPORT bool GetServerUrl(const ZR::UniString& input, ZR::UniString& url);
/// The location of the server for its active user; false, with location
/// untouched, for a server that isn't known or has no active user.
KRCLIENT_EXPORT bool GetServerLocation(const ZR::UniString& serverUrl, IO::Location& location);
/// Whether the name is known.
KRCLIENT_EXPORT bool GetServerFriendlyName(const ZR::UniString& serverUrl, ZR::UniString& name);
KRCLIENT_EXPORT bool GetServerFriendlyName(const IO::Location& location, ZR::UniString& name);
KRCLIENT_EXPORT bool GetUserFullName(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                                     ZR::UniString& fullName);
KRCLIENT_EXPORT bool GetUserFullName(const IO::Location& location, ZR::UniString& fullName);
KRCLIENT_EXPORT UserStatus GetUserStatus(const KRCB::SignalClient* signalClient,
                                         const Mailbox::UserContact* contact);
/// 2001, 2002, 2005 and 2006 all in the set; false for null.
KRCLIENT_EXPORT bool HasLibraryDeletePermission(const ZR::HashSet<KRCB::PermissionID>* permissions);
KRCLIENT_EXPORT bool HasLibraryDeleteFromFolderPermission(
    const ZR::HashSet<KRCB::PermissionID>* permissions);
/// 2001, 2002 and 2005 all in the set; false for null.
KRCLIENT_EXPORT bool HasLibraryModifyPermission(const ZR::HashSet<KRCB::PermissionID>* permissions);
KRCLIENT_EXPORT bool HasLibraryModifyInFolderPermission(
    const ZR::HashSet<KRCB::PermissionID>* permissions);
KRCLIENT_EXPORT bool HasLibraryUploadToFolderPermission(
    const ZR::HashSet<KRCB::PermissionID>* permissions);
/// "projectRoot": the id of the root project folder.
KRCLIENT_EXPORT ZR::UniString GetRootFolderId();
/// The folder "ZARVEL" in the user's roaming profile; the profile location as
/// it stands if the profile can't be found.
KRCLIENT_EXPORT IO::Location GetRoamingProfileFolderLocation();

}  // namespace KRC
