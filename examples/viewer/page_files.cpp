#include "page_files.h"

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace examples::viewer {

PageFiles readPageFiles(const std::filesystem::path& folder) {
    PageFiles files;
    struct Entry {
        const char* path;
        const char* name;
        const char* type;
    };
    for (const auto& [path, name, type] : {Entry{"/", "index.html", "text/html; charset=utf-8"},
                                           Entry{"/page.js", "page.js", "text/javascript; charset=utf-8"},
                                           Entry{"/page.css", "page.css", "text/css; charset=utf-8"}}) {
        std::ifstream in(folder / name, std::ios::binary);
        std::string content{std::istreambuf_iterator<char>(in), {}};
        if (!in || content.empty())
            throw std::runtime_error("cannot read " + (folder / name).string());
        files[path] = {type, std::move(content)};
    }
    return files;
}

}  // namespace examples::viewer
