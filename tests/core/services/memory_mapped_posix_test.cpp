#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <ombrix/core/services/memory_mapped_detail.h>

#include "some_bytes.h"

namespace ombrix::core {
namespace {

using test::Bytes;
using test::someBytes;
using test::TempPath;

/// Number of the next descriptor that the system would hand out: grows when one is lost.
int nextDescriptor() {
    const int descriptor = ::open("/dev/null", O_RDONLY);
    ::close(descriptor);
    return descriptor;
}

TEST(MemoryMappedPosix, NeitherBlocksOnAPipeNorMapsADevice) {
    const TempPath pipe;
    ASSERT_EQ(::mkfifo(pipe.str().c_str(), 0600), 0);
    MemoryMapped file;
    EXPECT_FALSE(file.open(pipe.str()));
    EXPECT_FALSE(file.open("/dev/zero"));
    EXPECT_EQ(file.size(), 0u);
}

TEST(MemoryMappedPosix, LosesNoDescriptor) {
    const TempPath empty(Bytes{}), good(someBytes(10));
    const int before = nextDescriptor();
    {
        MemoryMapped file;
        for (int i = 0; i < 3; ++i) {
            EXPECT_FALSE(file.open(empty.str()));
            EXPECT_TRUE(file.open(good.str()));
            EXPECT_FALSE(file.remap(11, 1));  // open without a view
        }
        EXPECT_EQ(nextDescriptor(), before + 1);
    }
    EXPECT_EQ(nextDescriptor(), before);
}

TEST(MemoryMappedPosix, WorksOnDescriptorZero) {
    const TempPath path(someBytes(10));
    const int input = ::fcntl(STDIN_FILENO, F_DUPFD, 3);
    ::close(STDIN_FILENO);
    MemoryMapped file(path.str());
    EXPECT_TRUE(file.isValid());
    EXPECT_TRUE(file.remap(0, 5));
    EXPECT_EQ(::fcntl(STDIN_FILENO, F_GETFD), FD_CLOEXEC);
    file.close();
    EXPECT_EQ(::fcntl(STDIN_FILENO, F_GETFD), -1);
    if (input >= 0) {
        ::dup2(input, STDIN_FILENO);
        ::close(input);
    }
}

TEST(MemoryMappedPosix, RefusesARangeThatTheFileHasLost) {
    const std::uint64_t page = MemoryMapped::getpagesize();
    const TempPath path(someBytes(3 * page));
    MemoryMapped file(path.str(), 1);
    std::filesystem::resize_file(path.str(), page + 1);
    EXPECT_FALSE(file.remap(page, page));
    EXPECT_FALSE(file.isValid());
    EXPECT_TRUE(file.remap(page, 1));
}

#ifdef __linux__
/// The kernel's two-letter flags of the memory mapped from a file.
std::string kernelFlags(const std::string& path) {
    std::ifstream maps("/proc/self/smaps");
    std::string line;
    for (bool found = false; std::getline(maps, line);) {
        found = found || line.ends_with(path);
        if (found && line.starts_with("VmFlags:"))
            return line;
    }
    return "";
}

TEST(MemoryMappedPosix, HandsTheHintToTheKernelForEveryView) {
    const TempPath path(someBytes(10));
    for (const auto hint : {MemoryMapped::Normal, MemoryMapped::SequentialScan, MemoryMapped::RandomAccess}) {
        MemoryMapped opened(path.str(), 0, hint);
        MemoryMapped file(std::move(opened));
        ASSERT_TRUE(file.remap(0, 5));
        const std::string flags = kernelFlags(path.str());
        EXPECT_NE(flags.find(" rd"), std::string::npos);
        EXPECT_EQ(flags.find(" sr") != std::string::npos, hint == MemoryMapped::SequentialScan);
        EXPECT_EQ(flags.find(" rr") != std::string::npos, hint == MemoryMapped::RandomAccess);
    }
}
#endif

/// A folder that looks like the root of a system whose memory is 1000 KiB, 600 of them available.
class MemoryStatus : public testing::Test {
protected:
    void SetUp() override {
        write("/proc/meminfo", "MemTotal: 1000 kB\nMemFree: 5 kB\nMemAvailable:     600 kB\n");
    }

    void write(const std::string& path, const std::string& text) const {
        const std::filesystem::path full = root_.str() + path;
        std::filesystem::create_directories(full.parent_path());
        std::ofstream(full) << text;
    }
    void expect(std::uint64_t total, std::uint64_t available, std::uint32_t load) const {
        const detail::MemoryStatus status = detail::memoryStatus(root_.str());
        EXPECT_EQ(status.total, total);
        EXPECT_EQ(status.available, available);
        EXPECT_EQ(status.load, load);
    }

private:
    TempPath root_;
};

TEST_F(MemoryStatus, IsTheMachinesWithoutALimit) {
    expect(1'024'000, 614'400, 40);
    write("/proc/self/cgroup", "0::/a\n");
    write("/proc/self/mountinfo", "31 23 0:28 / /cg rw - cgroup2 cgroup2 rw\n");
    write("/cg/a/memory.max", "max\n");
    expect(1'024'000, 614'400, 40);
}

TEST_F(MemoryStatus, IsTheTightestOfTheGroupsAbove) {
    write("/proc/self/cgroup", "1:cpu:/x\n0::/user/job\n");
    write("/proc/self/mountinfo",
          "22 27 0:21 / /proc rw - proc proc rw\n"
          "31 23 0:28 / /my\\040cg rw,relatime shared:4 - cgroup2 cgroup2 rw\n");
    write("/my cg/user/job/memory.max", "500000\n");
    write("/my cg/user/job/memory.current", "300000\n");
    write("/my cg/user/job/memory.stat", "anon 50000\ninactive_file 200000\nactive_file 50000\n");
    expect(500'000, 450'000, 10);
    // Neighbours have used up what the group above may take.
    write("/my cg/user/memory.max", "800000\n");
    write("/my cg/user/memory.current", "790000\n");
    expect(500'000, 10'000, 98);
    write("/my cg/user/memory.current", "900000\n");
    expect(500'000, 0, 100);
}

TEST_F(MemoryStatus, ReadsTheFirstVersionOfControlGroupsInAContainer) {
    write("/proc/self/cgroup", "5:cpu,cpuacct:/c/1\n4:hugetlb,memory:/c/1/sub/job\n0::/\n");
    write("/proc/self/mountinfo",
          "34 31 0:30 /c/1 /cg/cpu rw - cgroup cgroup rw,cpu\n"
          "35 31 0:32 /c/1 /cg/memory rw - cgroup cgroup rw,hugetlb,memory\n");
    write("/cg/memory/sub/job/memory.limit_in_bytes", "350000\n");
    write("/cg/memory/sub/memory.limit_in_bytes", "9223372036854771712\n");
    write("/cg/memory/memory.limit_in_bytes", "400000\n");
    write("/cg/memory/memory.usage_in_bytes", "300000\n");
    write("/cg/memory/memory.stat", "inactive_file 7\ntotal_inactive_file 100000\ntotal_active_file 0\n");
    expect(350'000, 200'000, 42);
}

}  // namespace
}  // namespace ombrix::core
