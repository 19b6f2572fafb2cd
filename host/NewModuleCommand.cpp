#include "NewModuleCommand.hpp"

#include "nerox/modular/ModuleID.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string_view>
#include <system_error>

namespace host {

namespace {

constexpr char usage[] = R"(Usage: tessara new-module VENDOR_name [--dir DIR] [--class CLASS]...

Writes a small module that builds against the installed game (find_package(Tessara))
into DIR (default: ./VENDOR_name), one source per class, each logging its hooks:
  --class GAME_Mod      the client side (GameMod.cpp)
  --class SERVER_Mod    the server side (ServerMod.cpp)
  --class TESSARA_Mod   content: item types and entities (ContentMod.cpp)
  --class GAME_Init     early start-up, before the game exists (InitMod.cpp)
Without --class: GAME_Mod, SERVER_Mod and TESSARA_Mod. The folder must be new or empty.
)";

// One class: its source file and the text of that file. "@NAME@" stands for the module's name.
struct ClassTemplate {
    std::string_view moduleClass;
    std::string_view file;
    std::string_view source;
};

constexpr std::string_view serverSource =
    R"(// The server side of @NAME@, loaded by `tessara --module @NAME@`. Each hook
// says that it ran; replace the bodies with the module's work.
#include "game/entity/ServerSideEntity.hpp"
#include "game/modules/Hooks.hpp"

#include <cstdio>
#include <type_traits>

namespace {
double simulated = 0.0;  // seconds of server ticks seen
double nextReport = 1.0; // simulated time of the next progress line
} // namespace

extern "C" void ModuleLoad() {
    std::printf("[@NAME@] server module loaded\n");
    std::fflush(stdout);
}

extern "C" void ModuleUnload() {
    std::printf("[@NAME@] server module unloaded\n");
    std::fflush(stdout);
}

// The host has opened a world (and, with --watch-modules, after this library was loaded again).
extern "C" void Server_Load(char const* worldName) {
    std::printf("[@NAME@] Server_Load: world '%s' with %zu entities\n", worldName,
                game::entity::ServerSideEntity::Count());
    std::fflush(stdout);
}

// The host saves the world: save the module's own part here.
extern "C" void Server_Serialize() {
    std::printf("[@NAME@] Server_Serialize\n");
    std::fflush(stdout);
}

// Each server tick, after the entities' updates and the physics step.
extern "C" void Server_GameUpdate(double deltaTime) {
    simulated += deltaTime;
    if (simulated < nextReport) return;
    nextReport += 1.0;
    std::printf("[@NAME@] Server_GameUpdate: %.1f s simulated, %zu entities\n", simulated,
                game::entity::ServerSideEntity::Count());
    std::fflush(stdout);
}

static_assert(std::is_same_v<decltype(&ModuleLoad), game::modules::ModuleLifecycleHook>);
static_assert(std::is_same_v<decltype(&Server_Load), game::modules::ServerLoadHook>);
static_assert(std::is_same_v<decltype(&Server_Serialize), game::modules::VoidHook>);
static_assert(std::is_same_v<decltype(&Server_GameUpdate), game::modules::DeltaTimeHook>);
)";

constexpr std::string_view gameSource =
    R"(// The client side of @NAME@, loaded by `tessara --module @NAME@`. Each hook
// says that it ran; replace the bodies with the module's work.
#include "game/modules/Hooks.hpp"

#include <cstdio>
#include <type_traits>

namespace {
double elapsed = 0.0;    // seconds of client passes seen
double nextReport = 1.0; // time of the next progress line
} // namespace

extern "C" void ModuleLoad() {
    std::printf("[@NAME@] client module loaded\n");
    std::fflush(stdout);
}

extern "C" void ModuleUnload() {
    std::printf("[@NAME@] client module unloaded\n");
    std::fflush(stdout);
}

extern "C" void Game_Start() {
    std::printf("[@NAME@] Game_Start\n");
    std::fflush(stdout);
}

extern "C" void Game_Ready() {
    std::printf("[@NAME@] Game_Ready\n");
    std::fflush(stdout);
}

extern "C" void Game_Stop() {
    std::printf("[@NAME@] Game_Stop\n");
    std::fflush(stdout);
}

// Each client pass.
extern "C" void Game_Update(double deltaTime) {
    elapsed += deltaTime;
    if (elapsed < nextReport) return;
    nextReport += 1.0;
    std::printf("[@NAME@] Game_Update: %.1f s of client passes\n", elapsed);
    std::fflush(stdout);
}

static_assert(std::is_same_v<decltype(&ModuleLoad), game::modules::ModuleLifecycleHook>);
static_assert(std::is_same_v<decltype(&Game_Start), game::modules::VoidHook>);
static_assert(std::is_same_v<decltype(&Game_Update), game::modules::DeltaTimeHook>);
)";

