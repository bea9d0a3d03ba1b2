// A message in a stream buffer as something to decode and write back: which octets of the buffer,
// and where they lie in the packet of the current segment.
#pragma once

#include "nat/listed/message_edit.h"
#include "nat/listed/stream_buffer.h"
#include "nat/q931.h"

// What follows the TPKT header of the message at position 0; no octets when the message's stated
// length does not even cover that header.
OctetRange tpktContent(const StreamBuffer& stream);

// decodeMessage for a range of the message at position 0.
template <typename Record>
bool decodeStreamMessage(MessageEdit& edit, StreamBuffer& stream, OctetRange range,
                         Record& record) {
    const ptrdiff_t start = static_cast<ptrdiff_t>(range.offset) - stream.segmentOffset;
    return decodeMessage(edit, {stream.data + range.offset, range.octets},
                         {stream.segmentData, start, stream.segmentLength}, record);
}

// closeMessage, which also notes in the stream that a message was rewritten.
void closeStreamMessage(MessageEdit& edit, StreamBuffer& stream);

// Hands every message in a User-user element of the message at position 0 to `look`, which closes
// it.
template <typename Look>
MessageOutcome lookAtUserInformation(StreamBuffer& stream, const Look& look) {
    Q931Walk walk = walkQ931(stream.data, stream.messageLength);
    OctetRange range;
    Q931Element found = nextUserInformation(walk, range);
    while (found == Q931Element::UserInformation) {
        H225H323_UserInformation message;
        MessageEdit edit;
        if (decodeStreamMessage(edit, stream, range, message)) {
            look(edit, message);
        }
        found = nextUserInformation(walk, range);
    }
    return found == Q931Element::End ? MessageOutcome::done : MessageOutcome::framingFailure;
}

// Whether a message of the current segment was rewritten; clears the note.
bool takeMessageChanged(StreamBuffer& stream);
