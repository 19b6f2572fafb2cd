#pragma once

namespace host {

/// `tessara nodes ...`: tools for module authors over visual programs.
/// argv[0] is "nodes". Returns the exit status: 0 done, 1 the program could not
/// be compiled or written, 2 a usage mistake.
int RunNodesCommand(int argc, char** argv);

/// The help text of `tessara nodes --help`.
char const* NodesUsageText();

} // namespace host
