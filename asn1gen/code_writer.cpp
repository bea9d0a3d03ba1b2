#include "asn1gen/code_writer.h"

#include <algorithm>

namespace asn1gen {
namespace {

constexpr size_t indentWidth = 4;
constexpr size_t columnLimit = 100;

std::string join(const std::vector<std::string>& items) {
    std::string result;
    for (const std::string& item : items) {
        result += (result.empty() ? "" : ", ") + item;
    }
    return result;
}

} // namespace

void CodeWriter::line(std::string_view text) {
    if (!text.empty()) {
        buffer.append(depth * indentWidth, ' ');
        buffer += text;
    }
    buffer += '\n';
}

void CodeWriter::list(const std::string& head, const std::vector<std::string>& items,
                      const std::string& tail) {
    const std::string whole = head + "(" + join(items) + tail;
    const size_t left = depth * indentWidth;
    if (left + whole.size() <= columnLimit) {
        line(whole);
        return;
    }
    // Items stand behind the parenthesis while every one of them fits there, else below it.
    size_t column = left + head.size() + 1;
    bool behind = true;
    for (size_t i = 0; i < items.size(); ++i) {
        const size_t end = i + 1 == items.size() ? tail.size() : 1;
        behind = behind && column + items[i].size() + end <= columnLimit;
    }
    std::string current = head + "(";
    if (!behind) {
        line(current);
        column = left + indentWidth;
        current.clear();
    } else {
        column -= left;
    }
    const std::string margin(behind ? column : indentWidth, ' ');
    bool first = true;
    for (size_t i = 0; i < items.size(); ++i) {
        const std::string item = items[i] + (i + 1 == items.size() ? tail : ",");
        if (first) {
            current += behind && i == 0 ? item : margin + item;
        } else if (left + current.size() + 1 + item.size() <= columnLimit) {
            current += " " + item;
        } else {
            line(current);
            current = margin + item;
        }
        first = false;
    }
    line(current);
}

void CodeWriter::assignment(const std::string& left, const std::string& right) {
    const std::string whole = left + " = " + right + ";";
    if (depth * indentWidth + whole.size() <= columnLimit) {
        line(whole);
        return;
    }
    line(left + " =");
    line(std::string(indentWidth, ' ') + right + ";");
}

void CodeWriter::member(const std::string& declaration, const std::string& comment) {
    const std::string whole = declaration + (comment.empty() ? "" : " ///< " + comment);
    if (depth * indentWidth + whole.size() <= columnLimit) {
        line(whole);
        return;
    }
    line("/// " + comment);
    line(declaration);
}

void CodeWriter::openIf(const std::vector<std::string>& conditions, const std::string& attribute) {
    std::string joined;
    for (const std::string& condition : conditions) {
        joined += (joined.empty() ? "" : " || ") + condition;
    }
    const std::string head = "if (" + joined + ")" + attribute;
    if (depth * indentWidth + head.size() + 2 <= columnLimit) {
        open(head);
        return;
    }
    for (size_t i = 0; i < conditions.size(); ++i) {
        const std::string margin = i == 0 ? "if (" : "    ";
        const bool last = i + 1 == conditions.size();
        line(margin + conditions[i] + (last ? ")" + attribute + " {" : " ||"));
    }
    ++depth;
}

void CodeWriter::comment(const std::string& prefix, const std::string& text) {
    std::string current;
    size_t cursor = 0;
    while (cursor < text.size()) {
        const size_t end = std::min(text.find(' ', cursor), text.size());
        const std::string word = text.substr(cursor, end - cursor);
        const size_t width = depth * indentWidth + prefix.size() + current.size() + 1 + word.size();
        if (!current.empty() && width > columnLimit) {
            line(prefix + current);
            current.clear();
        }
        current += (current.empty() ? "" : " ") + word;
        cursor = end + 1;
    }
    line(prefix + current);
}

void CodeWriter::open(const std::string& head) {
    line(head.empty() ? "{" : head + " {");
    ++depth;
}

void CodeWriter::close(const std::string& tail) {
    --depth;
    line("}" + tail);
}

void CodeWriter::label(const std::string& text) {
    --depth;
    line(text);
    ++depth;
}

} // namespace asn1gen
