#include "cli/suggestions.h"

#include <algorithm>
#include <cctype>
#include <numeric>

namespace cli {
namespace {

/// How many letters must change, come or go.
size_t distance(const std::string& from, const std::string& to) {
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

/// "; did you mean replay?", or nothing when no name is near.
std::string suggestion(const std::string& word, const std::vector<std::string>& names) {
    constexpr size_t longestWord = 64;
    const std::string* best = nullptr;
    size_t least = std::max<size_t>(2, word.size() / 3) + 1;
    for (const std::string& name : names) {
        const bool begins = word.size() > 2 && name.compare(0, word.size(), word) == 0;
        const size_t far = word.size() > longestWord ? longestWord
                           : begins                  ? 1
                                                     : distance(word, name);
        if (far < least) {
            least = far;
            best = &name;
        }
    }
    return best == nullptr ? "" : "; did you mean " + *best + "?";
}

std::vector<std::string> commandsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands({})) {
        names.push_back(command->get_name());
    }
    return names;
}

std::vector<std::string> optionsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

bool isOption(const std::string& word) {
    return word.size() > 1 && word[0] == '-' && word != "--" &&
           std::isdigit(static_cast<unsigned char>(word[1])) == 0;
}

std::string unknownOption(const CLI::App& app, const std::string& word) {
    const std::string name = word.substr(0, word.find('='));
    const bool isShort = name.compare(0, 2, "--") != 0;
    // What follows the letter may be its value.
    if (app.get_option_no_throw(isShort ? name.substr(0, 2) : name) != nullptr) {
        return "";
    }
    const std::string command = app.get_parent() == nullptr ? "" : app.get_name() + " ";
    return "there is no option " + name + suggestion(name, optionsOf(app)) + "\nh323nat " +
           command + "--help lists the options.";
}

} // namespace

std::string unknownWord(const CLI::App& app, const std::vector<std::string>& arguments) {
    const CLI::App* current = &app;
    for (const std::string& word : arguments) {
        if (word == "--") {
            break;
        }
        if (isOption(word)) {
            std::string wrong = unknownOption(*current, word);
            if (!wrong.empty()) {
                return wrong;
            }
        } else if (current == &app) {
            const auto commands = app.get_subcommands({});
            const auto found =
                std::find_if(commands.begin(), commands.end(),
                             [&](const CLI::App* command) { return command->get_name() == word; });
            if (found == commands.end()) {
                return "there is no command " + word + suggestion(word, commandsOf(app)) +
                       "\nh323nat --help lists the commands.";
            }
            current = *found;
        }
    }
    return "";
}

} // namespace cli
