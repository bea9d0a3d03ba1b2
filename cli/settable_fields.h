#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "asn1per/type_description.h"
#include "nat/listed/logical_channel.h"
#include "nat/listed/message_edit.h"

namespace cli {

/// An address that a rule of the module may set, in a message that is open for editing.
struct SettableField {
    std::string name;  ///< as "setup.fastStart[0].forward.mediaControlChannel"
    MessageEdit* edit; ///< the message or fast-start element that holds it
    EndpointField field;
};

/// A message of any type that is open for editing in lossless mode, with the addresses that a rule
/// of the module may set, also those inside its fast-start elements.
class EditedMessage {
public:
    /// Opens the message in `octets`, which must outlive this object.
    EditedMessage(const TypeDescription& type, std::vector<uint8_t>& octets);
    ~EditedMessage();
    EditedMessage(const EditedMessage&) = delete;
    EditedMessage& operator=(const EditedMessage&) = delete;

    /// Whether the message decodes; otherwise it has no fields.
    bool isOpen() const { return open; }

    const std::vector<SettableField>& fields() const { return found; }

    /// Octet at which the field's address stands in the message; the port follows behind its four
    /// octets. -1 when the decoder cannot tell.
    int64_t offsetOf(const SettableField& field) const;

private:
    struct Element {
        MessageEdit edit;
        H245OpenLogicalChannel channel;
    };

    void add(const std::string& name, MessageEdit& in, const EndpointField& field);
    void addPair(const std::string& name, MessageEdit& in, const MediaPairFields& pair);
    void addRecord(const void* record);
    void addSetup(H225Setup_UUIE& setup);
    void addFastStartElement(const std::string& name, const DynOctetString& octets);
    void addConnect(const H225Connect_UUIE& connect);
    void addUserInformation(const H225H323_UserInformation& message);
    void addGatekeeperRequest(const H225GatekeeperRequest& request);
    void addRegistrationRequest(const H225RegistrationRequest& request);
    void addRasMessage(const H225RasMessage& message);
    void addOpenLogicalChannel(H245OpenLogicalChannel& channel);
    void addOpenLogicalChannelAck(H245OpenLogicalChannelAck& acknowledgement);
    void addControlMessage(const H245MultimediaSystemControlMessage& message);

    const TypeDescription& type;
    MessageCodec codec;
    std::vector<std::max_align_t> memory; // of the decoded record
    MessageEdit message;
    std::list<Element> elements;
    std::vector<SettableField> found;
    bool open;
};

} // namespace cli
