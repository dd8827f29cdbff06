#include "KRCB/Internal/EntityData.h"

#include "Kerrow/Exceptions.h"

namespace KRCB::Internal {

std::string Text(const Data& data, const char* key) {
    auto it = data.find(key);
    return it != data.end() && it->is_string() ? it->get<std::string>() : std::string();
}

int Number(const Data& data, const char* key) {
    auto it = data.find(key);
    return it != data.end() && it->is_number_integer() ? it->get<int>() : 0;
}

namespace {

using namespace Management::Entities;

Resource::Fields ResourceFields(const Data& data, const char* op) {
    if (!data.is_object() || Text(data, "id").empty()) BadAnswer(op, "a resource without an id");
    Resource::Fields fields;
    fields.id = ZR::UniString(Text(data, "id"));
    fields.path = ZR::UniString(Text(data, "path"));
    fields.parentFolderId = ZR::UniString(Text(data, "parentFolderId"));
    fields.modelServerId = ZR::UniString(Text(data, "modelServerId"));
    fields.modelServerPath = ZR::UniString(Text(data, "modelServerPath"));
    if (data.contains("state")) fields.state = Number(data, "state");
    return fields;
}

}  // namespace

void BadAnswer(const char* op, const std::string& what) {
    throw Kerrow::PortalServer::Client::PortalServerClientException(
        ZR::UniString(std::string("Unexpected answer of the server to ") + op + ": " + what),
        ZR_HERE);
}

ZR::Ref<Project> ProjectFromData(const Data& data, const char* op) {
    Resource::Fields fields = ResourceFields(data, op);
    ZR::HashSet<ZR::UniString> joined;
    if (auto it = data.find("joined"); it != data.end() && it->is_array())
        for (const Data& user : *it)
            if (user.is_string()) joined.Add(ZR::UniString(user.get<std::string>()));
    return ZR::Ref<Project>::Make(std::move(fields), ZR::UniString(Text(data, "version")),
                                  std::move(joined));
}

ZR::Ref<Library> LibraryFromData(const Data& data, const char* op) {
    return ZR::Ref<Library>::Make(ResourceFields(data, op));
}

ZR::Ref<ProjectFolder> FolderFromData(const Data& data, const char* op) {
    if (!data.is_object() || Text(data, "id").empty()) BadAnswer(op, "a folder without an id");
    ProjectFolder::Fields fields;
    fields.id = ZR::UniString(Text(data, "id"));
    fields.path = ZR::UniString(Text(data, "path"));
    fields.parentFolderId = ZR::UniString(Text(data, "parentId"));
    fields.defaultModelServerId = ZR::UniString(Text(data, "defaultModelServer"));
    return ZR::Ref<ProjectFolder>::Make(std::move(fields));
}

ZR::Ref<ModelServer> ModelServerFromData(const Data& data, const char* op) {
    if (!data.is_object() || Text(data, "id").empty())
        BadAnswer(op, "a model server without an id");
    return ZR::Ref<ModelServer>::Make(
        ZR::UniString(Text(data, "id")), ZR::UniString(Text(data, "name")),
        ZR::UniString(Text(data, "path")), Number(data, "major"), Number(data, "minor"));
}

Kerrow::PortalServer::Client::Management::ServerInfo ServerInfoFromData(const Data& data) {
    return {ZR::UniString(Text(data, "uniqueUrl")), ZR::UniString(Text(data, "friendlyName")),
            Number(data, "major"), Number(data, "minor")};
}

}  // namespace KRCB::Internal
