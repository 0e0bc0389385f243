#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <ombrix/core/types.h>
#include <ombrix/mesh/obj_number_detail.h>

namespace ombrix::mesh::detail {

/// One corner of a face as the file has it: 1-based, negative counts back, 0 where there is no normal.
struct ObjCorner {
    std::int64_t vertex = 0;
    std::int64_t normal = 0;
};

/// Blanks within a line.
[[nodiscard]] constexpr bool isBlank(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r' && c != '\n');
}

[[nodiscard]] inline const char* skipBlanks(const char* p) noexcept {
    while (isBlank(*p)) {
        ++p;
    }
    return p;
}

[[nodiscard]] inline const char* skipWord(const char* p) noexcept {
    while (!isBlank(*p) && *p != '\n') {
        ++p;
    }
    return p;
}

/// Reads an index with an optional sign, at most 2^32 - 1 in size.
/// @return the end of the index; `first` when there is none, then `value` is unchanged.
inline const char* parseIndex(const char* first, std::int64_t& value) noexcept {
    const char* p = first;
    const bool negative = *p == '-';
    if (negative || *p == '+') {
        ++p;
    }
    if (!isDigit(*p)) {
        return first;
    }
    std::int64_t number = 0;
    for (; isDigit(*p); ++p) {
        number = number * 10 + (*p - '0');
        if (number > std::numeric_limits<std::uint32_t>::max()) {
            return first;
        }
    }
    value = negative ? -number : number;
    return p;
}

/// Parses the lines of one OBJ file and hands the records to a sink:
///
///     static constexpr std::size_t MAX_CORNERS;     // further corners of a face are not read
///     void vertex(const Vector3f&, bool wellFormed);
///     void normal(const Vector3f&, bool wellFormed);
///     void textureCoordinate();
///     void face(const std::vector<ObjCorner>&, bool wellFormed);  // fewer than three: unreadable
///     void other();                                 // another keyword
template <class Sink>
class ObjParser {
public:
    explicit ObjParser(Sink& sink) : sink_(sink) {}

    /// One line [p, last), `*last` being '\n'.
    void parseLine(const char* p, const char* last) {
        p = skipBlanks(p);
        const char* word = p;
        p = skipWord(p);
        const auto length = p - word;
        if (length == 1 && *word == 'v') {
            core::Vector3f position;
            const bool wellFormed = parseVector(p, last, position);
            sink_.vertex(position, wellFormed);
        } else if (length == 1 && *word == 'f') {
            parseFace(p);
        } else if (length == 2 && word[0] == 'v' && word[1] == 'n') {
            core::Vector3f normal;
            const bool wellFormed = parseVector(p, last, normal);
            sink_.normal(normal, wellFormed);
            slashesAnnounced_ = true;
        } else if (length == 2 && word[0] == 'v' && word[1] == 't') {
            sink_.textureCoordinate();
            slashesAnnounced_ = true;
        } else if (length > 0 && *word != '#') {
            sink_.other();
        }
    }

private:
    static bool parseVector(const char* p, const char* last, core::Vector3f& vector) {
        bool wellFormed = true;
        for (int axis = 0; axis < 3; ++axis) {
            p = skipBlanks(p);
            float number = 0;
            const char* end = parseFloat(p, last, number);
            vector[axis] = number;
            const char* wordEnd = skipWord(end);
            wellFormed = wellFormed && end != p && end == wordEnd;
            p = wordEnd;
        }
        return wellFormed;
    }

    // With blanks around the slashes, "1/ 2/ 3/" could be one corner; such lines are read word by word.
    void parseFace(const char* p) {
        bool wellFormed = parseCorners(p, slashesAnnounced_);
        if (slashesAnnounced_ && (!wellFormed || corners_.size() < 3)) {
            wellFormed = parseCorners(p, false);
        }
        sink_.face(corners_, wellFormed);
    }

    /// Corners up to the first that cannot be read; false when there is such a one, or rubbish behind an
    /// index.
    bool parseCorners(const char* p, bool blanksAroundSlashes) {
        corners_.clear();
        bool wellFormed = true;
        while (corners_.size() < Sink::MAX_CORNERS) {
            p = skipBlanks(p);
            if (*p == '\n' || *p == '#') {
                break;
            }
            ObjCorner corner;
            const char* end = parseIndex(p, corner.vertex);
            if (end == p) {
                return false;
            }
            p = end;
            for (int slot = 1;; ++slot) {
                const char* slash = blanksAroundSlashes ? skipBlanks(p) : p;
                if (*slash != '/') {
                    break;
                }
                const char* number = blanksAroundSlashes ? skipBlanks(slash + 1) : slash + 1;
                std::int64_t index = 0;
                end = parseIndex(number, index);
                p = end == number ? slash + 1 : end;
                if (slot == 2) {
                    corner.normal = index;
                }
            }
            corners_.push_back(corner);
            end = skipWord(p);
            wellFormed = wellFormed && end == p;
            p = end;
        }
        return wellFormed;
    }

    Sink& sink_;
    std::vector<ObjCorner> corners_;
    bool slashesAnnounced_ = false;
};

}  // namespace ombrix::mesh::detail
