#include "nat/listed/stream_message.h"

OctetRange tpktContent(const StreamBuffer& stream) {
    const size_t length = stream.messageLength;
    return {tpktHeader, length > tpktHeader ? length - tpktHeader : 0};
}

void closeStreamMessage(MessageEdit& edit, StreamBuffer& stream) {
    if (edit.changed) {
        stream.messageChanged = 1;
    }
    closeMessage(edit);
}

bool takeMessageChanged(StreamBuffer& stream) {
    const bool changed = stream.messageChanged != 0;
    stream.messageChanged = 0;
    return changed;
}
