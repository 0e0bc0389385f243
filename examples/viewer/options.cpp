#include "options.h"

#include <ostream>

namespace examples::viewer {

Options parseOptions(int count, const char* const* arguments) {
    Options o;
    Arguments table;
    table.flags["--help"] = table.flags["-h"] = [&o] { o.help = true; };
    table.positional = [&o](std::string_view file) { o.files.emplace_back(file); };
    table.values["--host"] = [&o](auto option, auto value) {
        if (value.empty())
            refuse(option, value, "an address of this machine");
        o.host = std::string(value);
    };
    table.values["--port"] = [&o](auto option, auto value) {
        o.port = static_cast<int>(whole(option, value, 0, 65535));
    };
    table.values["--budget"] = [&o](auto option, auto value) {
        o.budget = whole(option, value, LEAST_BUDGET, MOST_BUDGET);
    };
    table.read(count, arguments);
    return o;
}

void printHelp(std::ostream& out) {
    out << R"(usage: scripts/view.sh [FILE...] [OPTION...]

Reads point clouds (PLY, LAS, text, OBJ), organises them in a nested octree and serves a page that shows them
in a browser. Without a file it shows the cloud that comes with the examples. Ctrl-C ends it.

  --port N        port to listen on, 0 for any that is free (default: 8765)
  --budget N      points that a page draws at first, 100000 to 20000000 (default: 1000000)
  --host ADDRESS  address to listen on (default: 127.0.0.1, which only this machine reaches). Whoever reaches
                  any other address sees the cloud
  --help          this text

Exit status: 0, or 1 when a file cannot be read or the port is in use, or 2 for a bad command line.
)";
}

}  // namespace examples::viewer
