// `pixmill inspect`: lists the library's flat exports and calls one by name
// with arguments read from the command line. Everything it knows about an
// export comes from the library's export description document
// (PixmillDescribeExports); nothing here names an inspection.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace pixmill::tool {

struct InspectOptions {
    std::string name;
    std::string outDir = "pixmill-out";
};

// Adds the subcommand to `app`; its options land in `options`.
CLI::App* AddInspectCommand(CLI::App& app, InspectOptions& options);

// Runs the parsed subcommand. Returns the exit code: 0 after a call, 2 for
// an unknown export or a bad argument (one line on stderr), 1 for other
// failures of the tool.
int RunInspect(const CLI::App& command, const InspectOptions& options);

}  // namespace pixmill::tool
