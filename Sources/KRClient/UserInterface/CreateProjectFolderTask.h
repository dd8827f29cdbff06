#pragma once
/// @file
/// Creates a folder, or a chain of nested folders, under a parent on the
/// server, logging in with the credentials it is given, and may read the
/// tree back. The outcome reaches the observer on the message loop.

#include "KRCB/DataQuery.h"
#include "KRCB/Entities.h"
#include "KRClient/KRClientExport.h"
#include "ZR/Containers.h"
#include "ZR/DependentResource.h"
#include "ZR/Runnable.h"

namespace KRC::UI {

struct KRCLIENT_EXPORT CreateProjectFolderTaskResult {
    /// The read-back, a PartialFolderTreeResult; empty if no tree flag was set.
    ZR::Ref<KRCB::DataQuery::DataQueryResult> treeResult;
    /// In the order of creation: each the parent of the next.
    ZR::PagedArray<ZR::Ref<KRCB::Management::Entities::ProjectFolder>, 8> createdFolders;
};

class KRCLIENT_EXPORT ICreateProjectFolderTaskEventObserver : public ZR::DependentResource {
public:
    /// Shared with the rename task's numbers.
    enum ErrorCode {
        ConnectionFailed = 0,  ///< the login or the client failed; the name is empty
        FolderExists = 1,
        InvalidName = 2,
        AccessDenied = 3,
        OtherError = 4,
    };
    ~ICreateProjectFolderTaskEventObserver() override;
    virtual void OnProjectFolderCreationSucceeded(
        const ZR::Ref<CreateProjectFolderTaskResult>& result) = 0;
    /// folderName: the name being created when the failure came.
    virtual void OnProjectFolderCreationFailed(ErrorCode errorCode,
                                               const ZR::UniString& folderName) = 0;
    virtual void OnProjectFolderCreationInterrupted() = 0;
    virtual unsigned int GetTaskId() = 0;
};

class KRCLIENT_EXPORT CreateProjectFolderTask : public ZR::Runnable {
public:
    using ProjectFolder = KRCB::Management::Entities::ProjectFolder;

    /// password in the encrypted form. The six flags configure the read-back
    /// of the last folder's tree; with all false there is none. Throws
    /// ZR::IllegalArgumentException (-50) for an empty parent.
    CreateProjectFolderTask(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                            const ZR::UniString& password, ZR::Ref<ProjectFolder> parentFolder,
                            const ZR::UniString& folderName, unsigned int taskId,
                            ICreateProjectFolderTaskEventObserver* observer, bool treeFlag1,
                            bool treeFlag2, bool treeFlag3, bool treeFlag4, bool treeFlag5,
                            bool treeFlag6);
    /// A chain, outermost first. Throws ZR::IllegalArgumentException (-50) for
    /// an empty parent or an empty list.
    CreateProjectFolderTask(const ZR::UniString& serverUrl, const ZR::UniString& userName,
                            const ZR::UniString& password, ZR::Ref<ProjectFolder> parentFolder,
                            const ZR::Array<ZR::UniString>& folderNames, unsigned int taskId,
                            ICreateProjectFolderTaskEventObserver* observer, bool treeFlag1,
                            bool treeFlag2, bool treeFlag3, bool treeFlag4, bool treeFlag5,
                            bool treeFlag6);
    ~CreateProjectFolderTask() override;

    /// Checks every name before any call, then logs in and creates the
    /// chain in one transaction. Posts one outcome, except when the login or
    /// the client fails with an exception outside the ZR family: that leaves
    /// Run and nothing is posted.
    void Run() override;

    void OnProjectFolderCreationSucceeded(const ZR::Ref<CreateProjectFolderTaskResult>& result);
    void OnProjectFolderCreationFailed(ICreateProjectFolderTaskEventObserver::ErrorCode errorCode,
                                       const ZR::UniString& folderName);
    void OnProjectFolderCreationInterrupted();

private:
    ZR::UniString serverUrl;
    ZR::UniString userName;
    ZR::UniString password;
    ZR::Ref<ProjectFolder> parentFolder;
    ZR::Array<ZR::UniString> folderNames;
    unsigned int taskId;
    ICreateProjectFolderTaskEventObserver* observer;
    bool treeFlag1, treeFlag2, treeFlag3, treeFlag4, treeFlag5, treeFlag6;
};

}  // namespace KRC::UI
