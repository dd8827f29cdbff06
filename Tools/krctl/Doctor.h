#pragma once
// krctl doctor: what is wrong with a data folder, found by reading only, and
// the repairs that move or remove nothing but what is certainly damage.

#include "Krctl.h"

namespace krctl {

// The report of a data folder: options, lock, cache folders, duplicates,
// leftovers of interrupted writes, records of unknown users. Takes no lock,
// never waits and changes nothing.
Json Examine(const GlobalOptions& options);

// Under the registry lock: damaged cache folders into a quarantine folder,
// a stale lock file and leftovers removed. The actions taken, one text each.
Json Repair(const GlobalOptions& options);

void AddDoctorCommand(CLI::App& app, const GlobalOptions& options, Action* action);

}  // namespace krctl
