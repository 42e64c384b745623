// quorel preview, run as a program: its counts against the values quorel run writes, its
// refusals, and its picture.

#include "tests/dialog/DialogFixture.h"

#include "tools/sample/SampleData.h"

#include <QImage>

#include <ostream>

namespace quorel::dialog::test {
namespace {

struct Counts {
    std::size_t zero = 0, partial = 0, one = 0, null = 0;
    bool operator==(const Counts&) const = default;
};

void PrintTo(const Counts& c, std::ostream* os) {
    *os << "zero " << c.zero << ", partial " << c.partial << ", one " << c.one << ", null "
        << c.null;
}

class PreviewCommandTest : public DialogTest {
protected:
    // The shapefile of the samples, and one whose values sit on the break points of the
    // cases below, where the script's ramp gives a degree a hair away from 0.
    std::string Shapefile(const std::string& which) {
        if (which == "sample") {
            const std::string path = Folder("sample") + "/parcels.shp";
            tools::WriteSampleShapefile(path, 400);
            return path;
        }
        // W is longer: V is Null on the last two features.
        return WritePolygons("edges", "parcels",
                             {{"V", {0.7, 1.1, 2, 3.5, 5, 7.3, 9.9, 15, 20.2, 25, 30}},
                              {"W", std::vector<double>(13, 1.0)}});
    }
};

// The degrees quorel run wrote into the field, read back and counted.
Counts WrittenCounts(const std::string& path, const std::string& field) {
    host::shapefile::Application reader;
    const auto cursor = reader.AddShapefileLayer(path)->Search(false);
    const std::int32_t index = cursor->Fields()->FindField(field);
    EXPECT_GE(index, 0) << field;
    Counts counts;
    while (const auto row = cursor->NextRow()) {
        const host::Value value = row->GetValue(index);
        if (host::IsNull(value)) {
            ++counts.null;
        } else if (const double degree = std::get<double>(value); degree == 0) {
            ++counts.zero;
        } else if (degree == 1) {
            ++counts.one;
        } else {
            ++counts.partial;
        }
    }
    return counts;
}

struct AgreementCase {
    const char* name;
    const char* file;
    const char* field;
    std::vector<std::string> criterion;
};

void PrintTo(const AgreementCase& c, std::ostream* os) {
    *os << c.name;
}

class PreviewAgreementTest : public PreviewCommandTest,
                             public ::testing::WithParamInterface<AgreementCase> {};

TEST_P(PreviewAgreementTest, countsWhatTheRunWrites) {
    const AgreementCase& c = GetParam();
    const std::string path = Shapefile(c.file);
    std::vector<std::string> preview = {"preview", path, c.field};
    preview.insert(preview.end(), c.criterion.begin(), c.criterion.end());
    const auto shown = Quorel(preview);
    ASSERT_EQ(shown.status, 0) << shown.err;
    Counts counts;
    char extra = '\0';
    ASSERT_EQ(std::sscanf(shown.out.c_str(), "zero %zu\npartial %zu\none %zu\nnull %zu\n%c",
                          &counts.zero, &counts.partial, &counts.one, &counts.null, &extra),
              4)
        << shown.out;
    std::vector<std::string> run = {"run", path, "--field", c.field, "--out", "DEGREE"};
    run.insert(run.end(), c.criterion.begin(), c.criterion.end());
    const auto ran = Quorel(run);
    ASSERT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(counts, WrittenCounts(path, "DEGREE"));
    EXPECT_GT(counts.zero + counts.partial + counts.one, 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PreviewAgreementTest,
    ::testing::Values(
        AgreementCase{"sampleSlopeTrapezoid",
                      "sample",
                      "SLOPE",
                      {"--kind", "5", "-a", "2", "-b", "5.55", "-c", "15.09", "-d", "23.17"}},
        AgreementCase{
            "samplePopulationSingleton", "sample", "POPULATION", {"--kind", "1", "-a", "0"}},
        AgreementCase{"sampleDistanceFallingRamp",
                      "sample",
                      "DISTANCE",
                      {"--kind", "4", "-a", "658.3", "-b", "1144.8"}},
        AgreementCase{
            "edgeTriangle", "edges", "V", {"--kind", "2", "-a", "1.1", "-b", "7.3", "-c", "20.2"}},
        AgreementCase{"edgeRisingRamp", "edges", "V", {"--kind", "3", "-a", "0.7", "-b", "9.9"}}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

struct RefusalCase {
    const char* name;
    std::vector<std::string> arguments; // after "preview SOURCE"
    int status;
    std::vector<std::string> inMessage; // the ids' texts or words the message holds
};

void PrintTo(const RefusalCase& c, std::ostream* os) {
    *os << c.name;
}

class PreviewRefusalTest : public PreviewCommandTest,
                           public ::testing::WithParamInterface<RefusalCase> {};

TEST_P(PreviewRefusalTest, refusesAsTheRunDoes) {
    const std::string path = WritePolygons("data", "parcels", {{"SLOPE", {1, 2}}});
    m_session->module1.InitLanguage(); // the texts the program prints
    std::vector<std::string> arguments = {"preview", path};
    arguments.insert(arguments.end(), GetParam().arguments.begin(), GetParam().arguments.end());
    const auto r = Quorel(arguments);
    EXPECT_EQ(r.status, GetParam().status) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
    for (std::string expected : GetParam().inMessage) {
        if (expected == "132") {
            expected = Text(132) + ":5:2:100000000000000:1E+15";
        }
        EXPECT_NE(r.err.find(expected), std::string::npos) << r.err;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, PreviewRefusalTest,
    ::testing::Values(
        RefusalCase{
            "parametersOutOfOrder", {"SLOPE", "--kind", "3", "-a", "5", "-b", "2"}, 2, {"132"}},
        RefusalCase{"textField", {"NAME", "--kind", "3", "-a", "1", "-b", "2"}, 2, {"NAME"}},
        RefusalCase{"missingField", {"NOPE", "--kind", "3", "-a", "1", "-b", "2"}, 2, {"NOPE"}},
        RefusalCase{"layerNotInTheSource",
                    {"--layer", "roads", "SLOPE", "--kind", "3", "-a", "1", "-b", "2"},
                    64,
                    {"roads", "parcels"}},
        RefusalCase{"noField", {"--kind", "3"}, 64, {}}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST_F(PreviewCommandTest, namedLayerAndPictureOffscreen) {
    const std::string path = Shapefile("edges");
    const std::string png = Folder("out") + "/preview.png";
    const auto r = Quorel({"preview", path, "--layer", "parcels", "V", "--kind", "3", "-a", "0.7",
                           "-b", "9.9", "--png", png});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_EQ(r.out, "zero 1\npartial 5\none 5\nnull 2\n");
    EXPECT_EQ(r.err, "");
    const QImage picture(QString::fromStdString(png));
    EXPECT_GE(picture.width(), 800);
    EXPECT_GE(picture.height(), 500);
}

} // namespace
} // namespace quorel::dialog::test
