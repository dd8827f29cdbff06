#include "Targets.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Emulator/Service.h"
#include "IO/Location.h"
#include "JSON/JSON.h"
#include "KRCB/LoginDataStore.h"
#include "KRClient/CachedProjectInfo.h"
#include "KRClient/Internal/KRDataOptions.h"
#include "KRClient/KRClientExceptions.h"
#include "KRClient/MailClient/ClientMail.h"
#include "KRClient/MailClient/ContactListSerializer.h"
#include "KRClient/MailClient/Internal/MailsFile.h"
#include "KRClient/MailClient/Internal/Outbox.h"
#include "NewDisplay/NativeImage.h"
#include "ZR/Channel.h"
#include "ZR/Debug.h"
#include "ZRXML/XMLChannel.h"

namespace krfuzz {
namespace {

// Readers of files get their input as a file, in one scratch folder for the
// process, removed at exit. In memory where there is a place for it: on a disc
// file system each rewrite of a file waits for the one before to be written.
struct Scratch {
    Scratch() {
        for (std::string root :
             {std::string("/dev/shm"), std::filesystem::temp_directory_path().string()}) {
            path = root + "/krc-fuzz-XXXXXX";
            if (mkdtemp(path.data())) return;
        }
        std::abort();
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    std::string path;
};

// Puts data into NAME in FOLDER of the scratch folder, replacing what an
// earlier input left there, and answers the folder.
IO::Location Put(const std::string& folder, const char* name, const std::uint8_t* data,
                 std::size_t size) {
    static const Scratch scratch;
    std::string dir = scratch.path + "/" + folder;
    std::filesystem::create_directories(dir);
    std::ofstream out(dir + "/" + name, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    if (!out) std::abort();
    return IO::Location(ZR::UniString(dir));
}

template <typename T>
int ReadAs(ZR::XMLIChannel& in, const char* key) {
    T value{};
    return in.Read(key, &value);
}

// Walks a channel the way a reader that knows no schema would: every element,
// entered where it has children, read as the type its name picks otherwise.
void Walk(ZR::XMLIChannel& in, int depth) {
    static int (*const kReads[])(ZR::XMLIChannel&, const char*) = {
        &ReadAs<ZR::UniString>, &ReadAs<std::uint32_t>, &ReadAs<std::int32_t>,
        &ReadAs<std::uint16_t>, &ReadAs<std::int16_t>,  &ReadAs<bool>};
    ZR::UniString name;
    for (int guard = 0; guard < 100000 && in.GetNextElementName(&name) == 0; ++guard) {
        const char* key = name.ToCString();
        if (depth < 64 && in.EnterElement(key) == 0) {
            Walk(in, depth + 1);
            in.LeaveElement();
            continue;
        }
        int status = kReads[name.Std().size() % 6](in, key);
        // A value that doesn't parse is consumed; one that was not taken ends the walk.
        if (status != 0 && status != ZR::kXMLErrBadValue) break;
    }
}

}  // namespace

int FuzzXmlChannel(const std::uint8_t* data, std::size_t size) {
    IO::Location folder = Put("xml", "In.xml", data, size);
    ZR::XMLIChannel* in = ZRXML::CreateXMLIChannel(folder + IO::Name("In.xml"), "Root", 0);
    if (!in) return 0;
    Walk(*in, 0);
    ZRXML::DisposeXMLIChannel(in);
    return 0;
}

int FuzzCacheInfo(const std::uint8_t* data, std::size_t size) {
    IO::Location folder = Put("record", KRC::kCacheInfoFileName, data, size);
    try {
        KRC::CachedProjectInfo info(folder);
        info.GetPortalServerUrl();
        info.GetProjectPath();
        info.GetPermissions();
        info.GetXMLVersion();
    } catch (const KRC::FileException&) {
        // A file the record can't take: what a reader reports.
    }
    return 0;
}

int FuzzDataOptions(const std::uint8_t* data, std::size_t size) {
    IO::Location folder = Put("options", KRC::KRDataOptions::kFileName, data, size);
    KRC::KRDataOptions& options = KRC::dataOptions;
    options.ResetForTesting();
    options.SetOptionsFolder(folder);
    options.SetProjectCacheFolderName("Projects");
    options.SetLibCacheFolderName("Libraries");
    options.Read();
    IO::Location location;
    options.GetDataFolder(&location, false);
    options.GetMainProjectCacheFolder(&location, false);
    options.GetPeriodTime();
    return 0;
}

int FuzzLoginData(const std::uint8_t* data, std::size_t size) {
    using KRCB::LoginDataStore::LoginDataStore;
    LoginDataStore store;
    try {
        store = LoginDataStore::FromJson(std::string(reinterpret_cast<const char*>(data), size));
    } catch (const KRCB::LoginDataStore::LoginDataStoreException&) {
        return 0;
    }
    // What was read is written back and read again unchanged, and every server
    // is found by its own URL.
    if (!(LoginDataStore::FromJson(store.ToJson()) == store)) std::abort();
    for (const auto& server : store.Servers())
        if (!store.FindServer(server.GetUniqueURL())) std::abort();
    return 0;
}

int FuzzScenario(const std::uint8_t* data, std::size_t size) {
    std::unique_ptr<Emulator::Service> service;
    try {
        service = Emulator::Service::FromScenarioText(
            std::string(reinterpret_cast<const char*>(data), size));
    } catch (const Emulator::ScenarioError& e) {
        // A refusal is one line with nothing a terminal acts on.
        for (const char* c = e.what(); *c; ++c)
            if (static_cast<unsigned char>(*c) < 0x20 || *c == 0x7f) std::abort();
        return 0;
    }
    // What was read is written, read again and written to the same text.
    std::string text = service->ToScenarioText();
    if (Emulator::Service::FromScenarioText(text)->ToScenarioText() != text) std::abort();
    service->ToDisplayText();
    return 0;
}

int FuzzLocation(const std::uint8_t* data, std::size_t size) {
    ZR::UniString text(std::string(reinterpret_cast<const char*>(data), size));
    IO::Location location;
    if (location.Set(text)) {
        IO::Location back;
        if (!back.Set(location.ToText()) || back != location) std::abort();
        location.ToDisplayText();
        location.ToPath();
    }
    IO::Location obsolete;
    if (obsolete.SetObsolete(text)) obsolete.ToObsoleteText();
    return 0;
}

int FuzzContactList(const std::uint8_t* data, std::size_t size) {
    using KRC::Mailbox::ContactListSerializer;
    // Rejected sessions and mailbox ids are reported on the debug output.
    ZR::SetDebugOutput([](const std::string&) {});
    ZR::MemoryIChannel in(data, size);
    ZR::Ref<KRCB::Mailbox::ContactList> list = ZR::Ref<KRCB::Mailbox::ContactList>::Make();
    if (ContactListSerializer::ReadContactList(in, list) != 0) {
        if (list->GetSize() != 0) std::abort();  // a failed read adds nothing
        return 0;
    }
    // What was read is written in the form of this version, which reads back
    // to the same bytes.
    ZR::MemoryOChannel32 first, second;
    if (ContactListSerializer::WriteContactList(list, first) != 0) std::abort();
    ZR::MemoryIChannel again(first.GetBytes());
    ZR::Ref<KRCB::Mailbox::ContactList> back = ZR::Ref<KRCB::Mailbox::ContactList>::Make();
    if (ContactListSerializer::ReadContactList(again, back) != 0) std::abort();
    if (ContactListSerializer::WriteContactList(back, second) != 0) std::abort();
    if (first.GetBytes() != second.GetBytes()) std::abort();
    return 0;
}

int FuzzNativeImage(const std::uint8_t* data, std::size_t size) {
    using NewDisplay::NativeImage;
    for (int encoding : {NativeImage::kJPEG, NativeImage::kPNG}) {
        NativeImage image(data, size, encoding);
        if (image.IsNull()) continue;
        if (image.GetWidth() == 0 || image.GetHeight() == 0) std::abort();
        // Whatever decodes survives a PNG round trip pixel for pixel.
        ZR::MemoryOChannel32 png;
        if (image.Encode(png, NativeImage::kPNG) != 0) std::abort();
        if (!(NativeImage(png.GetData(), png.GetSize(), NativeImage::kPNG) == image)) std::abort();
    }
    return 0;
}

namespace {

std::vector<unsigned char> StoredMails(const ZR::PagedArray<ZR::Ref<KRC::ClientMail>, 8>& mails) {
    ZR::MemoryOChannel32 out;
    if (KRC::Outbox::WriteMails(mails, out) != 0) std::abort();
    return out.GetBytes();
}

}  // namespace

int FuzzClientMail(const std::uint8_t* data, std::size_t size) {
    ZR::MemoryIChannel in(data, size);
    ZR::Ref<KRC::ClientMail> mail;
    if (KRC::ClientMail::Read(mail, in) != 0) {
        if (mail) std::abort();  // a failed read gives nothing
        return 0;
    }
    // The first write puts the attachments in the library's form; from then
    // on writing and reading give the same bytes.
    ZR::MemoryOChannel32 first, second;
    if (KRC::ClientMail::Write(mail, first) != 0) std::abort();
    ZR::MemoryIChannel again(first.GetBytes());
    ZR::Ref<KRC::ClientMail> back;
    if (KRC::ClientMail::Read(back, again) != 0 || again.GetRemaining() != 0) std::abort();
    if (KRC::ClientMail::Write(back, second) != 0) std::abort();
    if (first.GetBytes() != second.GetBytes()) std::abort();
    return 0;
}

int FuzzOutbox(const std::uint8_t* data, std::size_t size) {
    ZR::PagedArray<ZR::Ref<KRC::ClientMail>, 8> mails, back;
    std::size_t stoppedAt = 0;
    int status = KRC::Outbox::ReadMails(data, size, mails, &stoppedAt);
    if (stoppedAt > size || (status == 0 && stoppedAt < 4)) std::abort();
    std::vector<unsigned char> bytes = StoredMails(mails);
    if (KRC::Outbox::ReadMails(bytes.data(), bytes.size(), back) != 0) std::abort();
    if (back.GetSize() != mails.GetSize() || StoredMails(back) != bytes) std::abort();
    return 0;
}

// "Mails.dat": the reader stops inside the input; what it takes whole is
// written and read back to the same bytes.
int FuzzMailsFile(const std::uint8_t* data, std::size_t size) {
    namespace I = KRC::Internal;
    ZR::MemoryIChannel in(data, size);
    I::MailsFileContent content;
    std::uint64_t stoppedAt = 0;
    int status = I::ReadMails(in, content, &stoppedAt);
    if (stoppedAt > size || (status == 0 && stoppedAt < 8 + 4 + 8 + 4 + 3 * 4)) std::abort();
    if (status) return 0;
    auto write = [](const I::MailsFileContent& c) {
        ZR::MemoryOChannel32 out;
        if (I::WriteMails(out, {c.inboxRevision, c.inbox, c.sentRevision, c.sent, c.inboxToComplete,
                                c.sentToComplete, c.inboxToRead}) != 0)
            std::abort();
        return out.GetBytes();
    };
    std::vector<unsigned char> bytes = write(content);
    ZR::MemoryIChannel again(bytes);
    I::MailsFileContent back;
    if (I::ReadMails(again, back) != 0 || again.GetRemaining() != 0 || write(back) != bytes)
        std::abort();
    return 0;
}

int FuzzAttachmentJson(const std::uint8_t* data, std::size_t size) {
    JSON::JDOMParser parser;
    auto object = JSON::ObjectValue::Cast(
        parser.Parse(std::string_view(reinterpret_cast<const char*>(data), size), false));
    bool classNotFound = false;
    std::unique_ptr<KRC::MailAttachment> attachment;
    try {
        attachment.reset(KRC::MailAttachment::CreateFromJSON(object, classNotFound));
    } catch (const ZR::NullReferenceException&) {
        return 0;  // a header value that is no string
    }
    if (!attachment) return 0;
    if (classNotFound) std::abort();
    // Its JSON form rebuilds an attachment of the class with the same properties.
    std::unique_ptr<KRC::MailAttachment> back(
        KRC::MailAttachment::CreateFromJSON(attachment->ToJSON(), classNotFound));
    if (!back || back->GetClassInfo().GetId() != attachment->GetClassInfo().GetId() ||
        JSON::JDOMWriter::ToString(back->ToJSON()) !=
            JSON::JDOMWriter::ToString(attachment->ToJSON()))
        std::abort();
    return 0;
}

int FuzzJson(const std::uint8_t* data, std::size_t size) {
    JSON::JDOMParser parser;
    std::string_view text(reinterpret_cast<const char*>(data), size);
    JSON::Ref<JSON::Value> value = parser.Parse(text, size > 0 && data[0] == '/');
    if (!value) {
        if (parser.GetError().IsEmpty()) std::abort();
        return 0;
    }
    // What parses is written, and the text reads back to the same text.
    ZR::UniString first = JSON::JDOMWriter::ToString(value);
    JSON::Ref<JSON::Value> again = parser.Parse(first.Std(), false);
    if (!again || JSON::JDOMWriter::ToString(again) != first) std::abort();
    return 0;
}

constexpr Target kTargets[] = {{"xml_channel", &FuzzXmlChannel},
                               {"cache_info", &FuzzCacheInfo},
                               {"data_options", &FuzzDataOptions},
                               {"login_data", &FuzzLoginData},
                               {"location", &FuzzLocation},
                               {"contact_list", &FuzzContactList},
                               {"native_image", &FuzzNativeImage},
                               {"scenario", &FuzzScenario},
                               {"client_mail", &FuzzClientMail},
                               {"outbox", &FuzzOutbox},
                               {"mails_file", &FuzzMailsFile},
                               {"attachment_json", &FuzzAttachmentJson},
                               {"json", &FuzzJson},
                               {"data_query", &FuzzDataQuery}};

const Target* FindTarget(std::string_view name) {
    for (const Target& target : kTargets)
        if (name == target.name) return &target;
    return nullptr;
}

std::string TargetNames() {
    std::string names;
    for (const Target& target : kTargets)
        names += (names.empty() ? "" : ", ") + std::string(target.name);
    return names;
}

}  // namespace krfuzz
