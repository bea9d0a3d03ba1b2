#include <CLI/CLI.hpp>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "asn1gen/codec_limits.h"
#include "asn1gen/emitter.h"
#include "asn1gen/layout.h"
#include "asn1gen/parser.h"
#include "asn1gen/resolver.h"

namespace {

struct Arguments {
    std::vector<std::string> files;
    std::vector<std::string> prefixes;
    std::vector<std::string> plain;
    std::string outputDirectory = ".";
    std::string sourceDirectory;
};

std::string readFile(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    if (!file) {
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

void generate(const Arguments& arguments) {
    std::vector<asn1gen::ModuleSyntax> modules;
    for (const std::string& file : arguments.files) {
        for (asn1gen::ModuleSyntax& module : asn1gen::parseModules(readFile(file), file)) {
            modules.push_back(std::move(module));
        }
    }
    asn1gen::Model model = asn1gen::resolve(modules, moduleOptions(arguments, modules));
    asn1gen::layOut(model);
    asn1gen::checkCodecLimits(model);

    const std::filesystem::path directory = arguments.outputDirectory;
    const asn1gen::EmitOptions emit{arguments.sourceDirectory};
    std::filesystem::create_directories(directory);
    for (const auto& module : model.modules) {
        writeFile(directory / (module->name + ".h"), emitHeader(*module, emit));
        writeFile(directory / (module->name + ".cpp"), emitSource(*module, emit));
    }
    writeFile(directory / "type_tables.cpp", emitRegistry(model, emit));
}

int run(int argc, char** argv) {
    Arguments arguments;
    CLI::App app("Generates C++ encoders and decoders for aligned and unaligned PER (ITU-T X.691) "
                 "from ASN.1 modules. For each module MODULE.h and MODULE.cpp are written, and "
                 "type_tables.cpp with a description of all types.");
    app.add_option("files", arguments.files, "ASN.1 files; imported modules must be among them")
        ->required();
    app.add_option("--prefix", arguments.prefixes,
                   "MODULE=PREFIX: what the names of the module's types begin with");
    app.add_option("--no-diagnostics", arguments.plain,
                   "MODULE: its functions neither trace nor switch field tracking off");
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
