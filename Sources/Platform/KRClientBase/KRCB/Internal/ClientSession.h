#pragma once
/// @file
/// What a login to a management server leaves behind, shared by every client
/// object of that login (a resource manager client and the management side of
/// its project clients): the server's answer, the open query guards and the
/// users fetched so far.

#include <atomic>
#include <map>
#include <mutex>
#include <string>

#include "KRCB/Entities.h"
#include "KRCB/Internal/Transport.h"
#include "Kerrow/ServerInfo.h"
#include "ZR/Ref.h"
#include "ZR/UniString.h"

namespace KRCB::Internal {

struct ClientSession {
    ZR::UniString serverUrl;  ///< as the caller gave it
    ZR::UniString userName;
    ZR::UniString refreshToken;  ///< never logged
    std::string loginId;         ///< the server's id of this login
    ZR::UniString userId;        ///< the server's id of the user
    Kerrow::PortalServer::Client::Management::ServerInfo serverInfo;
    ZR::Ref<Management::Entities::User> details;  ///< empty unless details were wanted

    /// Query guards standing on the login; the outermost one opens a query.
    std::atomic<int> guardDepth{0};

    std::mutex cacheMutex;
    std::map<std::string, ZR::Ref<Management::Entities::User>> userCache;
    /// Projects the look-ups found: by case-folded path and by id.
    std::map<std::string, ZR::Ref<Management::Entities::Project>> projectsByPath;
    std::map<std::string, ZR::Ref<Management::Entities::Project>> projectsById;

    /// A request of this login.
    Request MakeRequest(const char* op, Data params = Data::object()) const {
        Request request;
        request.serverUrl = serverUrl.Std();
        request.op = op;
        request.user = userName.Std();
        request.loginId = loginId;
        request.params = std::move(params);
        return request;
    }
    Data Call(const char* op, Data params = Data::object()) const {
        return Internal::Call(MakeRequest(op, std::move(params)));
    }
};

/// Takes the server's answer to a login into session: login id, user id,
/// server info, and the user's details if they were wanted.
void FillSession(ClientSession& session, const Data& result, bool detailsWanted, const char* op);

/// Users and images in the transport's data form.
ZR::Ref<Management::Entities::User> UserFromData(const Data& data);

}  // namespace KRCB::Internal
