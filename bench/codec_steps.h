// The steps that are measured on each message of the corpus. All memory blocks come from a pool
// that is warm after the first run, as in the module.
#pragma once

#include <memory>

#include "bench/corpus.h"
#include "cli/settable_fields.h"

namespace bench {

class CodecSteps {
public:
    explicit CodecSteps(const CorpusMessage& message);
    ~CodecSteps();
    CodecSteps(const CodecSteps&) = delete;
    CodecSteps& operator=(const CodecSteps&) = delete;

    // False when the message holds an alternative that the codecs refuse; then no step may run.
    bool decodes() const { return decodes_; }

    // Decodes the message and each of its fast-start elements, and releases everything.
    void decode();

    // Encodes the record that the constructor decoded.
    void encode();

    // As decode, the way lossless rewriting does it: remembering where octets came from.
    void decodeLossless();

    // Writes every address that a rule may set into a message that is open for lossless rewriting.
    void writeBack();

private:
    int32_t decodeInto(PerContext& context);

    const CorpusMessage& message_;
    bool hasFastStart_;
    std::vector<std::max_align_t> record_;
    std::vector<std::max_align_t> scratchRecord_;
    std::vector<uint8_t> octets_; // what encode writes over
    PerContext decoded_{};
    bool decodes_;
    std::unique_ptr<cli::EditedMessage> edited_;
};

} // namespace bench
