#pragma once
// The reply-all list against a contact list, which the public form takes
// from the mailbox monitor.

#include "KRCB/Mailbox.h"
#include "KRClient/MailClient/ClientMail.h"

namespace KRC::Internal {

/// contacts null: nobody but the own address is left out.
void CreateReplyAllList(const ClientMail& mail, const Kerrow::Server::Mail::Address& ownAddress,
                        const ZR::Ref<const KRCB::Mailbox::ContactList>* contacts,
                        Kerrow::Server::Mail::AddressList& result);

}  // namespace KRC::Internal
