#pragma once
// The registry lock as a command of krctl takes it: up front, for the whole
// command, saying on standard error when it has to wait, and giving up after
// --wait seconds with nothing changed.

#include <optional>

#include "KRClient/RegisteredProjects.h"
#include "Krctl.h"

namespace krctl {

class RegistryLock {
public:
    // Throws Failure if the wait was given up or the lock can't be held here.
    explicit RegistryLock(const GlobalOptions& options);
    RegistryLock(const RegistryLock&) = delete;
    RegistryLock& operator=(const RegistryLock&) = delete;

private:
    // Nested guards inside the library's setters neither wait nor take the file again.
    std::optional<KRC::RegisteredProjects::Synchronizer> guard;
};

}  // namespace krctl
