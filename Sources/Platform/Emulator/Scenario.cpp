// Scenario files: the JSON form of the emulator's state (docs/EMULATOR.md).
// The areas are read and written in the Scenario*.cpp files beside this one.
#include "Emulator/Internal/Scenario.h"

#include <cstdio>
#include <stdexcept>

#include "IO/File.h"

namespace Emulator {

namespace Scenario = Internal::Scenario;

namespace {

std::string WriteScenario(const Internal::State& state, bool withSecrets) {
    std::lock_guard<std::mutex> lock(state.mutex);
    Internal::Data servers = Internal::Data::array();
    for (const Internal::Server& server : state.servers)
        servers.push_back(Scenario::WriteServer(server, withSecrets));
    Internal::Data document{{"servers", std::move(servers)}};
    // The text for people takes what it can; a scenario is written exactly or not at all.
    return (withSecrets ? document.dump(2)
                        : document.dump(2, ' ', false, Internal::Data::error_handler_t::replace)) +
           "\n";
}

std::string StatusText(int status) {
    if (status == IO::kErrNotFound) return ": no such file";
    if (status == IO::kErrTooLarge) return ": larger than 64 MiB";
    if (status == IO::kErrIsAFolder) return ": a folder";
    if (status == IO::kErrNotAFile) return ": not a regular file";
    if (status == IO::kErrAccessDenied) return ": access denied";
    char code[32];
    std::snprintf(code, sizeof code, " (error 0x%08x)", static_cast<unsigned int>(status));
    return code;
}

}  // namespace

std::unique_ptr<Service> Service::FromScenarioText(const std::string& text, std::uint64_t seed) {
    Scenario::Value document = Scenario::Parse(text);
    auto service = std::make_unique<Service>(seed);
    std::lock_guard<std::mutex> lock(service->mState->mutex);
    Scenario::Object(document, "", {"servers"});
    if (const Scenario::Value* servers = Scenario::List(document, "", "servers"))
        for (std::size_t i = 0; i < servers->size(); ++i)
            Scenario::ReadServer(*service->mState, (*servers)[i], Scenario::Index("servers", i));
    return service;
}

std::unique_ptr<Service> Service::FromScenarioFile(const std::string& path, std::uint64_t seed) {
    const std::string name = ZR::Internal::Printable(path, 200);
    std::string text;
    // A pipe or a device is refused before anything is read from it.
    int status =
        IO::fileSystem.ReadWholeFile(IO::Location(ZR::UniString(path)), &text, Scenario::kMaxBytes);
    if (status != IO::kOk) throw ScenarioError(name + ": can't be read" + StatusText(status));
    try {
        return FromScenarioText(text, seed);
    } catch (const ScenarioError& e) {
        throw ScenarioError(name + ": " + e.what(), e.GetLine(), e.GetColumn());
    }
}

std::string Service::ToScenarioText() const {
    return WriteScenario(*mState, true);
}

std::string Service::ToDisplayText() const {
    return WriteScenario(*mState, false);
}

void Service::SaveScenarioFile(const std::string& path) const {
    int status = IO::fileSystem.WriteFileAtomically(IO::Location(ZR::UniString(path)),
                                                    ToScenarioText(), IO::kNewFileMode);
    if (status != IO::kOk) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%08x", static_cast<unsigned int>(status));
        throw std::runtime_error("Failed to write the scenario " + ZR::Internal::Printable(path) +
                                 " (error " + code + ")");
    }
}

}  // namespace Emulator
