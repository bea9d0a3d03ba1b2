#include "report/markup.h"

#include <nlohmann/json.hpp>

namespace report {

std::string validText(const std::string& text) {
    using Json = nlohmann::json;
    return Json::parse(Json(text).dump(-1, ' ', false, Json::error_handler_t::replace))
        .get<std::string>();
}

std::string escaped(std::string_view text) {
    std::string result;
    for (const char character : text) {
        switch (character) {
        case '&':
            result += "&amp;";
            break;
        case '<':
            result += "&lt;";
            break;
        case '>':
            result += "&gt;";
            break;
        case '"':
            result += "&quot;";
            break;
        case '\'':
            result += "&#39;";
            break;
        default:
            // HTML has no way to write control characters.
            result += (static_cast<unsigned char>(character) < 0x20 || character == 0x7F)
                          ? ' '
                          : character;
        }
    }
    return result;
}

std::string scriptData(const std::string& json) {
    std::string result;
    for (const char character : json) {
        if (character == '<') {
            result += "\\u003c";
        } else {
            result += character;
        }
    }
    return result;
}

} // namespace report
