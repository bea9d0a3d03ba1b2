#include "tree/message_tree.h"
#include "tree/value_text.h"

namespace tree {
namespace {

constexpr size_t indentWidth = 2;

uint8_t hexDigit(char digit) {
    return static_cast<uint8_t>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
}

std::vector<uint8_t> octetsOf(const Node& node) {
    std::vector<uint8_t> octets(node.value.size() / 2);
    for (size_t i = 0; i < octets.size(); ++i) {
        octets[i] = static_cast<uint8_t>(hexDigit(node.value[2 * i]) << 4 |
                                         hexDigit(node.value[2 * i + 1]));
    }
    return octets;
}

bool isAddress(const Node& node) {
    constexpr size_t digits = 8;
    return node.value.size() == digits && (node.name == "ip" || node.name == "network");
}

std::string octetText(const Node& node) {
    if (node.value.empty()) {
        return "(empty)";
    }
    if (node.children.size() == 1) {
        return std::to_string(node.value.size() / 2) + " octets";
    }
    const std::vector<uint8_t> octets = octetsOf(node);
    if (isAddress(node)) {
        std::string dotted;
        for (const uint8_t octet : octets) {
            dotted += (dotted.empty() ? "" : ".") + std::to_string(octet);
        }
        return node.value + " (" + dotted + ")";
    }
    const std::string text = readableText(octets);
    return node.value + (text.empty() ? "" : " " + text);
}

std::string valueText(const Node& node) {
    switch (node.kind) {
    case NodeKind::List:
        return std::to_string(node.children.size()) +
               (node.children.size() == 1 ? " element" : " elements");
    case NodeKind::Text:
        return '"' + node.value + '"';
    case NodeKind::Octets:
    case NodeKind::Unknown:
        return octetText(node);
    case NodeKind::Bits:
        return std::to_string(node.bitLength) + " bits" + (node.value.empty() ? "" : " ") +
               node.value;
    case NodeKind::ObjectIdentifier:
        return node.value.empty() ? "(empty)" : node.value;
    default:
        return node.value;
    }
}

class TextPrinter {
public:
    std::string text;

    void line(const Node& node, size_t depth) {
        text.append(depth * indentWidth, ' ');
        text += node.name;
        const std::string value = valueText(node);
        text += (value.empty() ? "" : ": ") + value + '\n';
        if (node.kind == NodeKind::Choice && !node.children.empty()) {
            chosen(node.children.front(), depth + 1);
        } else {
            lines(node, depth + 1);
        }
    }

private:
    void lines(const Node& node, size_t depth) {
        for (const Node& child : node.children) {
            line(child, depth);
        }
    }

    /// The fields of a record stand right below the name of the alternative.
    void chosen(const Node& alternative, size_t depth) {
        if (alternative.kind == NodeKind::Sequence) {
            lines(alternative, depth);
        } else if (alternative.kind != NodeKind::Null) {
            line(alternative, depth);
        }
    }
};

const char* kindName(NodeKind kind) {
    constexpr const char* names[] = {"sequence",   "choice",  "list",       "boolean",
                                     "null",       "integer", "enumerated", "text",
                                     "identifier", "octets",  "bits",       "unknown"};
    return names[static_cast<size_t>(kind)];
}

bool isSurrogate(const std::string& text, size_t at, char first, char last) {
    return text.compare(at, 3, "\\ud") == 0 && at + 3 < text.size() && text[at + 3] >= first &&
           text[at + 3] <= last;
}

/// Halves of characters that stand alone are no text for JSON.
std::string pairedText(std::string text) {
    constexpr size_t escape = 6;
    for (size_t at = text.find('\\'); at != std::string::npos; at = text.find('\\', at)) {
        if (isSurrogate(text, at, '8', 'b') && isSurrogate(text, at + escape, 'c', 'f')) {
            at += 2 * escape;
            continue;
        }
        if (isSurrogate(text, at, '8', 'f')) {
            text.replace(at, escape, "\\ufffd");
        }
        at += escape;
    }
    return text;
}

void appendJson(std::string& json, const Node& node) {
    json += R"({"name":")" + node.name + R"(","kind":")" + kindName(node.kind) + '"';
    const bool bare = node.kind == NodeKind::Boolean ||
                      (node.kind == NodeKind::Integer && node.value.substr(0, 2) != "0x");
    const bool valued = node.kind != NodeKind::Sequence && node.kind != NodeKind::List &&
                        node.kind != NodeKind::Null && !(bare && node.value.empty());
    if (valued) {
        json += R"(,"value":)" + (bare ? node.value : '"' + pairedText(node.value) + '"');
    }
    if (node.bitOffset != unknownOffset) {
        json += R"(,"bitOffset":)" + std::to_string(node.bitOffset);
    }
    json += R"(,"bitLength":)" + std::to_string(node.bitLength);
    if (!node.children.empty()) {
        json += R"(,"children":[)";
        for (size_t i = 0; i < node.children.size(); ++i) {
            json += i == 0 ? "" : ",";
            appendJson(json, node.children[i]);
        }
        json += ']';
    }
    json += '}';
}

} // namespace

std::string treeText(const Node& root) {
    TextPrinter printer;
    printer.line(root, 0);
    return printer.text;
}

std::string valueJson(const Node& node) {
    if (node.kind == NodeKind::Text) {
        return '"' + pairedText(node.value) + '"';
    }
    std::string json = "\"";
    for (const char character : valueText(node)) {
        json += character == '"' ? "\\\"" : std::string(1, character);
    }
    return json + '"';
}

std::string treeJson(const Node& root) {
    std::string json;
    appendJson(json, root);
    return json;
}

} // namespace tree
