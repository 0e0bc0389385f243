#pragma once

#include <ombrix/io/byte_source_detail.h>
#include <ombrix/io/read_points.h>

namespace ombrix::io::detail {

[[nodiscard]] PointFile readPly(ByteSource& source, const ReadOptions& options);
[[nodiscard]] PointFile readLas(ByteSource& source, const ReadOptions& options);
[[nodiscard]] PointFile readText(ByteSource& source, const ReadOptions& options);
[[nodiscard]] PointFile readObj(ByteSource& source, const ReadOptions& options);

}  // namespace ombrix::io::detail
