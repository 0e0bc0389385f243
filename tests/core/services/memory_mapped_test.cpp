#include <ombrix/core/services/memory_mapped.h>

#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>

#include "some_bytes.h"

namespace ombrix::core {
namespace {

using test::Bytes;
using test::someBytes;
using test::TempPath;

const std::uint64_t GRAIN = MemoryMapped::getpagesize();

Bytes viewOf(const MemoryMapped& file) {
    return {file.getData(), file.getData() + file.mappedSize()};
}

Bytes slice(const Bytes& bytes, std::uint64_t first, std::uint64_t count) {
    return {bytes.data() + first, bytes.data() + first + count};
}

template <class Error>
void expectAtThrows(const MemoryMapped& file, std::uint64_t i, const std::string& text) {
    try {
        (void)file.at(i);
        FAIL() << "no exception";
    } catch (const Error& error) {
        EXPECT_EQ(error.what(), text);
    }
}

void expectLikeNew(const MemoryMapped& file) {
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.Move): what a moved-from object answers is promised
    EXPECT_FALSE(file.isValid());
    EXPECT_EQ(file.getData(), nullptr);
    EXPECT_EQ(file.size(), 0u);
    EXPECT_EQ(file.mappedSize(), 0u);
    EXPECT_EQ(file.filename(), "");
    expectAtThrows<std::invalid_argument>(file, 0, "No view mapped");
}

TEST(MemoryMapped, MapsEveryByteOfFilesAroundTheGranularity) {
    std::int32_t hint = 0;  // the three hints, then numbers that mean none
    for (const std::uint64_t size : {std::uint64_t{1}, GRAIN - 1, GRAIN, GRAIN + 1, 3 * GRAIN + 17}) {
        const Bytes content = someBytes(size);
        const TempPath path(content);
        const MemoryMapped file(path.str(), 0, static_cast<MemoryMapped::CacheHint>(hint++));
        ASSERT_TRUE(file.isValid());
        EXPECT_EQ(file.size(), size);
        EXPECT_EQ(file.filename(), path.str());
        EXPECT_EQ(viewOf(file), content);
        EXPECT_EQ(file.at(size - 1), content.back());
        EXPECT_EQ(file[size / 2], content[size / 2]);
        expectAtThrows<std::out_of_range>(file, size, "View is not large enough");
    }
}

TEST(MemoryMapped, MapsAsMuchAsWasAskedForButNotMoreThanThereIs) {
    const Bytes content = someBytes(100);
    const TempPath path(content);
    for (const std::uint64_t request : {1, 99, 100, 101}) {
        MemoryMapped file;
        ASSERT_TRUE(file.open(path.str(), request));
        EXPECT_EQ(viewOf(file), slice(content, 0, std::min<std::uint64_t>(request, 100)));
        EXPECT_EQ(file.filename(), "");
        // The bound of `at` is the file's size; these bytes lie outside of a short view, but in its page.
        EXPECT_EQ(file.at(99), content[99]);
        expectAtThrows<std::out_of_range>(file, 100, "View is not large enough");
    }
}

TEST(MemoryMapped, FailsOnWhatCannotBeMappedAndCanBeUsedAgain) {
    const TempPath missing, empty(Bytes{}), folder, good(someBytes(3));
    std::filesystem::create_directory(folder.str());
    MemoryMapped file;
    for (const TempPath* path : {&missing, &empty, &folder}) {
        EXPECT_FALSE(file.open(path->str()));
        expectLikeNew(file);
        EXPECT_FALSE(file.remap(0, 0));
        expectLikeNew(file);
        EXPECT_FALSE(MemoryMapped(path->str()).isValid());
    }
    EXPECT_TRUE(file.open(good.str()));
    EXPECT_EQ(viewOf(file), someBytes(3));
}

TEST(MemoryMapped, KeepsItsViewUntilItIsClosed) {
    const TempPath first(someBytes(20, 1)), second(someBytes(30, 2));
    MemoryMapped file(first.str());
    const unsigned char* const data = file.getData();
    EXPECT_FALSE(file.open(second.str()));
    EXPECT_EQ(file.getData(), data);
    EXPECT_EQ(viewOf(file), someBytes(20, 1));

    for (int i = 0; i < 2; ++i) {
        file.close();
        expectLikeNew(file);
        EXPECT_FALSE(file.remap(0, 0));
    }
    EXPECT_TRUE(file.open(second.str()));
    EXPECT_EQ(viewOf(file), someBytes(30, 2));
}

TEST(MemoryMapped, RemapsToAnyAlignedRange) {
    const std::uint64_t size = 3 * GRAIN + 17;
    const Bytes content = someBytes(size);
    const TempPath path(content);
    MemoryMapped file(path.str());
    constexpr std::uint64_t HUGE_REQUEST = std::numeric_limits<std::uint64_t>::max();
    struct Case {
        std::uint64_t offset, request, expected;  // expected 0: no view
    };
    for (const auto& [offset, request, expected] : {
             Case{GRAIN, 5, 5},
             Case{2 * GRAIN, GRAIN + 17, GRAIN + 17},
             Case{GRAIN, 0, 2 * GRAIN + 17},
             Case{3 * GRAIN, HUGE_REQUEST, 17},
             Case{GRAIN + 1, 5, 0},
             Case{size, 0, 0},
             Case{4 * GRAIN, 1, 0},
             Case{HUGE_REQUEST - GRAIN + 1, GRAIN, 0},
             Case{0, 0, size},
         }) {
        SCOPED_TRACE(testing::Message() << offset << " + " << request);
        EXPECT_EQ(file.remap(offset, request), expected > 0);
        EXPECT_EQ(file.isValid(), expected > 0);
        EXPECT_EQ(file.mappedSize(), expected);
        EXPECT_EQ(file.size(), size);
        if (expected > 0) {
            EXPECT_EQ(viewOf(file), slice(content, offset, expected));
        }
    }
}

TEST(MemoryMapped, ReachesBytesBeyondFourGibibytes) {
    constexpr std::uint64_t FAR = (std::uint64_t{5} << 32) + (std::uint64_t{1} << 20);
    const TempPath path(Bytes{'a'});
    std::filesystem::resize_file(path.str(), FAR);  // takes no room on the disk
    std::ofstream(path.str(), std::ios::binary | std::ios::app) << "end";
    MemoryMapped file(path.str(), 1);
    EXPECT_EQ(file.at(0), 'a');
    ASSERT_TRUE(file.remap(FAR, 0));
    EXPECT_EQ(viewOf(file), (Bytes{'e', 'n', 'd'}));
}

// NOLINTBEGIN(bugprone-use-after-move)
TEST(MemoryMapped, MovesTheViewAndLeavesANewObject) {
    const TempPath path(someBytes(50)), other(someBytes(9, 2));
    MemoryMapped source(path.str(), 0, MemoryMapped::RandomAccess);
    const unsigned char* const data = source.getData();

    MemoryMapped moved(std::move(source));
    EXPECT_EQ(moved.getData(), data);
    EXPECT_EQ(moved.filename(), path.str());
    expectLikeNew(source);

    MemoryMapped target(other.str());
    target = std::move(moved);
    expectLikeNew(moved);
    EXPECT_EQ(target.getData(), data);
    EXPECT_TRUE(target.remap(0, 7));
    EXPECT_EQ(viewOf(target), slice(someBytes(50), 0, 7));

    EXPECT_TRUE(source.open(other.str()));
    EXPECT_EQ(viewOf(source), someBytes(9, 2));
}
// NOLINTEND(bugprone-use-after-move)

TEST(MemoryMapped, ReportsTheMachinesMemory) {
    EXPECT_EQ(GRAIN & (GRAIN - 1), 0u);
    EXPECT_GE(GRAIN, 4096u);
    const std::uint64_t total = MemoryMapped::getTotalRAM();
    EXPECT_GT(MemoryMapped::getAvailableRAM(), 0u);
    EXPECT_LE(MemoryMapped::getAvailableRAM(), total);
    EXPECT_GT(total, std::uint64_t{1} << 26);
    EXPECT_LE(MemoryMapped::getMemoryLoad(), 100u);
}

}  // namespace
}  // namespace ombrix::core
