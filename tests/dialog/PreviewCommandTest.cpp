// quorel preview, run as a program: its counts against the values quorel run writes, its
// refusals, and its picture.

#include "tests/dialog/DialogFixture.h"

#include "tools/sample/SampleData.h"

#include <QImage>

#include <filesystem>
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

// The counts preview shows are those of the degrees run writes, on the sample and on values at
// the break points, where the script's ramp gives a degree a hair away from 0.
TEST_F(PreviewCommandTest, countsWhatTheRunWrites) {
    using Words = std::vector<std::string>;
    for (const auto& [file, field, criterion] :
         {std::tuple{"sample", "SLOPE",
                     Words{"--kind", "5", "-a", "2", "-b", "5.55", "-c", "15.09", "-d", "23.17"}},
          std::tuple{"sample", "POPULATION", Words{"--kind", "1", "-a", "0"}},
          std::tuple{"sample", "DISTANCE", Words{"--kind", "4", "-a", "658.3", "-b", "1144.8"}},
          std::tuple{"edges", "V", Words{"--kind", "2", "-a", "1.1", "-b", "7.3", "-c", "20.2"}},
          std::tuple{"edges", "V", Words{"--kind", "3", "-a", "0.7", "-b", "9.9"}}}) {
        SCOPED_TRACE(std::string(file) + " " + field + " kind " + criterion[1]);
        std::filesystem::remove_all(Folder(file));
        const std::string path = Shapefile(file);
        Words preview = {"preview", path, field};
        preview.insert(preview.end(), criterion.begin(), criterion.end());
        const auto shown = Quorel(preview);
        ASSERT_EQ(shown.status, 0) << shown.err;
        Counts counts;
        char extra = '\0';
        ASSERT_EQ(std::sscanf(shown.out.c_str(), "zero %zu\npartial %zu\none %zu\nnull %zu\n%c",
                              &counts.zero, &counts.partial, &counts.one, &counts.null, &extra),
                  4)
            << shown.out;
        Words run = {"run", path, "--field", field, "--out", "DEGREE"};
        run.insert(run.end(), criterion.begin(), criterion.end());
        const auto ran = Quorel(run);
        ASSERT_EQ(ran.status, 0) << ran.err;
        EXPECT_EQ(counts, WrittenCounts(path, "DEGREE"));
        EXPECT_GT(counts.zero + counts.partial + counts.one, 0u);
    }
}

// Refused as the run refuses, in one line: the parameters out of order, a text or missing field;
// a layer the source lacks, or no field, are usage errors.
TEST_F(PreviewCommandTest, refusesAsTheRunDoes) {
    const std::string path = WritePolygons("data", "parcels", {{"SLOPE", {1, 2}}});
    m_session->module1.InitLanguage(); // the texts the program prints
    using Words = std::vector<std::string>;
    for (const auto& [arguments, status, inMessage] :
         {std::tuple{Words{"SLOPE", "--kind", "3", "-a", "5", "-b", "2"}, 2,
                     Words{Text(132) + ":5:2:100000000000000:1E+15"}},
          std::tuple{Words{"NAME", "--kind", "3", "-a", "1", "-b", "2"}, 2, Words{"NAME"}},
          std::tuple{Words{"NOPE", "--kind", "3", "-a", "1", "-b", "2"}, 2, Words{"NOPE"}},
          std::tuple{Words{"--layer", "roads", "SLOPE", "--kind", "3", "-a", "1", "-b", "2"}, 64,
                     Words{"roads", "parcels"}},
          std::tuple{Words{"--kind", "3"}, 64, Words{}}}) {
        Words all = {"preview", path};
        all.insert(all.end(), arguments.begin(), arguments.end());
        const auto r = Quorel(all);
        EXPECT_EQ(r.status, status) << r.err;
        EXPECT_EQ(r.out, "");
        EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
        for (const std::string& expected : inMessage) {
            EXPECT_NE(r.err.find(expected), std::string::npos) << r.err;
        }
    }
}

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
