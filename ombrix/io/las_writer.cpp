#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <ombrix/io/las_header_detail.h>
#include <ombrix/io/output_file_detail.h>
#include <ombrix/io/write_points.h>

namespace ombrix::io {

namespace {

using core::Vector3d;
using core::Vector3f;

constexpr std::size_t ROWS = 4096;
constexpr std::size_t POINT_LENGTH = 26;
constexpr double LARGEST_STEP = std::numeric_limits<std::int32_t>::max();

double farthest(const core::PointCloud& cloud) {
    float largest = 0.0f;
    for (const Vector3f& position : cloud.positions()) {
        largest = std::max(largest, position.cwiseAbs().maxCoeff());
    }
    return largest;
}

// The step's rule is part of the interface: see writeLas.
double stepFor(double largest) {
    if (largest == 0.0) {
        return 0.001;
    }
    const double spacing = std::ldexp(1.0, std::ilogb(largest) - 23);
    int exponent = std::min(-3, static_cast<int>(std::floor(std::log10(spacing))));
    while (largest > LARGEST_STEP * std::pow(10.0, exponent)) {
        ++exponent;
    }
    // 1 / 10^n is the double next to the decimal number, which pow(10, -n) need not be.
    return exponent < 0 ? 1.0 / std::pow(10.0, -exponent) : std::pow(10.0, exponent);
}

// The step to use; throws what keeps the cloud from being written, before an older file is touched.
double checkedStep(const std::filesystem::path& path, const core::PointCloud& cloud, double scale) {
    const auto fail = [&](const std::string& reason) { throw Error(path.string(), "writing", reason); };
    if (cloud.size() > std::numeric_limits<std::uint32_t>::max()) {
        fail("LAS 1.2 holds 4294967295 points at most");
    }
    for (std::uint64_t i = 0; i < cloud.size(); ++i) {
        if (!cloud.positions()[i].allFinite()) {
            fail("the position of point " + std::to_string(i) + " is not finite");
        }
    }
    const double largest = farthest(cloud);
    const double step = scale == 0.0 ? stepFor(largest) : scale;
    if (!(step > 0.0) || !std::isfinite(step)) {
        fail("the scale is not above 0");
    }
    if (largest / step > LARGEST_STEP) {
        fail("the positions do not fit into 32 bits at this scale");
    }
    return step;
}

// A value per point, rounded and clamped to [lowest, largest]; 0 where there is none.
class Attribute {
public:
    Attribute(const core::PointCloud& cloud, const char* field, int lowest, int largest)
        : lowest_(static_cast<float>(lowest)), largest_(static_cast<float>(largest)) {
        if (cloud.fields().contains(field)) {
            if (const auto floats = cloud.fields().get<float>(field)) {
                values_ = &floats->data();
            }
        }
    }
    Attribute(const std::vector<float>& values, int lowest, int largest)
        : values_(&values), lowest_(static_cast<float>(lowest)), largest_(static_cast<float>(largest)) {}

    [[nodiscard]] int operator()(std::uint64_t i) const {
        if (values_ == nullptr || i >= values_->size() || std::isnan((*values_)[i])) {
            return 0;
        }
        return static_cast<int>(std::round(std::clamp((*values_)[i], lowest_, largest_)));
    }

private:
    const std::vector<float>* values_ = nullptr;
    float lowest_;
    float largest_;
};

class LasPoints {
public:
    explicit LasPoints(const core::PointCloud& cloud, double scale)
        : cloud_(&cloud),
          scale_(scale),
          intensity_(cloud.scalars(), 0, 65535),
          returnNumber_(cloud, "return_number", 0, 7),
          returns_(cloud, "number_of_returns", 0, 7),
          direction_(cloud, "scan_direction", 0, 1),
          edge_(cloud, "edge_of_flight_line", 0, 1),
          classification_(cloud, "classification", 0, 31),
          flags_(cloud, "classification_flags", 0, 7),
          angle_(cloud, "scan_angle", -128, 127),
          userData_(cloud, "user_data", 0, 255),
          source_(cloud, "point_source_id", 0, 65535) {}

