#pragma once
#include <string>
#include <vector>

namespace host {

/// `tessara new-module NAME [--dir DIR] [--class CLASS]...`: writes a small
/// module that builds against the installed package (find_package(Tessara)),
/// with one source per module class that logs its hooks, and a README.
/// argv[0] is "new-module". Returns the exit status: 0 written, 1 the files
/// could not be written, 2 a usage mistake (such as a name that is not a
/// module name).
int RunNewModuleCommand(int argc, char** argv);

/// Why NAME cannot name a module, or "" when it can: the module id rules
/// (VENDOR_name, two parts of 1 to 12 letters and digits, each beginning with
/// a letter). Blanks, which ids allow, are refused too: the name is a folder
/// and a file name.
std::string CheckModuleName(std::string const& name);

/// The files of a new module NAME with the given classes, as (file name,
/// contents), in the order they are written.
std::vector<std::pair<std::string, std::string>> NewModuleFiles(std::string const& name,
                                                                std::vector<std::string> const& classes);

} // namespace host
