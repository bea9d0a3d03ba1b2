// The generator on any text: it reads modules and writes their codecs, or says what is wrong.
#include <string>

#include "asn1gen/emitter.h"
#include "asn1gen/layout.h"
#include "asn1gen/parser.h"
#include "asn1gen/resolver.h"
#include "fuzz/require.h"

namespace {

void generate(const std::string& text) {
    asn1gen::Model model = asn1gen::resolve(asn1gen::parseModules(text, "input.asn"), {});
    asn1gen::layOut(model);
    for (const auto& module : model.modules) {
        emitHeader(*module, {});
        emitSource(*module, {});
    }
    emitRegistry(model, {});
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        generate({reinterpret_cast<const char*>(data), size});
    } catch (const asn1gen::SourceError& error) {
        fuzzing::require(std::string(error.what()).starts_with("input.asn:"),
                         "an error names its place");
    }
    return 0;
}