    /// Counts the points of each return, 1 to 5.
    [[nodiscard]] std::array<std::uint32_t, 5> returnCounts() const;
    /// Stores a point's record.
    void store(std::uint64_t i, unsigned char* at) const;
    [[nodiscard]] std::int32_t steps(float coordinate) const {
        const double exact = static_cast<double>(coordinate) / scale_;
        return static_cast<std::int32_t>(exact + std::copysign(0.5, exact));
    }

private:
    const core::PointCloud* cloud_;
    double scale_;
    Attribute intensity_, returnNumber_, returns_, direction_, edge_, classification_, flags_, angle_,
        userData_, source_;
};

std::array<std::uint32_t, 5> LasPoints::returnCounts() const {
    std::array<std::uint32_t, 5> counts{};
    for (std::uint64_t i = 0; i < cloud_->size(); ++i) {
        const int number = returnNumber_(i);
        if (number >= 1 && number <= 5) {
            ++counts[static_cast<std::size_t>(number - 1)];
        }
    }
    return counts;
}

void LasPoints::store(std::uint64_t i, unsigned char* at) const {
    const Vector3f& position = cloud_->positions()[i];
    for (Eigen::Index axis = 0; axis < 3; ++axis) {
        detail::storeLittle(at + 4 * axis, steps(position[axis]));
    }
    detail::storeLittle(at + 12, static_cast<std::uint16_t>(intensity_(i)));
    at[14] =
        static_cast<unsigned char>(returnNumber_(i) | returns_(i) << 3 | direction_(i) << 6 | edge_(i) << 7);
    at[15] = static_cast<unsigned char>(classification_(i) | flags_(i) << 5);
    at[16] = static_cast<unsigned char>(angle_(i));
    at[17] = static_cast<unsigned char>(userData_(i));
    detail::storeLittle(at + 18, static_cast<std::uint16_t>(source_(i)));
    const core::ColorRGB color = i < cloud_->colors().size() ? cloud_->colors()[i] : core::ColorRGB{};
    for (std::size_t c = 0; c < 3; ++c) {
        detail::storeLittle(at + 20 + 2 * c, static_cast<std::uint16_t>(color.data()[c] << 8));
    }
}

std::vector<unsigned char> makeHeader(const core::PointCloud& cloud, const LasPoints& points,
                                      const Vector3d& shift, double scale) {
    namespace las = detail::las;
    std::vector<unsigned char> header(las::SIZE_1_2);
    const auto text = [&](std::uint32_t place, const std::string& value) {
        std::ranges::copy(value, header.begin() + place);
    };
    const auto store = [&](std::uint32_t place, auto value) {
        detail::storeLittle(header.data() + place, value);
    };
    text(0, "LASF");
    header[las::VERSION_MAJOR] = 1;
    header[las::VERSION_MINOR] = 2;
    text(las::SYSTEM_IDENTIFIER, "OTHER");
    text(las::GENERATING_SOFTWARE, "ombrixcore");
    store(las::HEADER_SIZE, static_cast<std::uint16_t>(las::SIZE_1_2));
    store(las::OFFSET_TO_POINTS, las::SIZE_1_2);
    header[las::POINT_FORMAT] = 2;
    store(las::POINT_LENGTH, static_cast<std::uint16_t>(POINT_LENGTH));
    store(las::POINT_COUNT_32, static_cast<std::uint32_t>(cloud.size()));
    const std::array<std::uint32_t, 5> returns = points.returnCounts();
    for (std::uint32_t i = 0; i < 5; ++i) {
        store(las::RETURN_COUNTS_32 + 4 * i, returns[i]);
    }
    const Vector3f lower = cloud.aabb_min();
    const Vector3f upper = cloud.aabb_max();
    for (std::uint32_t i = 0; i < 3; ++i) {
        store(las::SCALE + 8 * i, scale);
        store(las::OFFSET + 8 * i, shift[i]);
        if (cloud.size() > 0) {
            store(las::BOUNDS + 16 * i, points.steps(upper[i]) * scale + shift[i]);
            store(las::BOUNDS + 16 * i + 8, points.steps(lower[i]) * scale + shift[i]);
        }
    }
    return header;
}

}  // namespace

void writeLas(const std::filesystem::path& path, const core::PointCloud& cloud, const core::Vector3d& shift,
              double scale) {
    const double step = checkedStep(path, cloud, scale);
    const LasPoints points(cloud, step);
    const std::vector<unsigned char> header = makeHeader(cloud, points, shift, step);
    detail::OutputFile file(path);
    file.write(header.data(), header.size());
    std::vector<unsigned char> rows(ROWS * POINT_LENGTH);
    for (std::uint64_t first = 0; first < cloud.size(); first += ROWS) {
        const std::size_t count = std::min<std::uint64_t>(ROWS, cloud.size() - first);
        for (std::size_t i = 0; i < count; ++i) {
            points.store(first + i, rows.data() + i * POINT_LENGTH);
        }
        file.write(rows.data(), count * POINT_LENGTH);
    }
    file.close();
}

}  // namespace ombrix::io
