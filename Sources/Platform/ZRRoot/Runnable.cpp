#include "ZR/Runnable.h"

namespace ZR {

// Out of line, so that the vtables and type information live in one place.
Runnable::~Runnable() = default;
Executor::~Executor() = default;

void FunctionRunnable::Run() {
    if (mFunction) mFunction();
}

}  // namespace ZR
