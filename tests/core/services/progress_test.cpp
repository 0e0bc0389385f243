#include <ombrix/core/services/progress.h>

#include <gtest/gtest.h>

#include <iomanip>
#include <limits>
#include <locale>
#include <sstream>

#include <ombrix/core/services/progress_detail.h>

namespace ombrix::core {
namespace {

using namespace std::chrono_literals;

class ProgressBars : public testing::Test {
protected:
    void SetUp() override {
        detail::progressClock = [] { return now; };
    }
    void TearDown() override { detail::progressClock = std::chrono::steady_clock::now; }

    /// What was written since the last call.
    std::string written() {
        std::string text = out.str();
        out.str("");
        return text;
    }

    inline static std::chrono::steady_clock::time_point now;
    std::ostringstream out;
};

TEST_F(ProgressBars, RedrawWhenACellFillsAndAtTheEnd) {
    ProgressBar bar(out, 10);
    EXPECT_EQ(written(), "[0%] [          ]");

    now += 2ms;
    bar.update(5, 10);
    EXPECT_EQ(written(), "\r[50%] [=====>    ] [5 p] [2 p/ms] [in 2 ms]    ");
    bar.update(5, 10);
    bar.update(4, 10);
    bar.update(59, 100);
    bar.update(7, 0);
    EXPECT_EQ(written(), "");

    now += 1999us;  // counts as 1 ms, as does no time at all
    bar.update(6, 10);
    EXPECT_EQ(written(), "\r[60%] [======>   ] [6 p] [2 p/ms] [in 3 ms]    ");
    bar.update(9, 10);
    EXPECT_EQ(written(), "\r[90%] [=========>] [9 p] [2 p/ms] [in 4 ms]    ");
    for (int i = 0; i < 2; ++i) {
        now += 3s;
        bar.update(10, 10);
        EXPECT_EQ(written(), i == 0 ? "\r[100%] [==========>] [10 p] [0 p/ms] [in 3004 ms]    "
                                    : "\r[100%] [==========>] [10 p] [0 p/ms] [in 6004 ms]    ");
    }
    bar.flush();
    EXPECT_EQ(written(), "\n");
}

TEST_F(ProgressBars, TruncateFractionsOfCellsAndPercents) {
    ProgressBar bar(out, 4);
    written();
    bar.update(1, 3);  // 1.33 cells
    EXPECT_EQ(written(), "\r[33%] [=>  ] [1 p] [1 p/ms] [in 1 ms]    ");
    bar.update(200, 299);  // 2.68 cells, 66.9 percent
    EXPECT_EQ(written(), "\r[66%] [==> ] [200 p] [100 p/ms] [in 2 ms]    ");
    bar.update(6, 4);  // more than announced
    EXPECT_EQ(written(), "\r[150%] [======>] [6 p] [2 p/ms] [in 3 ms]    ");
    constexpr std::uint64_t LARGE = std::numeric_limits<std::uint64_t>::max();
    bar.update(LARGE, LARGE);
    EXPECT_EQ(written(), "\r[100%] [====>] [" + std::to_string(LARGE) + " p] [" + std::to_string(LARGE / 4) +
                             " p/ms] [in 4 ms]    ");
    EXPECT_EQ(ProgressBar(out, 50).delta(1049), 20u);
}

TEST_F(ProgressBars, DrawAFractionAsCellsAlone) {
    PointProgressBar bar(out, 4);
    written();
    const std::pair<float, std::string> cases[] = {{0.0f, "\r[>   "},
                                                   {0.5f, "\r[==> "},
                                                   {0.99f, "\r[===>"},
                                                   {1.0f, "\r[====>"},
                                                   {0.25f, "\r[=>  "},
                                                   {-1.0f, "\r[>   "},
                                                   {std::numeric_limits<float>::quiet_NaN(), "\r[>   "}};
    for (const auto& [fraction, text] : cases) {
        bar.update(fraction);
        EXPECT_EQ(written(), text);
    }
}

TEST_F(ProgressBars, CountPoints) {
    PointProgressBar bar(out, 5);
    written();
    bar.add(7);
    EXPECT_EQ(written(), "");
    bar.flush();
    EXPECT_EQ(written(), "\n");

    bar.set_max(100);
    now += 5ms;
    bar.add(50);
    EXPECT_EQ(bar.current(), 57u);
    EXPECT_EQ(written(), "\r[56%] [==>  ] [57 p] [11 p/ms] [in 5 ms]    ");  // 0.57 * 100 < 57
    PointProgressBar copy = bar;
    copy.add(43);
    EXPECT_EQ(written(), "\r[100%] [=====>] [100 p] [16 p/ms] [in 6 ms]    ");

    ProgressBar& base = bar;
    base.update(80, 200);  // the expected number is 200 now
    EXPECT_EQ(written(), "");
    base.flush();
    EXPECT_EQ(written(), "\r[100%] [=====>] [200 p] [40 p/ms] [in 5 ms]    \n");

    PointProgressBar unmoved(out, 2);
    unmoved.set_max(3);
    written();
    unmoved.flush();
    EXPECT_EQ(written(), "\r[100%] [==>] [3 p] [3 p/ms] [in 1 ms]    \n");
}

TEST_F(ProgressBars, GoThroughTheOverriddenUpdateWhenPointsAreAdded) {
    struct Recorder : PointProgressBar {
        using PointProgressBar::PointProgressBar;
        void update(std::uint64_t current, std::uint64_t total) override { seen = {current, total}; }
        std::pair<std::uint64_t, std::uint64_t> seen;
    } bar(out, 5);
    bar.set_max(9);
    bar.add(2);
    EXPECT_EQ(bar.seen, std::pair(std::uint64_t{2}, std::uint64_t{9}));
}

TEST_F(ProgressBars, IgnoreTheStreamsFormat) {
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    out.imbue(std::locale(out.getloc(), new Grouping));
    out << std::hex << std::showbase << std::setfill('*') << std::setw(40);
    ProgressBar bar(out, 1);
    bar.update(5000, 5000);
    EXPECT_EQ(written(), "[0%] [ ]\r[100%] [=>] [5000 p] [5000 p/ms] [in 1 ms]    ");
}

}  // namespace
}  // namespace ombrix::core
