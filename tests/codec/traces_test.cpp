// Start and end of every function, as the value tells which are called.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "H.323/message_value.h"
#include "H.323/registry.h"
#include "fuzz/value.h"
#include "tests/vectors/vector_set.h"

namespace {

// What the functions of H.245 and H.235 types trace on the way through a value; those of H.225.0
// trace nothing. `function` is asn1PD_ or asn1PE_.
void expectTraces(const TypeDescription& type, const void* value, const std::string& function,
                  std::string* traces) {
    const std::string name = type.name;
    const bool traced = type.named && name.substr(0, 4) != "H225";
    const auto trace = [&](const std::string& what) {
        *traces += traced ? function + name + what : "";
    };
    // Another name of a type: its function calls that of the type.
    const bool isAlias = name == "H235PwdCertToken" || name == "H225FastStartToken";
    trace(": start\n");
    *traces += isAlias ? function + "H235ClearToken: start\n" : "";
    if (type.kind == TypeKind::Sequence) {
        for (uint32_t i = 0; i < type.memberCount; ++i) {
            const MemberDescription& member = type.members[i];
            if (fuzzing::isPresent(member, value)) {
                expectTraces(*member.type, fuzzing::memberValue(member, value), function, traces);
            }
        }
    } else if (type.kind == TypeKind::Choice) {
        const MemberDescription* member = fuzzing::chosenMember(type, value);
        expectTraces(*member->type, fuzzing::memberValue(*member, value), function, traces);
    } else if (type.kind == TypeKind::List) {
        const auto& list = *static_cast<const fuzzing::ListHead*>(value);
        for (uint32_t i = 0; i < list.count; ++i) {
            expectTraces(*type.element, list.elements + size_t{i} * type.element->size, function,
                         traces);
        }
    }
    *traces += isAlias ? function + "H235ClearToken: end\n" : "";
    trace(": end\n");
}

// The functions' traces without those of the primitives in between.
std::string functionTraces(const std::string& output) {
    std::string traces;
    for (size_t at = output.find("asn1P"); at != std::string::npos;
         at = output.find("asn1P", at + 1)) {
        traces += output.substr(at, output.find('\n', at) + 1 - at);
    }
    return traces;
}

TEST(Traces, TellStartAndEndOfEveryFunctionOfH245AndH235) {
    std::set<TypeKind> kinds;
    std::set<std::string> types;
    for (const cli::VectorLine& line : readVectors("valid.txt")) {
        if (!types.insert(line.type).second) {
            continue;
        }
        const TypeDescription& type = *findType(line.type);
        MessageValue value(type);
        std::vector<uint8_t> again;
        testing::internal::CaptureStdout();
        rtSetTrace(1);
        const int32_t decoding = value.decode(line.encoding);
        const int32_t encoding = value.encode(&again);
        rtSetTrace(0);
        const std::string output = testing::internal::GetCapturedStdout();
        ASSERT_EQ(decoding, PER_OK);
        ASSERT_EQ(encoding, PER_OK);
        std::string expected;
        expectTraces(type, value.record(), "asn1PD_", &expected);
        expectTraces(type, value.record(), "asn1PE_", &expected);
        ASSERT_EQ(functionTraces(output), expected) << line.number << " " << line.type;
        kinds.insert(type.kind);
    }
    EXPECT_GT(types.size(), 300U);
    EXPECT_GT(kinds.size(), 10U);
}

// A function that fails tells its start alone.
TEST(Traces, OfAFailureHaveNoEnd) {
    MessageValue value(*findType("H245TransportAddress"));
    const std::vector<uint8_t> octets = {0x00, 0x0A};
    testing::internal::CaptureStdout();
    rtSetTrace(1);
    const int32_t status = value.decode(octets);
    rtSetTrace(0);
    EXPECT_EQ(functionTraces(testing::internal::GetCapturedStdout()),
              "asn1PD_H245TransportAddress: start\n"
              "asn1PD_H245UnicastAddress: start\n"
              "asn1PD_H245UnicastAddress_iPAddress: start\n"
              "asn1PD_H245UnicastAddress_iPAddress_network: start\n");
    EXPECT_EQ(status, PER_END_OF_DATA);
}

} // namespace
