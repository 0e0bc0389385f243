#include <examples/common/text.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>

namespace examples {
namespace {

struct Glyph {
    char letter;
    std::string_view rows;  ///< seven rows of five, a blank between rows
};

// clang-format off
constexpr std::array GLYPHS{std::to_array<Glyph>({
    {'0', ".###. #...# #..## #.#.# ##..# #...# .###."},
    {'1', "..#.. .##.. ..#.. ..#.. ..#.. ..#.. .###."},
    {'2', ".###. #...# ....# ...#. ..#.. .#... #####"},
    {'3', "##### ...#. ..#.. ...#. ....# #...# .###."},
    {'4', "...#. ..##. .#.#. #..#. ##### ...#. ...#."},
    {'5', "##### #.... ####. ....# ....# #...# .###."},
    {'6', "..##. .#... #.... ####. #...# #...# .###."},
    {'7', "##### ....# ...#. ..#.. .#... .#... .#..."},
    {'8', ".###. #...# #...# .###. #...# #...# .###."},
    {'9', ".###. #...# #...# .#### ....# ...#. .##.."},
    {'A', ".###. #...# #...# #...# ##### #...# #...#"},
    {'B', "####. #...# #...# ####. #...# #...# ####."},
    {'C', ".###. #...# #.... #.... #.... #...# .###."},
    {'D', "###.. #..#. #...# #...# #...# #..#. ###.."},
    {'E', "##### #.... #.... ####. #.... #.... #####"},
    {'F', "##### #.... #.... ####. #.... #.... #...."},
    {'G', ".###. #...# #.... #.### #...# #...# .####"},
    {'H', "#...# #...# #...# ##### #...# #...# #...#"},
    {'I', ".###. ..#.. ..#.. ..#.. ..#.. ..#.. .###."},
    {'J', "..### ...#. ...#. ...#. ...#. #..#. .##.."},
    {'K', "#...# #..#. #.#.. ##... #.#.. #..#. #...#"},
    {'L', "#.... #.... #.... #.... #.... #.... #####"},
    {'M', "#...# ##.## #.#.# #.#.# #...# #...# #...#"},
    {'N', "#...# #...# ##..# #.#.# #..## #...# #...#"},
    {'O', ".###. #...# #...# #...# #...# #...# .###."},
    {'P', "####. #...# #...# ####. #.... #.... #...."},
    {'Q', ".###. #...# #...# #...# #.#.# #..#. .##.#"},
    {'R', "####. #...# #...# ####. #.#.. #..#. #...#"},
    {'S', ".#### #.... #.... .###. ....# ....# ####."},
    {'T', "##### ..#.. ..#.. ..#.. ..#.. ..#.. ..#.."},
    {'U', "#...# #...# #...# #...# #...# #...# .###."},
    {'V', "#...# #...# #...# #...# #...# .#.#. ..#.."},
    {'W', "#...# #...# #...# #.#.# #.#.# #.#.# .#.#."},
    {'X', "#...# #...# .#.#. ..#.. .#.#. #...# #...#"},
    {'Y', "#...# #...# #...# .#.#. ..#.. ..#.. ..#.."},
    {'Z', "##### ....# ...#. ..#.. .#... #.... #####"},
    {'.', "..... ..... ..... ..... ..... .##.. .##.."},
    {',', "..... ..... ..... ..... .##.. ..#.. .#..."},
    {':', "..... .##.. .##.. ..... .##.. .##.. ....."},
    {'-', "..... ..... ..... ##### ..... ..... ....."},
    {'+', "..... ..#.. ..#.. ##### ..#.. ..#.. ....."},
    {'/', "..... ....# ...#. ..#.. .#... #.... ....."},
    {'%', "##... ##..# ...#. ..#.. .#... #..## ...##"},
    {'(', "...#. ..#.. .#... .#... .#... ..#.. ...#."},
    {')', ".#... ..#.. ...#. ...#. ...#. ..#.. .#..."},
    {'=', "..... ..... ##### ..... ##### ..... ....."},
    {'_', "..... ..... ..... ..... ..... ..... #####"},
})};
// clang-format on

constexpr int COLUMNS = 5;
constexpr int ROWS = 7;
constexpr int ADVANCE = COLUMNS + 1;

std::string_view rowsOf(char letter) {
    const char upper = static_cast<char>(std::toupper(static_cast<unsigned char>(letter)));
    for (const Glyph& glyph : GLYPHS)
        if (glyph.letter == upper)
            return glyph.rows;
    return {};
}

}  // namespace

int textWidth(std::string_view text, int scale) {
    return text.empty() ? 0 : (static_cast<int>(text.size()) * ADVANCE - 1) * scale;
}

int textHeight(int scale) {
    return ROWS * scale;
}

void drawText(Image& image, int left, int top, std::string_view text, int scale,
              std::array<unsigned char, 3> color) {
    for (const char letter : text) {
        const std::string_view rows = rowsOf(letter);
        for (int pixel = 0; pixel < COLUMNS * ROWS * scale * scale && !rows.empty(); ++pixel) {
            const int dx = pixel % (COLUMNS * scale);
            const int dy = pixel / (COLUMNS * scale);
            const int x = left + dx;
            const int y = top + dy;
            const int at = dy / scale * ADVANCE + dx / scale;
            const bool set = rows[static_cast<std::size_t>(at)] == '#';
            if (set && x >= 0 && x < image.width && y >= 0 && y < image.height)
                std::copy(color.begin(), color.end(), image.pixel(x, y));
        }
        left += ADVANCE * scale;
    }
}

}  // namespace examples
