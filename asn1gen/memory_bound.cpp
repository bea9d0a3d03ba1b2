#include "asn1gen/memory_bound.h"

#include <algorithm>
#include <limits>
#include <map>
#include <set>

#include "asn1gen/layout.h"

namespace asn1gen {
namespace {

constexpr double unbounded = std::numeric_limits<double>::infinity();
constexpr int64_t word = 8;
constexpr int64_t openTypeLengthBits = 8;
constexpr int64_t smallNumberBits = 7;
constexpr int64_t keptContentOctets = 64; // what the runtime notes about kept content
constexpr int64_t openTypeValueOctets = 24;
constexpr int64_t objectIdentifierOctets = int64_t{129} * 4; // number of arcs and 128 arcs

int64_t roundUp(int64_t octets, int64_t alignment) {
    return (octets + alignment - 1) / alignment * alignment;
}

struct Extent {
    int64_t octets = 0;
    int64_t alignment = 1;
};

/// Size of values in memory.
class Sizes {
public:
    Extent of(const Type& type) {
        const Type& definition = type.definition();
        switch (definition.kind) {
        case Kind::Boolean:
            return {1, 1};
        case Kind::Null:
            return {0, 1};
        case Kind::Integer:
        case Kind::Enumerated:
            return {4, 4};
        case Kind::ObjectIdentifier:
            return {objectIdentifierOctets, 4};
        case Kind::CharacterString:
            return {word, word};
        case Kind::Sequence:
            return sequence(definition);
        default:
            if (isSizedString(definition)) {
                return {roundUp(4 + arrayOctets(definition), 4), 4};
            }
            return {2 * word, word}; // a count or number, and a pointer or union
        }
    }

private:
    Extent sequence(const Type& type) {
        const auto known = sequences.find(&type);
        if (known != sequences.end()) {
            return known->second;
        }
        Extent extent;
        const auto add = [&extent](const Extent& member) {
            extent.octets = roundUp(extent.octets, member.alignment) + member.octets;
            extent.alignment = std::max(extent.alignment, member.alignment);
        };
        if (presenceBits(type) > 0) {
            add({4, 4});
        }
        for (const auto* list : {&type.root, &type.additions}) {
            for (const Component& component : *list) {
                add(of(*component.type));
            }
        }
        if (keepsExtension(type)) {
            add({openTypeValueOctets, word});
        }
        extent.octets = roundUp(extent.octets, extent.alignment);
        sequences[&type] = extent;
        return extent;
    }

    std::map<const Type*, Extent> sequences;
};

/// For a price of one bit, in octets of heap: the most by which the heap that a value takes can
/// exceed the price of its bits. The price bounds the memory when no type's balance is positive. A
/// type inside itself counts as balanced, which is then true by induction over the nesting.
class Balance {
public:
    Balance(Sizes& sizes, double price) : sizes(sizes), price(price) {}

    double of(const Type& type) {
        const Type& definition = type.definition();
        const auto known = balances.find(&definition);
        if (known != balances.end()) {
            return known->second;
        }
        if (!outer.insert(&definition).second) {
            return 0;
        }
        const double result = compute(definition);
        outer.erase(&definition);
        balances[&definition] = result;
        return result;
    }

private:
    double cost(int64_t bits) const { return price * static_cast<double>(bits); }

    double compute(const Type& type) {
        switch (type.kind) {
        case Kind::Sequence:
            return sequence(type);
        case Kind::Choice:
            return choice(type);
        case Kind::List:
            return list(type);
        default:
            return simple(type);
        }
    }

