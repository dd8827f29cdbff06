#pragma once
/// @file
/// The stored form of a contact list (see docs/FORMATS.md). Where it is kept
/// is the caller's business: the form goes to and comes from a channel.

#include "KRCB/Mailbox.h"
#include "KRClient/KRClientExport.h"
#include "ZR/Channel.h"
#include "ZR/Ref.h"

namespace KRC::Mailbox {

class KRCLIENT_EXPORT ContactListSerializer {
public:
    /// The version this library writes; a list of a later one reads as empty.
    static constexpr unsigned int kVersion = 1;
    /// The record type of a UserContact; records of other types are skipped.
    static constexpr unsigned int kUserContactRecord = 1;

    /// Replaces the content of list by the contacts stored in channel. Answers
    /// 0; -7003 for an empty reference or a record that holds no valid
    /// contact; or the channel's error, for example for a cut list. On any
    /// error the list keeps what it had. A list of a later version empties the
    /// list and answers 0. Every count and length is checked against what the
    /// channel holds before anything is allocated.
    static int ReadContactList(ZR::IChannel& channel, ZR::Ref<KRCB::Mailbox::ContactList>& list);

    /// Writes every UserContact of list, without its active sessions; contacts
    /// of other classes are left out. Answers 0, -7003 for an empty reference,
    /// or the first error of the channel.
    static int WriteContactList(const ZR::Ref<const KRCB::Mailbox::ContactList>& list,
                                ZR::OChannel& channel);
};

}  // namespace KRC::Mailbox
