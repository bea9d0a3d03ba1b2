#include "fuzz/call_script.h"

namespace fuzzing {

namespace {

constexpr size_t longestScript = 256;

void append16(Octets& octets, size_t number) {
    octets.push_back(static_cast<uint8_t>(number >> 8));
    octets.push_back(static_cast<uint8_t>(number));
}

void append(Octets& octets, const Octets& more) {
    octets.insert(octets.end(), more.begin(), more.end());
}

Step readStep(Input& input) {
    Step step;
    step.kind = static_cast<StepKind>(input.octet() % stepKinds);
    step.parties = input.octet();
    step.localPort = input.number16();
    step.remotePort = input.number16();
    step.flags = input.octet();
    step.shift = static_cast<int8_t>(input.octet());
    const uint8_t framing = input.octet();
    step.framing = static_cast<Framing>(framing & 3);
    step.lie = static_cast<int8_t>(static_cast<int8_t>(framing) >> 2);
    step.cut = input.octet();
    const uint16_t length = input.number16();
    step.payload = input.octets(length);
    return step;
}

} // namespace

std::vector<Step> parseScript(const uint8_t* data, size_t size) {
    Input input(data, size);
    std::vector<Step> steps;
    while (!input.atEnd() && steps.size() < longestScript) {
        steps.push_back(readStep(input));
    }
    return steps;
}

Octets formatScript(std::span<const Step> steps) {
    Octets octets;
    for (const Step& step : steps) {
        octets.push_back(static_cast<uint8_t>(step.kind));
        octets.push_back(step.parties);
        append16(octets, step.localPort);
        append16(octets, step.remotePort);
        octets.push_back(step.flags);
        octets.push_back(static_cast<uint8_t>(step.shift));
        octets.push_back(static_cast<uint8_t>(step.lie << 2 | static_cast<int>(step.framing)));
        octets.push_back(step.cut);
        append16(octets, step.payload.size());
        append(octets, step.payload);
    }
    return octets;
}

Octets framedPayload(const Step& step) {
    if (step.framing == Framing::None) {
        return step.payload;
    }
    Octets body;
    if (step.framing != Framing::Tpkt) {
        const int elementLie = step.framing == Framing::UserInformation ? step.lie : 0;
        // Protocol discriminator, call reference, message type, one single-octet element, bearer
        // capability, User-user.
        body = {0x08, 0x02, 0x00, 0x01, 0x05, 0xA1, 0x04, 0x03, 0x88, 0x93, 0xA5, 0x7E};
        append16(body, step.payload.size() + 1 + static_cast<size_t>(elementLie));
        body.push_back(0x05);
    }
    append(body, step.payload);
    const int tpktLie = step.framing == Framing::UserInformation ? 0 : step.lie;
    Octets framed{0x03, 0x00};
    append16(framed, body.size() + 4 + static_cast<size_t>(tpktLie));
    append(framed, body);
    return framed;
}

} // namespace fuzzing