constexpr std::string_view contentSource =
    R"(// The content of @NAME@, loaded by `tessara --module @NAME@` when the game
// starts. Load registers the module's item types and the interfaces of their
// entities (see modules/sample/ContentMod.cpp in the game's tree); Unload
// takes them back after the world's entities are gone.
#include "game/modules/Hooks.hpp"

#include <cstdio>
#include <type_traits>

extern "C" void ModuleLoad() {
    std::printf("[@NAME@] content module loaded\n");
    std::fflush(stdout);
}

extern "C" void ModuleUnload() {
    std::printf("[@NAME@] content module unloaded\n");
    std::fflush(stdout);
}

extern "C" void Load(void*) {
    std::printf("[@NAME@] Load: no item types yet\n");
    std::fflush(stdout);
}

extern "C" void Unload(void*) {
    std::printf("[@NAME@] Unload\n");
    std::fflush(stdout);
}

static_assert(std::is_same_v<decltype(&Load), game::modules::ContentHook>);
static_assert(std::is_same_v<decltype(&Unload), game::modules::ContentHook>);
)";

constexpr std::string_view initSource = R"(// The early start-up part of @NAME@, loaded before the game exists: it may
// score graphics devices and show a splash screen.
#include "game/modules/Hooks.hpp"

#include <cstdio>
#include <type_traits>

extern "C" void ModuleLoad() {
    std::printf("[@NAME@] start-up module loaded\n");
    std::fflush(stdout);
}

extern "C" void SplashBegin() {
    std::printf("[@NAME@] SplashBegin\n");
    std::fflush(stdout);
}

extern "C" void SplashEnd() {
    std::printf("[@NAME@] SplashEnd\n");
    std::fflush(stdout);
}

static_assert(std::is_same_v<decltype(&SplashBegin), game::modules::VoidHook>);
)";

constexpr ClassTemplate classTemplates[] = {
    {"GAME_Init", "InitMod.cpp", initSource},
    {"GAME_Mod", "GameMod.cpp", gameSource},
    {"SERVER_Mod", "ServerMod.cpp", serverSource},
    {"TESSARA_Mod", "ContentMod.cpp", contentSource},
};

std::string Fill(std::string_view text, std::string const& name) {
    std::string out;
    out.reserve(text.size() + 64);
    constexpr std::string_view mark = "@NAME@";
    for (size_t at = 0;;) {
        size_t const found = text.find(mark, at);
        out.append(text.substr(at, found - at));
        if (found == std::string_view::npos) return out;
        out.append(name);
        at = found + mark.size();
    }
}

ClassTemplate const* FindClass(std::string_view moduleClass) {
    for (ClassTemplate const& entry : classTemplates)
        if (entry.moduleClass == moduleClass) return &entry;
    return nullptr;
}

std::string CMakeListsText(std::string const& name, std::vector<ClassTemplate const*> const& classes) {
    std::string text = "# The module " + name +
        ", built against an installed Tessara (cmake --install of the game).\n"
        "cmake_minimum_required(VERSION 3.25)\n"
        "project(" +
        name +
        " LANGUAGES CXX)\n\n"
        "find_package(Tessara REQUIRED)\n\n"
        "# Each builds TESSARA_MODULES_DIR/" +
        name + "/" + name +
        ".CLASS.so; point TESSARA_MODULES_DIR at the\n"
        "# modules/ folder of the game's run directory to build straight into it.\n";
    for (ClassTemplate const* entry : classes)
        text += "tessara_add_module(" + name + " " + std::string(entry->moduleClass) + " SOURCES " +
            std::string(entry->file) + ")\n";
    return text;
}

std::string ReadmeText(std::string const& name, std::vector<ClassTemplate const*> const& classes) {
    std::string files;
    for (ClassTemplate const* entry : classes) {
        files += "- `" + std::string(entry->file) + "`: the " + std::string(entry->moduleClass) + " library, `" + name +
            "." + std::string(entry->moduleClass) + ".so`\n";
    }
    return "# " + name +
        "\n\n"
        "A Tessara module. Its sources:\n\n" +
        files +
        "\n"
        "Each hook prints a line when it runs, so the module shows what the game calls.\n\n"
        "## Build\n\n"
        "Install the game's headers and libraries once (from the game's tree), then build\n"
        "this folder against them, straight into the game's run directory:\n\n"
        "```sh\n"
        "cmake --install /path/to/tessara/build --prefix \"$HOME/tessara-sdk\"\n"
        "cmake -S . -B build -G Ninja -DCMAKE_PREFIX_PATH=\"$HOME/tessara-sdk\" \\\n"
        "      -DTESSARA_MODULES_DIR=/path/to/tessara/build/run/modules\n"
        "cmake --build build\n"
        "```\n\n"
        "## Run\n\n"
        "```sh\n"
        "cd /path/to/tessara/build/run\n"
        "./tessara --module " +
        name +
        " --ticks 120\n"
        "```\n\n"
        "`--module` loads each of its libraries; `--game-mod`, `--server-mod` and `--content-mod`\n"
        "load one of them. With `--watch-modules` (and without `--ticks`), the game loads each new build of a\n"
        "client or server library while the world runs: rebuild, and the next ticks run the\n"
        "new code.\n";
}

