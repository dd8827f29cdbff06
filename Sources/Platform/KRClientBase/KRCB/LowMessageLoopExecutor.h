#pragma once
/// @file
/// The base client's queue to the message loop for work that may wait behind
/// the host's own: tasks run after those of normal priority.

#include "KRCB/KRClientBaseExport.h"
#include "ZR/MessageLoop.h"
#include "ZR/Runnable.h"

namespace KRCB {

/// Posts tasks to the process-wide message loop at a low priority.
class KRCB_EXPORT LowMessageLoopExecutor : public ZR::Executor {
public:
    /// Below ZR::MessageLoop::kNormalPriority.
    static constexpr int kPriority = -10;

    /// False while no message loop is attached: a task given now would be dropped.
    bool CanExecuteTask() const;
    /// Queues the task at kPriority and returns at once; false, with the task
    /// destroyed unrun, if no loop is attached.
    bool Execute(ZR::RunnableTask task) override;
};

}  // namespace KRCB
