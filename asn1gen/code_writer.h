#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace asn1gen {

/// Collects lines of C++ with their indentation. Blocks are opened and closed in pairs.
class CodeWriter {
public:
    /// One line at the current depth; an empty one stays empty.
    void line(std::string_view text = "");

    /// head, the items between parentheses separated by commas, then tail; broken into as many
    /// lines as 100 columns ask for.
    void list(const std::string& head, const std::vector<std::string>& items,
              const std::string& tail);

    /// left = right; on one line, or the right side on a line of its own.
    void assignment(const std::string& left, const std::string& right);

    /// A member with a comment, which may be empty: behind it, or before it where that is too long.
    void member(const std::string& declaration, const std::string& comment);

    /// if (first || second) {, the conditions below each other where one line is too short.
    void openIf(const std::vector<std::string>& conditions, const std::string& attribute);

    /// A comment of whole sentences, broken between words. prefix is "// " or "/// ".
    void comment(const std::string& prefix, const std::string& text);

    /// A line that ends with an opening brace (alone for an empty head), and everything behind it
    /// one level deeper.
    void open(const std::string& head);

    /// What follows stands one level deeper; for heads that list() or close() wrote.
    void indent() { ++depth; }

    /// The closing brace with what follows it.
    void close(const std::string& tail = "");

    /// A "case X:" or "default:" line: one level less deep than what follows it.
    void label(const std::string& text);

    const std::string& text() const { return buffer; }

private:
    std::string buffer;
    size_t depth = 0;
};

} // namespace asn1gen
