#include "KRCB/LowMessageLoopExecutor.h"

namespace KRCB {

bool LowMessageLoopExecutor::CanExecuteTask() const {
    return ZR::MessageLoop::IsAttached();
}

bool LowMessageLoopExecutor::Execute(ZR::RunnableTask task) {
    return ZR::MessageLoop::Post(std::move(task), kPriority);
}

}  // namespace KRCB
