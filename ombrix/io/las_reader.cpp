#include <algorithm>
#include <bit>

#include <ombrix/io/cloud_builder_detail.h>
#include <ombrix/io/las_header_detail.h>
#include <ombrix/io/readers_detail.h>
#include <ombrix/io/watch_detail.h>

namespace ombrix::io::detail {

PointFile readLas(ByteSource& source, const ReadOptions& options) {
    const LasHeader header = readLasHeader(source);
    const Watch watch(options, source.path(), header.points);
    watch.at(0, "point");

    RecordTraits traits;
    traits.swapped = std::endian::native == std::endian::big;
    CloudBuilder builder(lasColumns(header), {}, traits, options);
    builder.expect(header.points);
    for (std::uint64_t done = 0; done < header.points;) {
        const auto bytes = source.view(header.pointsAt + done * header.pointLength, header.pointLength);
        const std::uint64_t n = std::min({bytes.size() / header.pointLength, BATCH, header.points - done});
        builder.append(bytes.data(), header.pointLength, n);
        watch.at(done += n, "point");
    }
    PointFile file = builder.finish();
    file.format = PointFormat::LAS;
    return file;
}

}  // namespace ombrix::io::detail
