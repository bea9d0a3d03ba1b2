// The runtime's primitives in any order on any bits, both variants: nothing is read outside the
// buffer, the cursor never stands beyond the octet behind it, and what was read can be written and
// read again.
//
// Input: variant, number of operations, the operations (two octets each), the bits.
#include <algorithm>
#include <cstring>
#include <memory>

#include "asn1per/asn1per.h"
#include "fuzz/input.h"
#include "fuzz/memory_meter.h"
#include "fuzz/require.h"

namespace fuzzing {

namespace {

// One value as a primitive reads and writes it.
struct Value {
    uint32_t number = 0;
    uint32_t count = 0;
    uint8_t array[64] = {};
    uint8_t* octets = nullptr;
    DynOctetString octetString{};
    DynBitString bitString{};
    const char* text = nullptr;
    BMPStringValue wide{};
    ObjectIdentifier identifier{};
    OpenTypeValue kept{};
};

constexpr uint32_t ranges[] = {2,     3,          4,          7,          10,
                               255,   256,        257,        65535,      65536,
                               65537, 0x01000000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE};
constexpr uint32_t sizes[] = {0, 1, 2, 3, 4, 7, 16, 17, 20, 64};
// Written by index of 4 bits, by code or by index of 5, by index of 3 or 4, and by one of 2.
constexpr const char* alphabets[] = {"0123456789#*,", "0123456789#*ABCD!", "0123456", "321"};

// What a primitive takes besides the value, drawn from the operation's second octet.
struct Limits {
    explicit Limits(uint8_t choice)
        : range(ranges[choice % std::size(ranges)]), lower(sizes[choice % std::size(sizes)]),
          upper(std::max(lower, sizes[choice / 16 % std::size(sizes)])),
          from((choice & 0x80) != 0 ? alphabets[choice / 32 % std::size(alphabets)] : nullptr) {}

