// Looking up the places in a message of the corpus.
#pragma once

#include "bench/corpus.h"
#include "locator/locator.h"

namespace bench {

class LocatorStep {
public:
    // The message must outlive the step. A type that is not walked ends the program.
    explicit LocatorStep(const CorpusMessage& message);

    void run(uint32_t kinds) const;

private:
    const CorpusMessage* message_;
    LocatedType type_;
};

} // namespace bench
