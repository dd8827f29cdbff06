#include "Emulator/Service.h"

namespace Emulator {

ScenarioError::ScenarioError(const std::string& message, int line, int column)
    : std::runtime_error(message), mLine(line), mColumn(column) {}

}  // namespace Emulator