int Usage(std::string const& problem) {
    std::cerr << "tessara new-module: " << problem << "\n" << usage;
    return 2;
}

} // namespace

std::string CheckModuleName(std::string const& name) {
    std::string const shown = "'" + name + "'";
    std::string const rule = "a module name has the form VENDOR_name: two parts of 1 to 12 letters and digits, "
                             "each beginning with a letter, joined by '_' (for example MYCO_hello)";
    size_t const split = name.find('_');
    if (split == std::string::npos) return shown + " has no '_': " + rule;
    std::string const vendor = name.substr(0, split), part = name.substr(split + 1);
    for (std::string const& piece : {vendor, part}) {
        if (piece.empty() || piece.size() > 12)
            return shown + ": '" + piece + "' has " + std::to_string(piece.size()) + " characters; " + rule;
        if (!std::isalpha(static_cast<unsigned char>(piece[0])))
            return shown + ": '" + piece + "' does not begin with a letter; " + rule;
        for (char c : piece)
            if (!std::isalnum(static_cast<unsigned char>(c)))
                return shown + ": '" + piece + "' holds '" + std::string(1, c) + "'; " + rule;
    }
    if (nerox::modular::ModuleID(name).String().empty()) return shown + ": " + rule; // the id rules have the last word
    return {};
}

std::vector<std::pair<std::string, std::string>> NewModuleFiles(std::string const& name,
                                                                std::vector<std::string> const& classes) {
    std::vector<ClassTemplate const*> chosen;
    for (ClassTemplate const& entry : classTemplates) // the table's order, whatever the order asked
        if (std::find(classes.begin(), classes.end(), entry.moduleClass) != classes.end()) chosen.push_back(&entry);
    std::vector<std::pair<std::string, std::string>> files;
    files.emplace_back("CMakeLists.txt", CMakeListsText(name, chosen));
    files.emplace_back("README.md", ReadmeText(name, chosen));
    for (ClassTemplate const* entry : chosen) files.emplace_back(std::string(entry->file), Fill(entry->source, name));
    return files;
}

int RunNewModuleCommand(int argc, char** argv) {
    std::string name;
    std::string folder;
    std::vector<std::string> classes;
    for (int i = 1; i < argc; ++i) {
        std::string_view const arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::cout << usage;
            return 0;
        }
        if (arg == "--dir" || arg == "--class") {
            if (i + 1 >= argc) return Usage(std::string(arg) + " needs a value");
            std::string const value = argv[++i];
            if (arg == "--dir") {
                folder = value;
            } else if (FindClass(value) == nullptr) {
                return Usage("--class needs GAME_Init, GAME_Mod, SERVER_Mod or TESSARA_Mod, not '" + value + "'");
            } else if (std::find(classes.begin(), classes.end(), value) == classes.end()) {
                classes.push_back(value);
            }
        } else if (!arg.empty() && arg[0] == '-') {
            return Usage("unknown option '" + std::string(arg) + "'");
        } else if (name.empty()) {
            name = arg;
        } else {
            return Usage("one module name only, not also '" + std::string(arg) + "'");
        }
    }
    if (name.empty()) return Usage("the module's name is missing");
    if (std::string const why = CheckModuleName(name); !why.empty()) {
        std::cerr << "tessara new-module: " << why << std::endl;
        return 2;
    }
    if (classes.empty()) classes = {"GAME_Mod", "SERVER_Mod", "TESSARA_Mod"};
    if (folder.empty()) folder = name;

    std::error_code error;
    std::filesystem::path const target(folder);
    if (std::filesystem::exists(target, error) && !std::filesystem::is_empty(target, error)) {
        std::cerr << "tessara new-module: '" << folder << "' exists and is not empty; choose another --dir"
                  << std::endl;
        return 1;
    }
    std::filesystem::create_directories(target, error);
    if (error) {
        std::cerr << "tessara new-module: cannot make the folder '" << folder << "': " << error.message() << std::endl;
        return 1;
    }
    for (auto const& [file, text] : NewModuleFiles(name, classes)) {
        std::filesystem::path const path = target / file;
        std::ofstream out(path, std::ios::binary);
        out << text;
        out.close();
        if (!out) {
            std::cerr << "tessara new-module: cannot write '" << path.string() << "'" << std::endl;
            return 1;
        }
        std::cout << "wrote " << path.string() << "\n";
    }
    std::cout << "Build it as its README.md says: cmake -S " << folder << " -B " << folder
              << "/build -DCMAKE_PREFIX_PATH=<the installed game>\n";
    return 0;
}

} // namespace host
