#include "gateway/mapping_links.h"

namespace gateway {

bool isLinked(const HostMappingRecord& media) {
    return media.parent != nullptr;
}

void unlink(HostMappingRecord& media) {
    if (media.previousSibling != nullptr) {
        media.previousSibling->nextSibling = media.nextSibling;
    } else if (media.parent != nullptr) {
        media.parent->firstMediaRecord = media.nextSibling;
    }
    if (media.nextSibling != nullptr) {
        media.nextSibling->previousSibling = media.previousSibling;
    }
    media.parent = nullptr;
    media.nextSibling = nullptr;
    media.previousSibling = nullptr;
}

void unlinkChildren(HostMappingRecord& parent) {
    while (parent.firstMediaRecord != nullptr) {
        unlink(*parent.firstMediaRecord);
    }
}

} // namespace gateway
