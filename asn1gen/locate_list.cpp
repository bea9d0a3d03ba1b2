#include "asn1gen/locate_list.h"

#include <map>
#include <sstream>

namespace asn1gen {
namespace {

using Verb = LocateEntry::Verb;

const std::map<std::string, Verb> verbs = {
    {"root", Verb::Root},     {"inside", Verb::Inside},           {"address", Verb::Address},
    {"part", Verb::Part},     {"octets", Verb::Octets},           {"number", Verb::Number},
    {"string", Verb::String}, {"alternative", Verb::Alternative}, {"presence", Verb::Presence},
};

std::vector<std::string> words(const std::string& line) {
    std::istringstream stream(line.substr(0, line.find('#')));
    std::vector<std::string> result;
    for (std::string word; stream >> word;) {
        result.push_back(word);
    }
    return result;
}

void setPath(LocateEntry& entry, const std::string& path) {
    std::istringstream stream(path);
    std::getline(stream, entry.type, '.');
    for (std::string member; std::getline(stream, member, '.');) {
        entry.members.push_back(member);
    }
}

size_t wordsOf(Verb verb) {
    return verb == Verb::Address || verb == Verb::Part ? 2 : 3;
}

} // namespace

std::vector<LocateEntry> parseLocateList(std::string_view text, const std::string& fileName) {
    const auto file = std::make_shared<const std::string>(fileName);
    std::vector<LocateEntry> entries;
    std::istringstream stream{std::string(text)};
    int number = 0;
    for (std::string line; std::getline(stream, line);) {
        const Position position{file, ++number};
        const std::vector<std::string> parts = words(line);
        if (parts.empty()) {
            continue;
        }
        const auto verb = verbs.find(parts[0]);
        if (verb == verbs.end()) {
            throw SourceError(position,
                              "\"" + parts[0] + "\" is none of the words that begin a line");
        }
        if (parts.size() != wordsOf(verb->second)) {
            throw SourceError(position, "\"" + parts[0] + "\" has " +
                                            std::to_string(wordsOf(verb->second) - 1) +
                                            " words behind it");
        }
        LocateEntry entry{verb->second, "", "", {}, "", position};
        switch (entry.verb) {
        case Verb::Root:
            entry.name = parts[1];
            entry.target = parts[2];
            break;
        case Verb::Inside:
            setPath(entry, parts[1]);
            entry.target = parts[2];
            break;
        case Verb::Address:
        case Verb::Part:
            entry.target = parts[1];
            break;
        default:
            entry.name = parts[1];
            setPath(entry, parts[2]);
        }
        entries.push_back(std::move(entry));
    }
    return entries;
}

} // namespace asn1gen
