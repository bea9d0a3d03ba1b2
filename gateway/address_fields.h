#pragma once

#include "gateway/h323_message.h"

#include "H.323/H323-MESSAGES.h"
#include "H.323/MULTIMEDIA-SYSTEM-CONTROL.h"

#include <string>
#include <vector>

namespace gateway {

// The addresses of a decoded message that the module may rewrite, in the order of the message.
// Only IPv4 unicast addresses are listed.
std::vector<AddressField> addressFields(const H225H323_UserInformation& message);
std::vector<AddressField> addressFields(const H245MultimediaSystemControlMessage& message);
std::vector<AddressField> addressFields(const H225RasMessage& message);

// Every h245Address of a call-signalling message, in whatever body.
std::vector<Endpoint> controlAddresses(const H225H323_UserInformation& message);

} // namespace gateway
