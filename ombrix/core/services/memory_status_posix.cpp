#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>
#include <vector>

#include <ombrix/core/services/memory_mapped_detail.h>

namespace ombrix::core::detail {

namespace {

/// The names that the two versions of control groups give to the same things.
struct GroupFiles {
    std::string_view fileSystem, limit, usage, inactiveFile, activeFile;
};
constexpr GroupFiles VERSION_1{"cgroup", "memory.limit_in_bytes", "memory.usage_in_bytes",
                               "total_inactive_file", "total_active_file"};
constexpr GroupFiles VERSION_2{"cgroup2", "memory.max", "memory.current", "inactive_file", "active_file"};

/// Content of a file; empty when it cannot be read.
std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// Parts of a text between separators; empty ones are left out.
std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(separator), text.size());
        if (end > 0)
            parts.push_back(text.substr(0, end));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

std::optional<std::uint64_t> toNumber(std::string_view text) {
    std::uint64_t value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    return result.ec == std::errc() ? std::optional(value) : std::nullopt;
}

/// The number behind a key in a text of lines "key number".
std::optional<std::uint64_t> valueOf(std::string_view text, std::string_view key) {
    for (const std::string_view line : split(text, '\n')) {
        const auto words = split(line, ' ');
        if (words.size() >= 2 && words[0] == key)
            return toNumber(words[1]);
    }
    return std::nullopt;
}

bool lists(std::string_view commaSeparated, std::string_view name) {
    const auto names = split(commaSeparated, ',');
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// Undoes the octal escapes (\040) in a path of the mount table.
std::string unescape(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        unsigned code = 0;
        if (text[i] == '\\' && text.size() - i > 3 &&
            std::from_chars(text.data() + i + 1, text.data() + i + 4, code, 8).ptr == text.data() + i + 4) {
            out.push_back(static_cast<char>(code));
            i += 3;
        } else {
            out.push_back(text[i]);
        }
    }
    return out;
}

/// Path of the process's group in the hierarchy that may limit its memory; empty without one.
std::string groupPath(std::string_view groups, const GroupFiles& files) {
    for (const std::string_view line : split(groups, '\n')) {
        // number:controllers:path, "0::path" in version 2
        const std::size_t first = line.find(':');
        const std::size_t second = line.find(':', first + 1);
        if (first == std::string_view::npos || second == std::string_view::npos)
            continue;
        const std::string_view controllers = line.substr(first + 1, second - first - 1);
        if (&files == &VERSION_2 ? controllers.empty() : lists(controllers, "memory"))
            return std::string(line.substr(second + 1));
    }
    return {};
}

/// Path of a group below the folder that is mounted: in a container that may be the group itself already,
/// or not contain it.
std::string pathInMount(const std::string& group, const std::string& mountRoot) {
    std::string path = group;
    if (mountRoot != "/") {
        const bool inside = group.starts_with(mountRoot) &&
                            (group.size() == mountRoot.size() || group[mountRoot.size()] == '/');
        path = inside ? group.substr(mountRoot.size()) : "";
    }
    return path == "/" || path.find("/..") != std::string::npos ? "" : path;
}

/// Lowers the figures to what the group at a path below `mountPoint`, and each group above it, leaves.
void applyGroups(MemoryStatus& status, const std::string& mountPoint, std::string path,
                 const GroupFiles& files) {
    for (;;) {
        std::string folder = mountPoint;
        folder.append(path).append("/");
        const auto limit = toNumber(readFile(folder + std::string(files.limit)));
        if (limit) {
            const std::string stat = readFile(folder + "memory.stat");
            const std::uint64_t usage = toNumber(readFile(folder + std::string(files.usage))).value_or(0);
            // File pages go when memory is wanted, like the ones that the system calls available.
            const std::uint64_t cache =
                valueOf(stat, files.inactiveFile).value_or(0) + valueOf(stat, files.activeFile).value_or(0);
            const std::uint64_t used = usage - std::min(usage, cache);
            status.total = std::min(status.total, *limit);
            status.available = std::min(status.available, *limit - std::min(*limit, used));
        }
        if (path.empty())
            return;
        path.resize(path.rfind('/') == std::string::npos ? 0 : path.rfind('/'));
    }
}

void applyControlGroups(MemoryStatus& status, const std::string& root, const GroupFiles& files) {
    const std::string group = groupPath(readFile(root + "/proc/self/cgroup"), files);
    if (group.empty())
        return;
    const std::string mounts = readFile(root + "/proc/self/mountinfo");
    for (const std::string_view line : split(mounts, '\n')) {
        // id parent device root mount-point options... - type source super-options
        const auto words = split(line, ' ');
        const auto dash = std::find(words.begin(), words.end(), "-");
        if (words.size() < 5 || words.end() - dash < 4 || dash[1] != files.fileSystem ||
            (&files == &VERSION_1 && !lists(dash[3], "memory")))
            continue;
        applyGroups(status, root + unescape(words[4]), pathInMount(group, unescape(words[3])), files);
        return;
    }
}

}  // namespace

MemoryStatus memoryStatus(const std::string& root) {
    MemoryStatus status;
    const std::string info = readFile(root + "/proc/meminfo");
    if (const auto total = valueOf(info, "MemTotal:")) {
        const auto available = valueOf(info, "MemAvailable:");
        status.total = *total * 1024;
        status.available = (available ? *available : valueOf(info, "MemFree:").value_or(0)) * 1024;
        applyControlGroups(status, root, VERSION_1);
        applyControlGroups(status, root, VERSION_2);
    } else {
        const long page = ::sysconf(_SC_PAGESIZE);
        const long pages = ::sysconf(_SC_PHYS_PAGES);
        status.total =
            page > 0 && pages > 0 ? static_cast<std::uint64_t>(page) * static_cast<std::uint64_t>(pages) : 0;
        status.available = status.total;
    }
    status.available = std::min(status.available, status.total);
    if (status.total > 0)
        status.load = static_cast<std::uint32_t>((status.total - status.available) * 100 / status.total);
    return status;
}

MemoryStatus memoryStatus() {
    return memoryStatus("");
}

}  // namespace ombrix::core::detail
