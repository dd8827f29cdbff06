// The mail client's storage in "Mails.dat" and the limit on completed mails.

#include <algorithm>
#include <utility>
#include <vector>

#include "IO/File.h"
#include "KRClient/KRClient.h"
#include "KRClient/MailClient/Internal/ChangeList.h"
#include "KRClient/MailClient/Internal/MailClientBox.h"
#include "KRClient/MailClient/Internal/MailsFile.h"
#include "KRClient/MailClient/Internal/Outbox.h"
#include "KRClient/MailClient/MailAttachment.h"
#include "KRClient/MailClient/MailClient.h"
#include "ZR/Exceptions.h"

namespace KRC {

using Guard = ZR::LockGuard<ZR::ReentrantLock>;

namespace {

void Replace(Internal::ChangeList& list, const Internal::MailIdList& ids) {
    list.Clear();
    for (const auto& id : ids) list.Append(id);
}

// Thread ids of the mails that allow automatic completing: in such a thread
// only those mails count.
ZR::HashSet<ZR::UniString> AutomaticThreads(const MailClient::Mails& mails) {
    ZR::HashSet<ZR::UniString> threads;
    for (const auto& mail : mails) {
        ZR::UniString thread = mail->GetThreadId();
        if (!thread.IsEmpty() && MailAttachment::IsAutomaticCompleteEnabledInMail(mail))
            threads.Add(std::move(thread));
    }
    return threads;
}

bool IsCountable(const ZR::Ref<ClientMail>& mail, const ZR::HashSet<ZR::UniString>& automatic) {
    return mail->IsCompleted() && (MailAttachment::IsAutomaticCompleteEnabledInMail(mail) ||
                                   !automatic.Contains(mail->GetThreadId()));
}

}  // namespace

// Runs in the constructor after the client has attached to the monitor, so a
// change may be merged meanwhile: the file is read without the lock, and what
// was read replaces the tables under it in one step.
int MailClient::ReadFromDisc() {
    if (!FileExist(mMailsFile)) return 0;
    IO::File file(mMailsFile, IO::kNotFoundFail);
    if (int status = file.GetStatus()) return status;
    if (int status = file.Open(IO::kOpenRead, 2)) return status;
    Internal::MailsFileContent read;
    int status = 0;
    try {
        Internal::FileIChannel in(file);
        status = in.GetStatus();
        if (status == 0) status = Internal::ReadMails(in, read);
    } catch (const ZR::ZRException&) {
        file.Close();
        return ZR::kGeneralErrorCode;
    }
    // Whole or not at all: a failure leaves the tables empty and the
    // revisions 0, and the file as it is until the next write.
    if (status) return file.Close();
    {
        Guard guard(mLock);
        mInbox->mails = std::move(read.inbox);
        mInbox->revision = read.inboxRevision;
        mSent->mails = std::move(read.sent);
        mSent->revision = read.sentRevision;
        Replace(*mInboxToCompleteChanges, read.inboxToComplete);
        Replace(*mSentToCompleteChanges, read.sentToComplete);
        Replace(*mInboxToReadChanges, read.inboxToRead);
    }
    file.Close();
    return 0;
}

// Runs in the destructor after Close, when no callback can come any more.
// A write that fails leaves the file of the last run in place.
int MailClient::WriteToDisc() const {
    if (!mMailsFile.IsLocal()) return ZR::kGeneralErrorCode;
    return Internal::WriteMailsFile(
        mMailsFile, {mInbox->revision, mInbox->mails, mSent->revision, mSent->mails,
                     mInboxToCompleteChanges->GetIds(), mSentToCompleteChanges->GetIds(),
                     mInboxToReadChanges->GetIds()});
}

unsigned int MailClient::CountCompletedMails() const {
    Guard guard(mLock);
    const Mails mails = GetAllMails();
    const ZR::HashSet<ZR::UniString> automatic = AutomaticThreads(mails);
    unsigned int count = 0;
    for (const auto& mail : mails)
        if (IsCountable(mail, automatic)) ++count;
    return count;
}

// The lock is held twice with nothing in between; the candidates chosen in
// the first phase are not looked at again in the second. Entered with the
// lock held (from the flag changes and the merge), nothing is released.
bool MailClient::DeleteCompletedMailsOverLimit() {
    std::vector<std::pair<int, ZR::Ref<ClientMail>>> candidates;
    ZR::HashTable<ZR::UniString, ZR::HashSet<ZR::UniString>> threads;
    unsigned int limit = 0;
    {
        Guard guard(mLock);
        if (!mUseCompletedLimit) return false;
        limit = mCompletedLimitNum;
        const Mails mails = GetAllMails();
        const ZR::HashSet<ZR::UniString> automatic = AutomaticThreads(mails);
        for (const auto& mail : mails) {
            if (IsCountable(mail, automatic)) candidates.emplace_back(mail->GetSentTime(), mail);
            ZR::UniString thread = mail->GetThreadId();
            if (thread.IsEmpty()) continue;
            ZR::HashSet<ZR::UniString>* ids = threads.Find(thread);
            if (!ids) {
                threads.Set(thread, ZR::HashSet<ZR::UniString>());
                ids = threads.Find(thread);
            }
            ids->Add(mail->GetId());
        }
    }
    if (candidates.size() <= limit) return false;

    Guard guard(mLock);
    // Oldest first; mails of one time come in any order.
    std::sort(candidates.begin(), candidates.end(),
              [](const auto& a, const auto& b) { return a.first < b.first; });
    candidates.resize(candidates.size() - limit);  // the newest stay

    ZR::HashSet<ZR::UniString> outbox;
    ZR::HashSet<ZR::UniString> boxes;
    for (const auto& candidate : candidates) {
        const ZR::Ref<ClientMail>& mail = candidate.second;
        ZR::UniString id = mail->GetId();
        if (IsOutboxMail(id)) {
            outbox.Add(std::move(id));
            continue;
        }
        // A thread goes as a whole, with its newer and uncompleted mails.
        if (const ZR::HashSet<ZR::UniString>* thread = threads.Find(mail->GetThreadId()))
            for (const ZR::UniString& member : *thread) boxes.Add(member);
        boxes.Add(std::move(id));
    }
    Ids inbox, sent;
    for (const ZR::UniString& id : boxes) {
        if (IsInboxMail(id))
            inbox.Add(id);
        else if (IsSentMail(id))
            sent.Add(id);
        // else: in the outbox or being deleted already
    }
    if (!outbox.IsEmpty()) DeleteOutboxMails(outbox);
    if (!inbox.IsEmpty()) DeleteInboxMails(inbox, Task());
    if (!sent.IsEmpty()) DeleteSentMails(sent, Task());
    return true;
}

}  // namespace KRC
