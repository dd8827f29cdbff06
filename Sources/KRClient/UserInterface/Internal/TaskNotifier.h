#pragma once
// The outcome posting that the observed tasks share. A notifier is a
// ZR::DependentTask built on the task's observer on the worker thread; it
// holds copies of its callback's arguments (in the call it carries) and the
// task id, and runs on the message loop. There it reaches the observer only
// while it lives, only if it is of the family's interface, and only if the
// observer's GetTaskId, asked at delivery, is the task's.

#include <functional>

#include "ZR/DependentResource.h"
#include "ZR/MessageLoop.h"

namespace KRC::UI::Internal {

template <typename Observer>
class TaskDependentTask : public ZR::DependentTask {
public:
    TaskDependentTask(Observer* observer, unsigned int id)
        : ZR::DependentTask(observer), taskId(id) {}
    void Execute(ZR::DependentResource* resource) override {
        if (auto* observer = dynamic_cast<Observer*>(resource)) NotifyObserver(*observer);
    }
    virtual void NotifyObserver(Observer& observer) = 0;

    unsigned int taskId;
};

template <typename Observer>
class TaskNotifier : public TaskDependentTask<Observer> {
public:
    TaskNotifier(Observer* observer, unsigned int id, std::function<void(Observer&)> call)
        : TaskDependentTask<Observer>(observer, id), mCall(std::move(call)) {}
    void NotifyObserver(Observer& observer) override {
        if (observer.GetTaskId() == this->taskId) mCall(observer);
    }

private:
    std::function<void(Observer&)> mCall;
};

/// Posts one outcome at message priority 0 and returns at once.
template <typename Observer>
void PostOutcome(Observer* observer, unsigned int taskId, std::function<void(Observer&)> call) {
    ZR::MessageLoopExecutor executor;
    executor.Execute(
        ZR::RunnableTask(new TaskNotifier<Observer>(observer, taskId, std::move(call))), 0);
}

}  // namespace KRC::UI::Internal
