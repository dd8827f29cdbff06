#include "Kerrow/Mail.h"

#include <string>
#include <string_view>

#include "ZR/Exceptions.h"

namespace Kerrow::Server::Mail {

namespace {

void Escape(const std::string& part, std::string& out) {
    for (char c : part) {
        if (c == '%')
            out += "%25";
        else if (c == '/')
            out += "%2F";
        else
            out += c;
    }
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

bool Unescape(std::string_view part, std::string& out) {
    for (std::size_t i = 0; i < part.size(); ++i) {
        if (part[i] != '%') {
            out += part[i];
            continue;
        }
        if (i + 2 >= part.size()) return false;
        int high = HexValue(part[i + 1]);
        int low = HexValue(part[i + 2]);
        if (high < 0 || low < 0) return false;
        out += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return true;
}

[[noreturn]] void ThrowChannelFailure(const char* what, int status, const char* file,
                                      unsigned int line) {
    throw ZR::ZRException(
        ZR::UniString::Format("Failed to %s a mailbox session: channel error %d", what, status),
        file, line, status);
}

}  // namespace

MailboxId::MailboxId(const ZR::UniString& text) {
    const std::string& s = text.Std();
    std::size_t slash = s.find('/');
    std::string owner, name;
    if (slash == std::string::npos || s.find('/', slash + 1) != std::string::npos ||
        !Unescape(std::string_view(s).substr(0, slash), owner) ||
        !Unescape(std::string_view(s).substr(slash + 1), name))
        throw ZR::IllegalArgumentException(
            "Failed to read a mailbox id: not of the form owner/name", ZR_HERE);
    mOwnerId = ZR::UniString(std::move(owner));
    mName = ZR::UniString(std::move(name));
}

ZR::UniString MailboxId::ToString() const {
    std::string text;
    Escape(mOwnerId.Std(), text);
    text += '/';
    Escape(mName.Std(), text);
    return ZR::UniString(std::move(text));
}

void MailboxSessionInfo::Write(ZR::OChannelX& channel) const {
    if (int status = channel.Write(mSessionId)) ThrowChannelFailure("write", status, ZR_HERE);
    if (int status = channel.Write(mMailboxId.ToString()))
        ThrowChannelFailure("write", status, ZR_HERE);
}

void MailboxSessionInfo::Read(ZR::IChannelX& channel) {
    ZR::UniString sessionId, mailboxText;
    if (int status = channel.Read(sessionId)) ThrowChannelFailure("read", status, ZR_HERE);
    if (int status = channel.Read(mailboxText)) ThrowChannelFailure("read", status, ZR_HERE);
    MailboxId mailboxId(mailboxText);
    mSessionId = sessionId;
    mMailboxId = mailboxId;
}

}  // namespace Kerrow::Server::Mail
