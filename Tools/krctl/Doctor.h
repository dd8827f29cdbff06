#pragma once
// krctl doctor: what is wrong with a data folder, found by reading only, and
// the repairs that move or remove nothing but what is certainly damage.

#include "Krctl.h"

namespace krctl {

// The report of a data folder: options, lock, cache folders, duplicates,
// leftovers of interrupted writes, records of unknown users. Takes no lock,
// never waits and changes nothing.
Json Examine(const GlobalOptions& options);

// Under the registry lock: damaged and unreadable cache folders into a
// quarantine folder, a stale lock file and leftovers removed, all inside the
// data folder (and the base folder's leftovers). The actions taken, one text
// each; what was left because it lies outside goes to left.
Json Repair(const GlobalOptions& options, Json& left);

void AddDoctorCommand(CLI::App& app, const GlobalOptions& options, Action* action);

}  // namespace krctl
