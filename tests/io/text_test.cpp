#include <optional>

#include "files.h"
#include "tests/support/streams.h"

namespace ombrix::io::test {

namespace {

using core::ColorRGB;
using core::Vector3d;
using core::Vector3f;
using TextRead = IoTest;

}  // namespace

TEST_F(TextRead, BlanksCommasAndSemicolonsSeparate) {
    for (const char* text :
         {"1 2.5 -3e2\n 4\t5  6 \n", "1,2.5,-3e2\r\n4, 5 ,6\r\n", "1;2.5;-3e2\n4;5;6",
          "# note\n\n1,2.5,-3e2,\n\n// note\n\"4\",5,6,\n", "\xEF\xBB\xBF+1 2.5 -3e2\n4. 5 6.0\n"}) {
        SCOPED_TRACE(text);
        const PointFile file = read("a.xyz", text);
        EXPECT_EQ(file.format, PointFormat::TEXT);
        EXPECT_EQ(file.cloud.positions(), (std::vector<Vector3f>{{1, 2.5, -300}, {4, 5, 6}}));
        EXPECT_EQ(file.shift, Vector3d(0, 0, 0));
        EXPECT_TRUE(file.cloud.colors().empty() && file.cloud.scalars().empty() && file.fields.empty());
    }
}

TEST_F(TextRead, ColumnsAreNamedByHeaderCommentOrCaller) {
    ReadOptions named;
    named.columns = {"z", "height", "Red", "green", "BLUE", "y", "x", "Intensity"};
    const std::string row = "3;7.5;10;20;30;2;1;0.25\n";
    const std::string header = "z;height;Red;green;BLUE;y;x;Intensity\n";
    for (const auto& [text, options] : {std::pair<std::string, ReadOptions>{header + row, {}},
                                        {"//" + header + row, {}},
                                        {row, named},
                                        {"a;b;c;d;e;f;g;h\n" + row, named}}) {
        SCOPED_TRACE(text);
        const PointFile file = read("a.csv", text, options);
        ASSERT_EQ(file.cloud.size(), 1u);
        EXPECT_EQ(file.cloud.positions()[0], Vector3f(1, 2, 3));
        EXPECT_EQ(file.cloud.colors(), std::vector{ColorRGB(10, 20, 30)});
        EXPECT_EQ(file.cloud.scalars(), std::vector{0.25f});
        EXPECT_EQ(file.fields, std::vector<std::string>{"height"});
        EXPECT_EQ(field(file, "height"), std::vector{7.5f});
    }
}

TEST_F(TextRead, ColumnsWithoutNamesAreToldByTheirValues) {
    const auto columns = [&](const std::string& rows) {
        const PointFile file = read("a.txt", rows);
        std::string out = std::string(file.hasColors ? "color " : "") + (file.hasNormals ? "normal " : "") +
                          (file.hasScalars ? "intensity " : "");
        for (const std::string& name : file.fields) {
            out += name + " ";
        }
        return out;
    };
    EXPECT_EQ(columns("1 2 3 0.5\n"), "intensity ");
    EXPECT_EQ(columns("1 2 3 4 5\n"), "column_4 column_5 ");
    EXPECT_EQ(columns("1 2 3 10 20 30\n"), "color ");
    EXPECT_EQ(columns("1 2 3 0 0 1\n1 2 3 200 0 0\n"), "color ");
    EXPECT_EQ(columns("1 2 3 0 0 1\n1 2 3 0 -1 0\n"), "normal ");
    EXPECT_EQ(columns("1 2 3 0.5 0.25 0.125\n"), "color ");
    EXPECT_EQ(columns("1 2 3 7.5 -20 30\n"), "column_4 column_5 column_6 ");
    EXPECT_EQ(columns("1 2 3 0.7 10 20 30\n"), "color intensity ");
    EXPECT_EQ(columns("1 2 3 10 20 30 -0.7\n"), "color intensity ");
    EXPECT_EQ(columns("1 2 3 10 20 30 0.6 0 0.8\n"), "color normal ");

    // What thousands of rows suggest, a later one may refute
    std::string many;
    for (int row = 0; row < 5000; ++row) {
        many += "1 2 3 10 20 30\n";
    }
    EXPECT_EQ(columns(many), "color ");
    EXPECT_EQ(columns(many + "1 2 3 10 -1 30\n"), "column_4 column_5 column_6 ");
    EXPECT_EQ(field(read("a.txt", many + "1 2 3 10 -1 30\n"), "column_5")[5000], -1.0f);

    EXPECT_EQ(read("a.pts", "2\n1 2 3 -5 10 20 30\n4 5 6 -7 1 2 3\n").cloud.colors()[0],
              ColorRGB(10, 20, 30));
    EXPECT_EQ(read("a.txt", "1 2 3 1 0 1\n1 2 3 0 0 0\n").cloud.colors()[0], ColorRGB(1, 0, 1));
    EXPECT_EQ(read("a.txt", "1 2 3 1 0 1\n1 2 3 0 0 .5\n").cloud.colors()[0], ColorRGB(255, 0, 255));
}

TEST_F(TextRead, RubbishIsNamedWithItsLine) {
    for (const auto& [text, message] : std::vector<std::pair<std::string, std::string>>{
             {"", "byte 0: the file is empty"},
             {"\n# only a comment\n", "line 2: the file holds no points"},
             {"1 2\n", "line 1: a point needs three columns"},
             {"1 2 3\n4 5\n", "line 2: only 2 of 3 columns"},
             {"1 2 3\n4 5 6 7\n", "line 2: more than 3 columns"},
             {"1,2,3\n4,,6\n", "line 2: a column is empty"},
             {"1 2 3\n4 5 nan\n", "line 2: not a finite number: 'nan'"},
             {"1 2 3\n4 -inf 6\n", "line 2: not a finite number: '-inf'"},
             {"nan 2 3\n", "line 1: not a finite number: 'nan'"},
             {"1 2 3\n4 1e999 6\n", "line 2: number out of range: '1e999'"},
             {"1 2 3\n4 1e9223372036854775807 6\n", "line 2: number out of range: '1e9223372036854775807'"},
             {"1 2 3\n4 5x 6\n", "line 2: not a number: '5x'"},
             {"1 2 3\n4 +-5 6\n", "line 2: not a number: '+-5'"},
             {"1;2;3\n4;5,5;6\n", "line 2: not a number: '5,5'"},
             {"a b c\n1 2 3\n", "line 1: a header without x, y and z"},
             {"1 2 3 4 5 6\n1 2 3 4 5 -6\n", ""},
             {"x y z r g b\n1 2 3 4 5 -6\n", "line 2: a colour is not between 0 and 65535"},
             {"3\n1 2 3\n", "line 2: the file holds 1 points, which is not the count in front of them"}}) {
        EXPECT_EQ(errorOf("a.txt", text), message) << text;
    }
    EXPECT_EQ(world(read("a.txt", "1e-400 -0.0e5 1000e-2\n"), 0), Vector3d(0, 0, 10));
    EXPECT_EQ(world(read("a.txt", "0.0001e-9223372036854775807 1 2\n"), 0), Vector3d(0, 1, 2));
}

TEST_F(TextRead, ObjVerticesWithAndWithoutColors) {
    const PointFile plain = read("a.obj",
                                 "# v 9 9 9\nmtllib a.mtl\nv 1 2 3\r\n\tv -1.5 +2e0 .5 1.0 # w\nvn 0 0 1\n"
                                 "vt 0 0\nf 1 2 1\nv 7 8 9");
    EXPECT_EQ(plain.format, PointFormat::OBJ);
    EXPECT_EQ(plain.cloud.positions(), (std::vector<Vector3f>{{1, 2, 3}, {-1.5, 2, .5}, {7, 8, 9}}));
    EXPECT_FALSE(plain.hasColors);
    EXPECT_TRUE(plain.cloud.colors().empty());

    const PointFile colored = read("b.obj", "v 1 2 3 1 0 0.5\nv 1 2 3\nv 1 2 3 1 0 0 1\n");
    EXPECT_EQ(colored.cloud.colors(),
              (std::vector{ColorRGB(255, 0, 128), ColorRGB(0, 0, 0), ColorRGB(0, 0, 255)}));

    EXPECT_EQ(errorOf("c.obj", "f 1 2 3\n"), "line 1: the file holds no vertices");
    EXPECT_EQ(errorOf("c.obj", "\nv 1 2\n"), "line 2: a vertex needs three coordinates");
    EXPECT_EQ(errorOf("c.obj", "v 1 nan 2\n"), "line 1: not a finite number: 'nan'");
}

TEST_F(TextRead, NumbersDoNotDependOnTheLocale) {
    std::optional<ombrix::test::CommaLocale> comma(std::in_place);
    const PointFile text = read("a.xyz", "1.5 1234567.25 3\n");
    core::PointCloud cloud;
    cloud.positions().assign(12345, {1.5f, 0, 0});
    writePly(path("a.ply"), cloud);
    const std::size_t count = readPoints(path("a.ply")).cloud.size();
    comma.reset();

    EXPECT_EQ(world(text, 0), Vector3d(1.5, 1234567.25, 3));
    EXPECT_EQ(count, 12345u);
}

}  // namespace ombrix::io::test
