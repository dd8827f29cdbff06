#pragma once
/// @file
/// Work for executors. A Runnable is a piece of work; a RunnableTask owns one
/// and hands it to an executor, which calls Run once and then destroys the
/// task on the thread that ran it.

#include <functional>
#include <memory>
#include <utility>

#include "ZR/ZRRootExport.h"

namespace ZR {

/// A piece of work.
class ZRROOT_EXPORT Runnable {
public:
    virtual ~Runnable();
    virtual void Run() = 0;
};

/// Owns one Runnable. Moves, never copies; Run runs it at most once.
class ZRROOT_EXPORT RunnableTask {
public:
    RunnableTask() = default;
    /// Takes ownership of runnable (which may be null: an empty task).
    explicit RunnableTask(Runnable* runnable) : mRunnable(runnable) {}
    explicit RunnableTask(std::unique_ptr<Runnable> runnable) : mRunnable(std::move(runnable)) {}
    RunnableTask(RunnableTask&& other) noexcept
        : mRunnable(std::move(other.mRunnable)), mRan(other.mRan) {}
    RunnableTask& operator=(RunnableTask&& other) noexcept {
        mRunnable = std::move(other.mRunnable);
        mRan = other.mRan;
        return *this;
    }

    bool IsEmpty() const { return !mRunnable; }
    Runnable* Get() const { return mRunnable.get(); }
    /// Runs the runnable the first time; later calls do nothing.
    void Run() {
        if (!mRunnable || mRan) return;
        mRan = true;
        mRunnable->Run();
    }

private:
    std::unique_ptr<Runnable> mRunnable;
    bool mRan = false;
};

/// A Runnable around a function object.
class ZRROOT_EXPORT FunctionRunnable : public Runnable {
public:
    explicit FunctionRunnable(std::function<void()> function) : mFunction(std::move(function)) {}
    void Run() override;

private:
    std::function<void()> mFunction;
};

/// A task that calls function.
inline RunnableTask MakeTask(std::function<void()> function) {
    return RunnableTask(std::make_unique<FunctionRunnable>(std::move(function)));
}

/// Something that runs tasks.
class ZRROOT_EXPORT Executor {
public:
    virtual ~Executor();
    /// Takes the task and returns at once. False if the executor does not take
    /// work any more; the task is then destroyed unrun.
    virtual bool Execute(RunnableTask task) = 0;
};

}  // namespace ZR