    // Longer strings pay for themselves; the shortest ones have the least bits for a block.
    double simple(const Type& type) const {
        const int64_t bits = minimalBits(type);
        const int64_t least = type.size ? type.size->lower : 0;
        switch (type.kind) {
        case Kind::OctetString:
        case Kind::BitString:
            return isSizedString(type)
                       ? -cost(bits)
                       : std::max(-cost(bits), static_cast<double>(word) - cost(bits + 1));
        case Kind::OpenType:
            return std::max(-cost(bits), static_cast<double>(word) - cost(bits + word));
        case Kind::CharacterString:
            return static_cast<double>(roundUp(least + 1, word)) - cost(bits);
        case Kind::BmpString:
            return static_cast<double>(roundUp(std::max<int64_t>(least, 1) * 2, word)) - cost(bits);
        default:
            return -cost(bits);
        }
    }

    double sequence(const Type& type) {
        double result = type.extensible ? -price : 0;
        for (const Component& component : type.root) {
            const double balance = of(*component.type);
            result += component.optional ? std::max(0.0, balance) - price : balance;
        }
        for (const Component& addition : type.additions) {
            result += std::max(0.0, of(*addition.type) - cost(openTypeLengthBits));
        }
        if (keepsExtension(type)) {
            result += std::max(0.0, keptContentOctets - cost(smallNumberBits + 1));
        }
        return result;
    }

    double choice(const Type& type) {
        const auto indexBits = static_cast<int64_t>(bitField({0, rootIndex(type), false}));
        double best = -unbounded;
        for (const auto* list : {&type.root, &type.additions}) {
            const int64_t head = list == &type.root ? std::max<int64_t>(indexBits, 0)
                                                    : smallNumberBits + openTypeLengthBits;
            for (const Component& component : *list) {
                const int64_t record =
                    heldByPointer(*component.type) ? sizes.of(*component.type).octets : 0;
                best = std::max(best, static_cast<double>(roundUp(record, word)) +
                                          of(*component.type) - cost(head));
            }
        }
        if (keepsExtension(type)) {
            best = std::max(best, static_cast<double>(openTypeValueOctets + keptContentOctets) -
                                      cost(smallNumberBits + openTypeLengthBits));
        }
        return best - (type.extensible ? price : 0);
    }

    static int64_t rootIndex(const Type& type) {
        return static_cast<int64_t>(type.root.size()) - 1;
    }

    double list(const Type& type) {
        const Extent element = sizes.of(*type.element);
        // The runtime asks for at least one bit of message for each element.
        const double balance = minimalBits(*type.element) == 0 ? -price : of(*type.element);
        const double each = static_cast<double>(element.octets) + balance;
        const int64_t lower = type.size ? type.size->lower : 0;
        const auto with = [&](double count) {
            return count * each + (count > 0 ? word : 0) - cost(lengthBits(type.size));
        };
        if (each <= 0) {
            return std::max(with(static_cast<double>(lower)), with(static_cast<double>(lower + 1)));
        }
        return type.size ? with(static_cast<double>(type.size->upper)) : unbounded;
    }

    Sizes& sizes;
    double price;
    std::map<const Type*, double> balances;
    std::set<const Type*> outer;
};

bool suffices(const Module& module, Sizes& sizes, double pricePerBit) {
    Balance balance(sizes, pricePerBit);
    return std::all_of(module.types.begin(), module.types.end(),
                       [&](const Type* type) { return balance.of(*type) <= 0; });
}

} // namespace

int64_t memoryPerOctet(const Module& module) {
    Sizes sizes;
    constexpr int64_t bitsPerOctet = 8;
    constexpr int64_t absurd = int64_t{1} << 40;
    int64_t high = 1;
    while (!suffices(module, sizes, static_cast<double>(high) / bitsPerOctet)) {
        if (high >= absurd) {
            throw SourceError(module.position, "a value of module " + module.name +
                                                   " can take memory without bits in its encoding");
        }
        high *= 2;
    }
    int64_t low = high / 2;
    while (low + 1 < high) {
        const int64_t middle = low + (high - low) / 2;
        if (suffices(module, sizes, static_cast<double>(middle) / bitsPerOctet)) {
            high = middle;
        } else {
            low = middle;
        }
    }
    return high;
}

} // namespace asn1gen
