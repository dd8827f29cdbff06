// The reader of a server's data query answer, fed by a transport that answers
// every call with the input.

#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "KRCB/AuthenticatedClientConnection.h"
#include "KRCB/DataQuery.h"
#include "KRCB/Internal/Transport.h"
#include "Kerrow/Exceptions.h"
#include "Targets.h"

namespace krfuzz {
namespace {

class InputTransport : public KRCB::Internal::Transport {
public:
    KRCB::Internal::Reply Call(const KRCB::Internal::Request& request) override {
        KRCB::Internal::Reply reply;
        if (request.op == KRCB::Internal::Op::kLogin)
            reply.result = {{"loginId", "l"}, {"userId", "u"}, {"serverInfo", {{"major", 1}}}};
        else
            reply.result = answer;
        return reply;
    }
    KRCB::Internal::Data answer;
};

}  // namespace

int FuzzDataQuery(const std::uint8_t* data, std::size_t size) {
    auto transport = std::make_shared<InputTransport>();
    transport->answer = KRCB::Internal::Data::parse(data, data + size, nullptr, false);
    if (transport->answer.is_discarded()) return 0;
    KRCB::Internal::SetTransport(transport);
    auto connection = KRCB::Management::AuthenticatedClientConnectionFactory::Create(
        "https://fuzz.example", "user", "krpw1:00000000000000000000000000000000", false, false, 0);
    KRCB::DataQuery::PartialFolderTreeResult tree(
        "/a", true, true, true, KRCB::Management::PathResources, true, true, true, true, true);
    try {
        tree.Collect(connection);
        // Whatever was taken in can be walked to the end.
        if (const auto& folder = tree.GetProjectFolder()) {
            ZR::PagedArray<ZR::Ref<KRCB::Management::Entities::ProjectFolder>, 8> all;
            if (folder->GetAllSubFolders(all) + 1 != tree.GetFolderCount()) std::abort();
            folder->GetAllChildResourceCount();
        }
    } catch (const Kerrow::PortalServer::Client::PortalServerClientException&) {
        // An answer of the wrong shape is refused; the result keeps nothing of it.
        if (tree.GetProjectFolder()) std::abort();
    }
    KRCB::Internal::SetTransport(nullptr);
    return 0;
}

}  // namespace krfuzz