    uint32_t range;
    uint32_t lower;
    uint32_t upper;
    const char* from;
};

struct Primitive {
    int32_t (*read)(PerContext* ctx, Value& value, const Limits& limits);
    int32_t (*write)(PerContext* ctx, const Value& value, const Limits& limits);
    bool (*same)(const Value& left, const Value& right);
};

bool sameNumber(const Value& left, const Value& right) {
    return left.number == right.number;
}

bool sameArray(const Value& left, const Value& right) {
    return left.count == right.count &&
           std::equal(std::begin(left.array), std::end(left.array), std::begin(right.array));
}

bool sameOctets(const uint8_t* left, const uint8_t* right, size_t count) {
    return count == 0 || std::memcmp(left, right, count) == 0;
}

bool sameText(const Value& left, const Value& right) {
    return std::strcmp(left.text, right.text) == 0;
}

bool sameWide(const Value& left, const Value& right) {
    return left.wide.nchars == right.wide.nchars &&
           (left.wide.nchars == 0 ||
            std::memcmp(left.wide.data, right.wide.data, left.wide.nchars * sizeof(uint16_t)) == 0);
}

bool sameKept(const Value& left, const Value& right) {
    return (left.kept.numocts == 0) == (right.kept.numocts == 0);
}

constexpr uint16_t listedCharacters[] = {'a', 'x', 0x3B1, 0x20AC, 0xFFFD};
constexpr PermittedCharacters16 listed{std::size(listedCharacters), listedCharacters, 0, 0};
constexpr PermittedCharacters16 ranged{0, nullptr, 0x20, 0x7E};

const Primitive primitives[] = {
    {[](PerContext* ctx, Value& v, const Limits& l) {
         return pd_bits(ctx, &v.number, l.upper & 31);
     },
     [](PerContext* ctx, const Value& v, const Limits& l) {
         return pe_bits(ctx, v.number, l.upper & 31);
     },
     sameNumber},
    {[](PerContext* ctx, Value& v, const Limits& l) {
         return pd_ConsUnsigned(ctx, &v.number, 5, l.range);
     },
     [](PerContext* ctx, const Value& v, const Limits& l) {
         return pe_ConsUnsigned(ctx, v.number, 5, l.range);
     },
     sameNumber},
    {[](PerContext* ctx, Value& v, const Limits&) {
         return pd_SmallNonNegWholeNumber(ctx, &v.number);
     },
     [](PerContext* ctx, const Value& v, const Limits&) {
         return pe_SmallNonNegWholeNumber(ctx, v.number);
     },
     sameNumber},
    {[](PerContext* ctx, Value& v, const Limits&) {
         int32_t number = 0;
         const int32_t status = pd_UnconsInteger(ctx, &number);
         v.number = static_cast<uint32_t>(number);
         return status;
     },
     [](PerContext* ctx, const Value& v, const Limits&) {
         return pe_UnconsInteger(ctx, static_cast<int32_t>(v.number));
     },
     sameNumber},
    {[](PerContext* ctx, Value& v, const Limits& l) {
         return pd_OctetStringSized(ctx, &v.count, v.array, sizeof v.array, l.lower, l.upper);
     },
     [](PerContext* ctx, const Value& v, const Limits& l) {
         return pe_OctetStringSized(ctx, v.count, v.array, l.lower, l.upper);
     },
     sameArray},
    {[](PerContext* ctx, Value& v, const Limits& l) {
         return pd_BitStringSized(ctx, &v.count, v.array, sizeof v.array, l.lower, l.upper);
     },
     [](PerContext* ctx, const Value& v, const Limits& l) {
         return pe_BitStringSized(ctx, v.count, v.array, l.lower, l.upper);
     },
     sameArray},
    {[](PerContext* ctx, Value& v, const Limits&) {
         return pd_DynOctetString(ctx, &v.octetString);
     },
     [](PerContext* ctx, const Value& v, const Limits&) {
         return pe_OctetString(ctx, v.octetString.numocts, v.octetString.data);
     },
     [](const Value& a, const Value& b) {
         return a.octetString.numocts == b.octetString.numocts &&
                sameOctets(a.octetString.data, b.octetString.data, a.octetString.numocts);
     }},
    {[](PerContext* ctx, Value& v, const Limits&) { return pd_DynBitString(ctx, &v.bitString); },
     [](PerContext* ctx, const Value& v, const Limits&) {
         return pe_BitString(ctx, v.bitString.numbits, v.bitString.data);
     },
     [](const Value& a, const Value& b) {
         return a.bitString.numbits == b.bitString.numbits &&
                sameOctets(a.bitString.data, b.bitString.data, (a.bitString.numbits + 7) / 8);
     }},
    {[](PerContext* ctx, Value& v, const Limits&) { return pd_OpenType(ctx, &v.octets, &v.count); },
     [](PerContext* ctx, const Value& v, const Limits&) {
         return pe_OpenType(ctx, v.count, v.octets);
     },
     // An empty one is written as one zero octet.
     [](const Value& a, const Value& b) {
         return a.count == 0 || (a.count == b.count && sameOctets(a.octets, b.octets, a.count));
     }},
    {[](PerContext* ctx, Value& v, const Limits& l) { return pd_IA5String(ctx, &v.text, l.from); },
     [](PerContext* ctx, const Value& v, const Limits& l) {
         return pe_IA5String(ctx, v.text, l.from);
     },
     sameText},
    {[](PerContext* ctx, Value& v, const Limits& l) {
         return pd_NumericString(ctx, &v.text, l.from);
     },
     [](PerContext* ctx, const Value& v, const Limits& l) {
         return pe_NumericString(ctx, v.text, l.from);
     },
     sameText},
    {[](PerContext* ctx, Value& v, const Limits& l) {
         return pd_BMPStringSized(ctx, &v.wide, nullptr, l.lower, l.upper);
     },
     [](PerContext* ctx, const Value& v, const Limits& l) {
         return pe_BMPStringSized(ctx, v.wide.nchars, v.wide.data, nullptr, l.lower, l.upper);
     },
     sameWide},
    {[](PerContext* ctx, Value& v, const Limits&) {
         return pd_ObjectIdentifier(ctx, &v.identifier);
     },
     [](PerContext* ctx, const Value& v, const Limits&) {
         return pe_ObjectIdentifier(ctx, &v.identifier);
     },
     [](const Value& a, const Value& b) {
         return a.identifier.numarcs == b.identifier.numarcs &&
                std::equal(a.identifier.arcs, a.identifier.arcs + a.identifier.numarcs,
                           b.identifier.arcs);
     }},
    {[](PerContext* ctx, Value& v, const Limits& l) {
         return pd_PrintableStringSized(ctx, &v.text, l.from, l.lower, l.upper);
     },
     [](PerContext* ctx, const Value& v, const Limits& l) {
         return pe_PrintableStringSized(ctx, v.text, l.from, l.lower, l.upper);
     },
     sameText},
    {[](PerContext* ctx, Value& v, const Limits& l) {
         return pd_GeneralString(ctx, &v.text, l.from);
     },
     [](PerContext* ctx, const Value& v, const Limits& l) {
         return pe_GeneralString(ctx, v.text, l.from);
     },
     sameText},
    {[](PerContext* ctx, Value& v, const Limits& l) {
         return pd_BMPString(ctx, &v.wide, l.from != nullptr ? &listed : &ranged);
     },
     [](PerContext* ctx, const Value& v, const Limits& l) {
         return pe_BMPString(ctx, v.wide.nchars, v.wide.data,
                             l.from != nullptr ? &listed : &ranged);
     },
     sameWide},
    {[](PerContext* ctx, Value& v, const Limits& l) {
         return pd_listCountSized(ctx, &v.count, 1 + l.lower, l.lower, l.upper);
     },
     [](PerContext* ctx, const Value& v, const Limits& l) {
         const int32_t status = pe_LengthSized(ctx, v.count, l.lower, l.upper);
         // The elements, which a count is checked against.
         const Octets elements(v.count * size_t{1 + l.lower} / 8 + 1);
         return status < 0
                    ? status
                    : pe_bitData(ctx, elements.data(), static_cast<uint32_t>(elements.size() * 8));
     },
     [](const Value& a, const Value& b) { return a.count == b.count; }},
    {[](PerContext* ctx, Value& v, const Limits&) { return pd_ChoiceOpenTypeExt(ctx, &v.kept); },
     [](PerContext* ctx, const Value& v, const Limits&) { return pe_OpenTypeExt(ctx, &v.kept); },
     sameKept},
    {[](PerContext* ctx, Value& v, const Limits&) { return pd_OpenTypeExt(ctx, &v.kept); },
     [](PerContext* ctx, const Value& v, const Limits&) { return pe_OpenTypeExt(ctx, &v.kept); },
     sameKept},
};

class Context {
public:
    Context(const Octets* octets, uint8_t aligned) {
        if (octets != nullptr) {
            octets_ = std::make_unique<uint8_t[]>(octets->size());
            std::copy(octets->begin(), octets->end(), octets_.get());
        }
        ready_ = pu_initContext(&context_, octets_.get(),
                                octets == nullptr ? 0 : static_cast<uint32_t>(octets->size()),
                                aligned) == PER_OK;
    }
    ~Context() { pu_freeContext(&context_); }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    [[nodiscard]] bool ready() const { return ready_; }
    operator PerContext*() { return &context_; }

private:
    std::unique_ptr<uint8_t[]> octets_;
    PerContext context_{};
    bool ready_ = false;
};

void requireCursorInside(PerContext* ctx) {
    require(pu_bitPosition(ctx) <= uint64_t{ctx->size} * 8 + 8,
            "the cursor stands inside the buffer or on the octet behind it");
}

// A value that was read is within its limits when the writer takes it; then it reads back.
void requireSame(const Primitive& primitive, const Value& value, const Limits& limits,
                 uint8_t aligned) {
    Context writer(nullptr, aligned);
    if (primitive.write(writer, value, limits) < 0) {
        return;
    }
    // Strings align although nothing may follow.
    require(pe_bits(writer, 0xA5, 8) == PER_OK, "there is room behind a value");
    uint32_t length = 0;
    const uint8_t* start = pe_getMsgPtr(writer, &length);
    const Octets octets(start, start + length);
    Context reader(&octets, aligned);
    Value again;
    require(primitive.read(reader, again, limits) >= 0, "what was written can be read");
    require(primitive.same(value, again), "what was written is read again");
}

void run(Input& input) {
    const uint8_t aligned = input.octet() & 1;
    const size_t count = input.octet() % 32;
    const Octets operations = input.octets(count * 2);
    const Octets bits = input.remainder();
    if (bits.empty()) {
        return;
    }
    Context reader(&bits, aligned);
    pu_setFieldTracking(reader, count % 2);
    for (size_t i = 0; i + 1 < operations.size(); i += 2) {
        const Primitive& primitive = primitives[operations[i] % std::size(primitives)];
        const Limits limits(operations[i + 1]);
        Value value;
        const int32_t status = primitive.read(reader, value, limits);
        requireCursorInside(reader);
        if (status < 0) {
            // Whatever comes next stays inside the buffer.
            continue;
        }
        requireSame(primitive, value, limits, aligned);
    }
}

} // namespace

} // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace fuzzing;
    memoryMeter().drainTakenOctets();
    Input input(data, size);
    run(input);
    require(memoryMeter().liveBlocks() == 0, "a released context leaves no memory behind");
    return 0;
}
