#include "NodesCommand.hpp"

#include "game/graphics/ui/NeroxCodeEditor.hpp"

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <system_error>

namespace host {

namespace {

namespace program = game::graphics::ui::NeroxCodeEditor;

struct CompileOptions {
    std::string input;           ///< File to read; "-" reads the standard input.
    std::string name;            ///< Program name; empty: from the file name.
    std::string output;          ///< File to write; empty: the standard output.
    size_t maxBytes = 16u << 20; ///< Largest code made; a larger program is refused.
};

bool EndsWith(std::string const& text, std::string const& end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// door.main.nc stays as it is (the generator cuts ".main.nc" itself); door.nc and
// door.json lose their extension.
std::string ProgramNameFromFile(std::string const& path) {
    if (path == "-") return "program";
    std::string name = std::filesystem::path(path).filename().string();
    if (EndsWith(name, ".main.nc")) return name;
    for (char const* extension : {".nc", ".json"})
        if (EndsWith(name, extension)) return name.substr(0, name.size() - std::string(extension).size());
    return name;
}

bool ReadAll(std::string const& path, std::string& text, std::string& error) {
    if (path == "-") {
        text.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
        if (std::cin.bad()) {
            error = "cannot read the standard input";
            return false;
        }
        return true;
    }
    std::error_code code;
    if (std::filesystem::is_directory(path, code)) {
        error = "'" + path + "' is a folder, not a program file";
        return false;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        error = "cannot open '" + path + "'";
        return false;
    }
    text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    if (file.bad()) {
        error = "cannot read '" + path + "'";
        return false;
    }
    return true;
}

// Writes next to the target and renames over it, so that a failed write keeps the old file.
bool WriteAll(std::string const& path, std::string const& text, std::string& error) {
    std::string const temporary = path + ".tmp";
    {
        std::ofstream file(temporary, std::ios::binary | std::ios::trunc);
        if (!file) {
            error = "cannot write '" + temporary + "'";
            return false;
        }
        file << text;
        file.flush();
        if (!file) {
            error = "cannot write '" + temporary + "'";
            std::remove(temporary.c_str());
            return false;
        }
    }
    std::error_code code;
    std::filesystem::rename(temporary, path, code);
    if (code) {
        error = "cannot replace '" + path + "': " + code.message();
        std::remove(temporary.c_str());
        return false;
    }
    return true;
}

int Compile(CompileOptions const& options) {
    std::string source;
    std::string error;
    if (!ReadAll(options.input, source, error)) {
        std::cerr << "tessara nodes: " << error << std::endl;
        return 1;
    }
    std::string const name = options.name.empty() ? ProgramNameFromFile(options.input) : options.name;
    program::CompileResult const result = program::Compile(source, name, options.maxBytes);
    for (std::string const& warning : result.warnings) std::cerr << "tessara nodes: warning: " << warning << std::endl;
    if (!result.ok) {
        std::cerr << "tessara nodes: " << result.error << std::endl;
        return 1;
    }
    if (options.output.empty()) {
        std::cout << result.code << std::flush;
        return std::cout ? 0 : 1;
    }
    if (!WriteAll(options.output, result.code, error)) {
        std::cerr << "tessara nodes: " << error << std::endl;
        return 1;
    }
    return 0;
}

int UsageMistake(std::string const& message) {
    std::cerr << "tessara nodes: " << message << " (see tessara nodes --help)" << std::endl;
    return 2;
}

} // namespace

char const* NodesUsageText() {
    return "Usage: tessara nodes compile FILE [--name NAME] [--output OUT] [--max-size BYTES]\n"
           "       tessara nodes --help\n"
           "\n"
           "Tools for visual programs, the node graphs that the in-game editor turns\n"
           "into NeroxCode.\n"
           "\n"
           "  compile FILE      Read a program and print its code, generated afresh from\n"
           "                    its graph. FILE is a program text whose first line is\n"
           "                    \"#NODES \" and the graph's JSON (what the editor saves), or\n"
           "                    the graph's JSON alone ({\"nodes\": [...]}). \"-\" reads the\n"
           "                    standard input. Nodes of unknown classes are skipped with a\n"
           "                    warning on the standard error.\n"
           "  --name NAME       The program's name, which prefixes its variables and\n"
           "                    functions. Default: the file's name; \"door.main.nc\" and\n"
           "                    \"door.nc\" both give \"door\". Letters, digits, '_' and '-'\n"
           "                    only; an invalid name is an error.\n"
           "  --output OUT      Write the code to OUT instead of the standard output; OUT is\n"
           "                    replaced only once the whole text is written.\n"
           "  --max-size BYTES  Refuse a program whose code would be larger than BYTES\n"
           "                    (default 16777216, 16 MiB), naming the node where it\n"
           "                    grows past that: links that reuse a node's value repeat\n"
           "                    its expression, which can double the text at each step.\n"
           "  --help            Show this text.\n"
           "\n"
           "Exit status: 0 done, 1 the program could not be read, compiled or written,\n"
           "2 a mistake on the command line.\n";
}

int RunNodesCommand(int argc, char** argv) {
    if (argc < 2) return UsageMistake("missing command");
    std::string const command = argv[1];
    if (command == "--help" || command == "-h" || command == "help") {
        std::cout << NodesUsageText();
        return 0;
    }
    if (command != "compile") return UsageMistake("unknown command '" + command + "'");

    CompileOptions options;
    for (int i = 2; i < argc; ++i) {
        std::string const argument = argv[i];
        auto value = [&](std::string& into) {
            if (i + 1 >= argc) return false;
            into = argv[++i];
            return true;
        };
        if (argument == "--help" || argument == "-h") {
            std::cout << NodesUsageText();
            return 0;
        } else if (argument == "--name") {
            if (!value(options.name) || options.name.empty()) return UsageMistake("--name needs a program name");
        } else if (argument == "--max-size") {
            std::string text;
            size_t used = 0;
            bool valid = value(text) && !text.empty() && std::isdigit(static_cast<unsigned char>(text[0]));
            try {
                if (valid) options.maxBytes = std::stoull(text, &used);
            } catch (std::exception const&) {
                valid = false;
            }
            if (!valid || used != text.size() || options.maxBytes == 0)
                return UsageMistake("--max-size needs a number of bytes above 0");
        } else if (argument == "--output" || argument == "-o") {
            if (!value(options.output) || options.output.empty()) return UsageMistake("--output needs a file name");
        } else if (argument.size() > 1 && argument[0] == '-') {
            return UsageMistake("unknown option '" + argument + "'");
        } else if (options.input.empty()) {
            options.input = argument;
        } else {
            return UsageMistake("one file at a time, not also '" + argument + "'");
        }
    }
    if (options.input.empty()) return UsageMistake("compile needs a FILE");
    return Compile(options);
}

} // namespace host
