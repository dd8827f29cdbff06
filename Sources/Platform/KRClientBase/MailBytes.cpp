// A server mail in its stored form as one byte string, the form the mail
// server's messages carry.
#include "Kerrow/Mail.h"

namespace Kerrow::Server::Mail {

std::vector<unsigned char> ToStoredBytes(const Mail& mail) {
    ZR::MemoryOChannel32 out;
    ZR::OBinaryChannelAdapterForOChannel binary(out);
    ZR::OChannelX channel(binary, ZR::GetNetworkByteOrderOProtocolX());
    mail.Write(channel);
    return out.GetBytes();
}

Mail FromStoredBytes(const std::vector<unsigned char>& bytes) {
    ZR::MemoryIChannel in(bytes);
    ZR::IBinaryChannelAdapterForIChannel binary(in);
    ZR::IChannelX channel(binary, ZR::GetNetworkByteOrderIProtocolX());
    Mail mail;
    mail.Read(channel);
    return mail;
}

}  // namespace Kerrow::Server::Mail
