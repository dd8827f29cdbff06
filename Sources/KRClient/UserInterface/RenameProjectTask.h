#pragma once
/// @file
/// Renames one project on the server, logging in with the credentials it is
/// given. The outcome reaches the observer on the message loop.

#include "KRCB/Entities.h"
#include "KRClient/KRClientExport.h"
#include "ZR/DependentResource.h"
#include "ZR/Runnable.h"

namespace KRC::UI {

class KRCLIENT_EXPORT IRenameProjectTaskEventObserver : public ZR::DependentResource {
public:
    using Project = KRCB::Management::Entities::Project;
    /// The numbers of the folder creation task.
    enum ErrorCode {
        ConnectionFailed = 0,
        NameExists = 1,
        InvalidName = 2,
        AccessDenied = 3,
        OtherError = 4,
    };
    ~IRenameProjectTaskEventObserver() override;
    /// The project object still gives the old name.
    virtual void OnRenameProjectSucceeded(const ZR::Ref<Project>& project,
                                          const ZR::UniString& oldName) = 0;
    virtual void OnRenameProjectFailed(ErrorCode errorCode, const ZR::Ref<Project>& project,
                                       const ZR::UniString& newName) = 0;
    virtual void OnRenameProjectInterrupted() = 0;
    virtual unsigned int GetTaskId() = 0;
};

class KRCLIENT_EXPORT RenameProjectTask : public ZR::Runnable {
public:
    using Project = KRCB::Management::Entities::Project;

    /// password in the encrypted form. Throws ZR::IllegalArgumentException
    /// (-50) for an empty project.
    RenameProjectTask(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                      const ZR::UniString& password, const ZR::Ref<Project>& project,
                      const ZR::UniString& newName, unsigned int taskId,
                      IRenameProjectTaskEventObserver* observer);
    ~RenameProjectTask() override;

    /// The same name, compared exactly, succeeds and an invalid one fails,
    /// both without a call; a change of case alone is a rename. Posts one
    /// outcome, except when the login or the client fails with an exception
    /// outside the ZR family.
    void Run() override;

    void OnRenameProjectSucceeded(const ZR::Ref<Project>& project, const ZR::UniString& oldName);
    void OnRenameProjectFailed(IRenameProjectTaskEventObserver::ErrorCode errorCode,
                               const ZR::Ref<Project>& project, const ZR::UniString& newName);
    void OnRenameProjectInterrupted();

private:
    ZR::UniString serverUrl;
    ZR::UniString userName;
    ZR::UniString password;
    ZR::Ref<Project> project;
    ZR::UniString newName;
    unsigned int taskId;
    IRenameProjectTaskEventObserver* observer;
};

}  // namespace KRC::UI
