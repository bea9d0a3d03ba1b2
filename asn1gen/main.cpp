#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "asn1gen/codec_limits.h"
#include "asn1gen/emit_locator.h"
#include "asn1gen/emitter.h"
#include "asn1gen/layout.h"
#include "asn1gen/name_check.h"
#include "asn1gen/parser.h"
#include "asn1gen/resolver.h"

namespace {

struct Arguments {
    std::vector<std::string> files;
    std::vector<std::string> prefixes;
    std::vector<std::string> plain;
    std::vector<std::string> contents;
    bool tree = false;
    std::string places;
    std::string outputDirectory = ".";
    std::string sourceDirectory;
};

std::string readFile(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    if (!file || std::filesystem::is_directory(name)) {
        throw std::runtime_error(name + ": error: cannot be read");
    }
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// A file that is already as it should be keeps its time: what depends on it is not built again.
void writeFile(const std::filesystem::path& path, const std::string& text) {
    if (std::filesystem::exists(path) && readFile(path.string()) == text) {
        return;
    }
    std::ofstream file(path, std::ios::binary);
    file << text;
    file.close();
    if (!file) {
        throw std::runtime_error(path.string() + ": error: cannot be written");
    }
}

bool isBeginning(const std::string& prefix) {
    return prefix.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz"
                                    "0123456789_") == std::string::npos &&
           (prefix.empty() || std::isdigit(static_cast<unsigned char>(prefix[0])) == 0);
}

std::map<std::string, asn1gen::ModuleOptions>
moduleOptions(const Arguments& arguments, const std::vector<asn1gen::ModuleSyntax>& modules) {
    std::map<std::string, asn1gen::ModuleOptions> options;
    for (const asn1gen::ModuleSyntax& module : modules) {
        options[module.name].sourcePath = arguments.sourceDirectory + module.name;
    }
    for (const std::string& prefix : arguments.prefixes) {
        const size_t equals = prefix.find('=');
        const auto found = options.find(prefix.substr(0, equals));
        if (equals == std::string::npos || found == options.end()) {
            throw std::runtime_error("--prefix " + prefix +
                                     ": expected MODULE=PREFIX with a module of the files given");
        }
        found->second.prefix = prefix.substr(equals + 1);
        if (!isBeginning(found->second.prefix)) {
            throw std::runtime_error("--prefix " + prefix + ": no C++ name can begin with \"" +
                                     found->second.prefix + "\"");
        }
    }
    for (const std::string& name : arguments.plain) {
        const auto found = options.find(name);
        if (found == options.end()) {
            throw std::runtime_error("--no-diagnostics " + name +
                                     ": expected a module of the files given");
        }
        found->second.trace = false;
    }
    return options;
}

const asn1gen::Type* typeNamed(const asn1gen::Model& model, const std::string& name) {
    for (const auto& module : model.modules) {
        for (const asn1gen::Type* type : module->types) {
            if (name == module->name + "." + type->name.substr(module->options.prefix.size())) {
                return type;
            }
        }
    }
    return nullptr;
}

std::map<std::string, const asn1gen::Type*> contentsOf(const Arguments& arguments,
                                                       const asn1gen::Model& model) {
    std::map<std::string, const asn1gen::Type*> contents;
    for (const std::string& text : arguments.contents) {
        const size_t equals = std::min(text.find('='), text.size());
        const asn1gen::Type* type =
            typeNamed(model, text.substr(std::min(equals + 1, text.size())));
        if (type == nullptr) {
            throw std::runtime_error(
                "--contents " + text +
                ": expected MEMBER=MODULE.TYPE with a type of the files given");
        }
        contents[text.substr(0, equals)] = type;
    }
    return contents;
}

void writeLocator(const std::filesystem::path& directory, const asn1gen::Model& model,
                  const std::string& places) {
    const auto entries = asn1gen::parseLocateList(readFile(places), places);
    const asn1gen::LocatePrograms programs = asn1gen::makeLocatePrograms(model, entries);
    std::filesystem::create_directories(directory);
    writeFile(directory / "tables.cpp", emitLocatorTables(programs));
    writeFile(directory / "name_tables.cpp", emitLocatorNames(programs));
    writeFile(directory / "fields.h", emitLocatorFields(programs));
}

void generate(const Arguments& arguments) {
    std::vector<asn1gen::ModuleSyntax> modules;
    for (const std::string& file : arguments.files) {
        for (asn1gen::ModuleSyntax& module : asn1gen::parseModules(readFile(file), file)) {
            modules.push_back(std::move(module));
        }
    }
    asn1gen::Model model = asn1gen::resolve(modules, moduleOptions(arguments, modules));
    asn1gen::layOut(model);

    const std::filesystem::path directory = arguments.outputDirectory;
    if (!arguments.places.empty()) {
        writeLocator(directory, model, arguments.places);
        return;
    }
    if (arguments.tree) {
        std::filesystem::create_directories(directory);
        writeFile(directory / "message_types.cpp", emitTree(model, contentsOf(arguments, model)));
        return;
    }
    asn1gen::checkCodecLimits(model);
    asn1gen::checkNames(model);
    const asn1gen::EmitOptions emit{arguments.sourceDirectory};
    std::filesystem::create_directories(directory);
    for (const auto& module : model.modules) {
        writeFile(directory / (module->name + ".h"), emitHeader(*module, emit));
        writeFile(directory / (module->name + ".cpp"), emitSource(*module, emit));
    }
    writeFile(directory / "type_tables.h", asn1gen::emitRegistryHeader());
    writeFile(directory / "type_tables.cpp", emitRegistry(model, emit));
}

int run(int argc, char** argv) {
    Arguments arguments;
    CLI::App app("Generates C++ encoders and decoders for aligned and unaligned PER (ITU-T X.691) "
                 "from ASN.1 modules. For each module MODULE.h and MODULE.cpp are written, and "
                 "type_tables.h and type_tables.cpp with a description of all types.");
    app.add_option("files", arguments.files, "ASN.1 files; imported modules must be among them")
        ->required();
    // One value for each option: the files may stand behind them.
    app.add_option("--prefix", arguments.prefixes,
                   "MODULE=PREFIX: what the names of the module's types begin with")
        ->allow_extra_args(false);
    app.add_option("--no-diagnostics", arguments.plain,
                   "MODULE: its functions neither trace nor switch field tracking off")
        ->allow_extra_args(false);
    app.add_flag("--tree", arguments.tree,
                 "Write message_types.cpp, from which tree/ decodes any type, instead of codecs");
    app.add_option("--contents", arguments.contents,
                   "MEMBER=MODULE.TYPE: octet strings of members with this name hold encodings of "
                   "this type (for --tree)")
        ->allow_extra_args(false);
    app.add_option("--locate", arguments.places,
                   "LIST: write the locator's tables for the places that this file lists "
                   "(tables.cpp, name_tables.cpp, fields.h) instead of codecs");
    app.add_option("--source-directory", arguments.sourceDirectory,
                   "Put before file names in #include and in error reports, such as \"codec/\"");
    app.add_option("-o,--output", arguments.outputDirectory, "Directory of the generated files");
    CLI11_PARSE(app, argc, argv);
    generate(arguments);
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
