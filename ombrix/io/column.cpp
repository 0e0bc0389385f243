#include <algorithm>
#include <array>
#include <string>

#include <ombrix/io/column_detail.h>

namespace ombrix::io::detail {

namespace {

constexpr std::pair<std::string_view, Role> NAMES[] = {
    {"x", Role::X},
    {"y", Role::Y},
    {"z", Role::Z},
    {"red", Role::Red},
    {"green", Role::Green},
    {"blue", Role::Blue},
    {"r", Role::Red},
    {"g", Role::Green},
    {"b", Role::Blue},
    {"diffuse_red", Role::Red},
    {"diffuse_green", Role::Green},
    {"diffuse_blue", Role::Blue},
    {"nx", Role::NormalX},
    {"ny", Role::NormalY},
    {"nz", Role::NormalZ},
    {"normal_x", Role::NormalX},
    {"normal_y", Role::NormalY},
    {"normal_z", Role::NormalZ},
    {"intensity", Role::Intensity},
    {"scalar_intensity", Role::Intensity},
};

constexpr char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalFolded(std::string_view a, std::string_view b) {
    return std::ranges::equal(a, b, [](char l, char r) { return lower(l) == lower(r); });
}

}  // namespace

Role roleOf(std::string_view name) {
    for (const auto& [known, role] : NAMES) {
        if (equalFolded(name, known)) {
            return role;
        }
    }
    return Role::Field;
}

bool settleRoles(std::vector<Column>& columns) {
    std::array<Column*, static_cast<std::size_t>(Role::Field)> of{};
    for (Column& column : columns) {
        if (column.role == Role::Field) {
            continue;
        }
        Column*& first = of[static_cast<std::size_t>(column.role)];
        if (first != nullptr) {
            column.role = Role::Field;
        } else {
            first = &column;
        }
    }
    const auto settle = [&](Role role) {
        const auto begin = of.begin() + static_cast<std::ptrdiff_t>(role);
        const bool whole = std::all_of(begin, begin + 3, [](const Column* c) { return c != nullptr; });
        for (auto it = begin; !whole && it != begin + 3; ++it) {
            if (*it != nullptr) {
                (*it)->role = Role::Field;
            }
        }
        return whole;
    };
    settle(Role::Red);
    settle(Role::NormalX);
    return settle(Role::X);
}

}  // namespace ombrix::io::detail
