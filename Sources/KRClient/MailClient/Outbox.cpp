#include "KRClient/MailClient/Internal/Outbox.h"

#include <algorithm>
#include <string>

#include "IO/File.h"
#include "KRCB/LowMessageLoopExecutor.h"
#include "KRClient/KRClient.h"
#include "ZR/Exceptions.h"
#include "ZR/Time.h"

namespace KRC {

OutboxObserver::~OutboxObserver() = default;

class Outbox::OutboxChangedNotificationTask : public ZR::DependentTask {
public:
    explicit OutboxChangedNotificationTask(Outbox* outbox) : ZR::DependentTask(outbox) {}
    void Execute(ZR::DependentResource* resource) override {
        auto* outbox = dynamic_cast<Outbox*>(resource);
        if (!outbox) return;
        outbox->ForEachObserver([](ZR::TS::EventObserver* observer) {
            if (auto* o = dynamic_cast<OutboxObserver*>(observer)) o->OutboxChanged();
        });
    }
};

Outbox::Outbox(const IO::Location& cacheFolder) : mOutboxFile(cacheFolder + IO::Name(kFileName)) {
    if (!FileExist(mOutboxFile)) return;
    std::string data;
    if (IO::fileSystem.ReadWholeFile(mOutboxFile, &data)) return;
    ZR::PagedArray<ZR::Ref<ClientMail>, 8> mails;
    std::size_t used = 0;
    int status =
        ReadMails(reinterpret_cast<const unsigned char*>(data.data()), data.size(), mails, &used);
    if (status != 0 || used != data.size()) {
        // The file is written anew when the outbox ends, with the mails read
        // here only: a file with more than they (a cut file, mails of a later
        // version, bytes past the count) is kept beside it first.
        IO::Location kept =
            cacheFolder + IO::Name(ZR::UniString::Format("%s.unread-%d", kFileName,
                                                         static_cast<int>(TIGetTime())));
        if (!FileExist(kept)) IO::fileSystem.WriteFileAtomically(kept, data);
    }
    for (const auto& mail : mails) Append(mail);
}

Outbox::~Outbox() {
    ReleaseDependents();
    DetachObservers();
    ZR::LockGuard<ZR::Lock> guard(mLock);
    Write();
    mMails.Clear();
    mById.clear();
}

int Outbox::WriteMails(const ZR::PagedArray<ZR::Ref<ClientMail>, 8>& mails, ZR::OChannel& channel) {
    if (int status = channel.WriteUInt32(static_cast<std::uint32_t>(mails.GetSize())))
        return status;
    for (const auto& mail : mails)
        if (int status = ClientMail::Write(mail, channel)) return status;
    return 0;
}

int Outbox::ReadMails(const unsigned char* data, std::size_t size,
                      ZR::PagedArray<ZR::Ref<ClientMail>, 8>& mails, std::size_t* stoppedAt) {
    ZR::MemoryIChannel channel(data, size);
    std::uint32_t count = 0;
    if (int status = channel.ReadUInt32(count)) {
        if (stoppedAt) *stoppedAt = 0;
        return status;
    }
    int status = 0;
    // Appended one by one as they are read: a hostile count costs nothing.
    for (std::uint32_t i = 0; status == 0 && i < count; ++i) {
        std::size_t before = channel.GetPosition();
        ZR::Ref<ClientMail> mail;
        status = ClientMail::Read(mail, channel);
        if (status == 0 && !mail) status = ZR::kGeneralErrorCode;
        if (status) {
            if (stoppedAt) *stoppedAt = before;
            return status;
        }
        mails.Add(mail);
    }
    if (stoppedAt) *stoppedAt = channel.GetPosition();
    return status;
}

int Outbox::Write() {
    if (!mOutboxFile.IsLocal()) return ZR::kGeneralErrorCode;
    ZR::MemoryOChannel32 bytes;
    try {
        // A mail that can't be written ends the list there: the count stays,
        // and a reader stops at the missing mail.
        WriteMails(mMails, bytes);
    } catch (const ZR::ZRException&) {
    }
    std::string data(reinterpret_cast<const char*>(bytes.GetData()), bytes.GetSize());
    return IO::fileSystem.WriteFileAtomically(mOutboxFile, data);
}

void Outbox::Append(const ZR::Ref<ClientMail>& mail) {
    mMails.Add(mail);
    mById[mail->GetId()].push_back(mail);
}

void Outbox::AddMail(const ZR::Ref<ClientMail>& mail) {
    {
        ZR::LockGuard<ZR::Lock> guard(mLock);
        Append(mail);
    }
    Notify();
}

void Outbox::DeleteMails(const ZR::HashSet<ZR::UniString>& ids) {
    {
        ZR::LockGuard<ZR::Lock> guard(mLock);
        // The first mail of each id goes: mark them through the index, then
        // close the gaps in one pass, so the rest keep their order.
        std::unordered_map<const ClientMail*, bool> doomed;
        for (const ZR::UniString& id : ids) {
            auto it = mById.find(id);
            if (it == mById.end()) continue;
            doomed.emplace(it->second.front().Get(), true);
            it->second.erase(it->second.begin());
            if (it->second.empty()) mById.erase(it);
        }
        if (!doomed.empty()) {
            auto& list = mMails.Std();
            list.erase(std::remove_if(list.begin(), list.end(),
                                      [&](const ZR::Ref<ClientMail>& mail) {
                                          return doomed.erase(mail.Get()) > 0;
                                      }),
                       list.end());
        }
    }
    Notify();
}

bool Outbox::ContainsMail(const ZR::UniString& id) {
    ZR::LockGuard<ZR::Lock> guard(mLock);
    return mById.count(id) != 0;
}

bool Outbox::GetMail(const ZR::UniString& id, ZR::Ref<ClientMail>& mail) {
    ZR::LockGuard<ZR::Lock> guard(mLock);
    auto it = mById.find(id);
    if (it == mById.end()) return false;
    mail = it->second.front();
    return true;
}

void Outbox::GetMails(ZR::PagedArray<ZR::Ref<ClientMail>, 8>& result, bool onlyNotUnderWay) {
    ZR::LockGuard<ZR::Lock> guard(mLock);
    if (!onlyNotUnderWay) {
        result = mMails;
        return;
    }
    result.Clear();
    for (const auto& mail : mMails)
        if (!mMailsUnderWay.Contains(mail->GetId())) result.Add(mail);
}

void Outbox::SetMailsUnderWay(const ZR::HashSet<ZR::UniString>& ids) {
    ZR::LockGuard<ZR::Lock> guard(mLock);
    for (const ZR::UniString& id : ids) mMailsUnderWay.Add(id);
}

void Outbox::ResetMailsUnderWay(const ZR::HashSet<ZR::UniString>& ids) {
    ZR::LockGuard<ZR::Lock> guard(mLock);
    for (const ZR::UniString& id : ids) mMailsUnderWay.Remove(id);
}

void Outbox::UpdateSender(const Kerrow::Server::Mail::Address& sender) {
    ZR::LockGuard<ZR::Lock> guard(mLock);
    for (const auto& mail : mMails) {
        mail->SetSent(Kerrow::Server::Mail::Date(TIGetTime()));
        mail->SetSender(sender);
    }
}

void Outbox::Notify() {
    KRCB::LowMessageLoopExecutor executor;
    if (!executor.CanExecuteTask()) return;
    executor.Execute(ZR::RunnableTask(new OutboxChangedNotificationTask(this)));
}

}  // namespace KRC
