#pragma once

#include <cstdint>
#include <vector>

#include <ombrix/io/cloud_builder_detail.h>
#include <ombrix/io/column_detail.h>
#include <ombrix/io/ply_header_detail.h>

namespace ombrix::io::detail {

/// What a PLY file's points are made of.
struct PlyColumns {
    std::vector<Column> columns;
    std::vector<VectorColumns> vectors;
    RecordTraits traits;
    std::uint32_t stride = 0;  ///< bytes of a record without its lists; in ASCII of doubles in a row
    bool hasPositions = false;
};

[[nodiscard]] PlyColumns plyColumns(const PlyHeader& header, const PlyElement& element);

}  // namespace ombrix::io::detail
