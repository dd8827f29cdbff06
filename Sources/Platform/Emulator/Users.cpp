// Operations on the server's users: who is logged in, a user's details and picture.
#include "Emulator/Internal/Handlers.h"

namespace Emulator::Internal {

Answer HandleQuery(CallContext&) {
    return Ok();
}

Answer HandleGetCurrentUserId(CallContext& call) {
    return Ok(call.user->spec.id);
}

namespace {

User& RequireUserById(CallContext& call) {
    User* wanted = call.state.FindUserById(call.server, call.Text("userId"));
    if (!wanted) Throw(FK::EntityNotFound, "No user of id " + call.Text("userId"));
    return *wanted;
}

}  // namespace

Answer HandleGetUser(CallContext& call) {
    return Ok(UserData(Summarize(RequireUserById(call))));
}

Answer HandleGetUserImage(CallContext& call) {
    const User& wanted = RequireUserById(call);
    if (wanted.spec.picture.empty()) return Ok();
    return Ok(Data{{"type", wanted.spec.pictureType},
                   {"data", Data::binary(std::vector<std::uint8_t>(wanted.spec.picture.begin(),
                                                                   wanted.spec.picture.end()))}});
}

Answer HandleGetUsersByIds(CallContext& call) {
    std::vector<UserSummary> found;
    if (auto ids = call.params.find("ids"); ids != call.params.end() && ids->is_array())
        for (const Data& id : *ids)
            if (id.is_string())
                if (User* wanted = call.state.FindUserById(call.server, id.get<std::string>()))
                    found.push_back(Summarize(*wanted));
    return std::function<Reply()>([found = std::move(found)] {
        Data result = Data::array();
        for (const UserSummary& user : found) result.push_back(UserData(user));
        return Ok(std::move(result));
    });
}

}  // namespace Emulator::Internal
