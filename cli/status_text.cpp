#include "cli/status_text.h"

#include "asn1per/status.h"

namespace cli {
namespace {

struct Meaning {
    int32_t status;
    const char* text;
};

constexpr Meaning meanings[] = {
    {PER_FRAGMENT, "a list of 16384 or more elements"},
    {PER_OVERFLOW, "the data end within a field, or the encoding does not fit"},
    {PER_END_OF_DATA, "the data end within a field"},
    {PER_BAD_OID, "invalid OBJECT IDENTIFIER"},
    {PER_BAD_CHOICE, "unknown CHOICE alternative"},
    {PER_NO_MEMORY, "out of memory"},
    {PER_DOES_NOT_FIT, "a string is longer than its type allows"},
    {PER_CONSTRAINT, "a value or length is outside its constraint"},
    {PER_RANGE, "an integer is outside its range"},
    {PER_TOO_DEEP, "values are nested too deeply"},
};

} // namespace

std::string statusText(int32_t status) {
    for (const Meaning& meaning : meanings) {
        if (meaning.status == status) {
            return std::to_string(status) + " (" + meaning.text + ")";
        }
    }
    return std::to_string(status);
}

} // namespace cli
