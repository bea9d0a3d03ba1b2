// The cycle that every translated message goes through: decode the given octets, set addresses in
// the decoded record, write the message back to where its octets lie in the packet.
//
//     H225RasMessage message;
//     MessageEdit edit;
//     if (decodeMessage(edit, {datagram, length}, {datagram, 0, length}, message)) {
//         ... find endpoints in `message`, setEndpoint(edit, field, value) ...
//         writeBack(edit);
//         closeMessage(edit);
//     }
//
// The two rewrite modes (nat/listed/rewrite_mode.h) meet here and nowhere else. In REWRITE_ENCODED
// a setter changes the record and writeBack encodes it; in REWRITE_LOSSLESS a setter also writes
// the octets into the packet, where the decoder found them, and writeBack has nothing left to do.
//
// In REWRITE_LOSSLESS a field stays as it is, and is counted, when its place cannot be told, when
// some of its octets left in an earlier segment, or when the packet holds other octets there than
// were decoded. An address and the port set with it are written together or not at all.
//
// Everything that a decoder allocates lives until closeMessage. Nothing else is allocated; blocks
// come from a pool that is kept between messages.
#pragma once

#include <cstddef>
#include <cstdint>

#include "nat/listed/message_codecs.h"
#include "nat/listed/transport_address.h"

// The octets of one PER encoding.
struct MessageOctets {
    uint8_t* data;
    size_t count;
};

// Where those octets lie in the packet, whose payload is `length` octets at `segment`: octet i at
// segment[start + i], if that is in the packet at all. A negative start says that the message began
// in an earlier segment; its end can have come before its middle.
struct PacketPlace {
    uint8_t* segment;
    ptrdiff_t start;
    size_t length;
};

// A message between decodeMessage or decodeElement and closeMessage. Its members belong to the
// functions below; the caller reads `changed`.
struct MessageEdit {
    PerContext context;        // of the decoder; owns what the record points to
    const MessageCodec* codec; // of the record
    void* record;
    MessageOctets octets;  // that were decoded
    PacketPlace place;     // where writeBack encodes to
    MessageEdit* outer;    // the message that holds this one as an octet string, or null
    bool changed;          // octets of the packet were written
    bool exactlyEncodable; // debug builds: encoding the record as decoded gives the old octets
};

// Decodes `octets` into `record`. On success the caller ends with closeMessage; on failure
// everything is released already and the message is to stay as it is. No octets at all do not
// decode. `octets` and `record` must stay valid until closeMessage.
template <typename Record>
bool decodeMessage(MessageEdit& edit, MessageOctets octets, const PacketPlace& place,
                   Record& record);

// The same for a message that lies inside `outer` as an octet string: `octets` is its copy in the
// decoded record. writeBack encodes over that copy, and writing `outer` back takes it to the
// packet.
template <typename Record>
bool decodeElement(MessageEdit& edit, MessageEdit& outer, MessageOctets octets, Record& record);

// Gives a field of the decoded record another address, its port unchanged.
void setAddress(MessageEdit& edit, const EndpointField& field, uint32_t address);

// Gives a field of the decoded record another address and port.
void setEndpoint(MessageEdit& edit, const EndpointField& field, Endpoint endpoint);

// Encodes the record over its old octets in the packet and marks the edit as changed, whatever the
// encoder reports; a shorter encoding leaves the last old octets in place. A message that began in
// an earlier segment is not written. Gives the encoder's status, 0 when nothing was encoded.
int32_t writeBack(MessageEdit& edit);

// Releases everything that was decoded.
void closeMessage(MessageEdit& edit);

// Gives back the memory that is kept between messages. No message may be open.
void releaseMessageMemory();

// What the two templates above share, for any record type.
bool openMessage(MessageEdit& edit, MessageEdit* outer, MessageOctets octets,
                 const PacketPlace& place, const MessageCodec& codec, void* record);

template <typename Record>
bool decodeMessage(MessageEdit& edit, MessageOctets octets, const PacketPlace& place,
                   Record& record) {
    return openMessage(edit, nullptr, octets, place, codecOf(record), &record);
}

template <typename Record>
bool decodeElement(MessageEdit& edit, MessageEdit& outer, MessageOctets octets, Record& record) {
    return openMessage(edit, &outer, octets, {octets.data, 0, octets.count}, codecOf(record),
                       &record);
}
