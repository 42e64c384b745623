// The aggregation and query windows through what the user does: the fields they offer, Calculer
// adding the combined field, the live count as alpha moves and the selection it makes.

#include "dialog/FrmAggregation.h"
#include "dialog/FrmQuery.h"
#include "host/api/Selection.h"
#include "tests/dialog/DialogFixture.h"

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSlider>

#include <cmath>

namespace quorel::dialog::test {
namespace {

class CombinationWindowsTest : public DialogTest {
protected:
    void SetUp() override {
        m_session->module1.InitLanguage();
        // SLOPE lies outside [0, 1]; D2 is Null for the last feature; D1 and FZY_SLOPE carry a
        // criterion record.
        const std::string shp = WritePolygons("data", "parcels",
                                              {{"SLOPE", {3, 12, 40, 7}},
                                               {"D1", {0.2, 0.9, 1, 0.5}},
                                               {"D2", {0.6, 0.4, 0.8}},
                                               {"FZY_SLOPE", {0, 1, 0.25, 0.75}}});
        m_layer = AddLayer(shp);
        const std::string folder = Folder("data");
        for (const char* field : {"D1", "FZY_SLOPE"}) {
            std::string name = "parcels";
            m_session->fzy.fzy_io_open(folder, name);
            m_session->fzy.fzy_io_writenumber(field, field, 5, 2, 5, 15, 25, folder, "parcels");
            m_session->fzy.fzy_io_close();
        }
    }

    static std::vector<std::string> Fields(const CombinationForm& form) {
        std::vector<std::string> names;
        for (int i = 0; i < form.Lst_inputs->count(); ++i) {
            names.push_back(form.Lst_inputs->item(i)->data(Qt::UserRole).toString().toStdString());
        }
        return names;
    }

    static void ChooseOperator(CombinationForm& form, const char* name) {
        form.Cmb_op->setCurrentIndex(form.Cmb_op->findData(QString::fromLatin1(name)));
    }

    // The field's values, Null as NaN.
    std::vector<double> Column(const std::string& field) const {
        const auto cursor = m_layer->Search(false);
        const std::int32_t index = cursor->Fields()->FindField(field);
        std::vector<double> values;
        while (const auto row = cursor->NextRow()) {
            const host::Value value = row->GetValue(index);
            values.push_back(host::IsNull(value) ? NAN : std::get<double>(value));
        }
        return values;
    }

    std::shared_ptr<host::IFeatureLayer> m_layer;
};

TEST_F(CombinationWindowsTest, aggregationOffersRecordedFieldsFirstMarkedThenThoseWithinZeroOne) {
    FrmAggregation window(m_session->state, m_session->texts, m_ui, m_session->log);
    EXPECT_EQ(Fields(window), (std::vector<std::string>{"D1", "FZY_SLOPE", "D2"}));
    EXPECT_TRUE(window.IsMarked("FZY_SLOPE"));
    EXPECT_FALSE(window.IsMarked("D2"));
    EXPECT_EQ(m_session->state.g_layer_name, "parcels");
    EXPECT_EQ(window.Txt_out->text(), QStringLiteral("FZY_AGG"));

    // The query combines criteria only.
    FrmQuery query(m_session->state, m_session->texts);
    EXPECT_EQ(Fields(query), (std::vector<std::string>{"D1", "FZY_SLOPE"}));
}

TEST_F(CombinationWindowsTest, calculerAddsTheCombinedFieldWhichIsThenOfferedMarked) {
    FrmAggregation window(m_session->state, m_session->texts, m_ui, m_session->log);
    window.CheckInputs({"D1", "D2", "FZY_SLOPE"});
    ChooseOperator(window, "product");
    window.Txt_out->setText(QStringLiteral("PROD"));
    ASSERT_EQ(window.cmd_go_Click(), criterion::RunOutcome::Done);

    const std::vector<double> product = Column("PROD");
    ASSERT_EQ(product.size(), 4u);
    const double expected[] = {0.2 * 0.6 * 0, 0.9 * 0.4 * 1, 1 * 0.8 * 0.25};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(product[i], expected[i], 1e-11) << i;
    }
    EXPECT_TRUE(std::isnan(product[3])) << "a Null input gives Null";
    EXPECT_TRUE(window.IsMarked("PROD"));
}

TEST_F(CombinationWindowsTest, aParameterThatIsNotANumberOrDoesNotFitIsRefusedAndNothingAdded) {
    FrmAggregation window(m_session->state, m_session->texts, m_ui, m_session->log);
    window.CheckInputs({"D1", "D2", "FZY_SLOPE"});
    ChooseOperator(window, "mean");
    const std::int32_t fieldCount = m_layer->FeatureClass()->Fields()->FieldCount();
    for (const char* weights : {"1; x; 2", "1; 2"}) {
        SCOPED_TRACE(weights);
        m_ui.boxes.clear();
        window.Txt_weights->setText(QString::fromLatin1(weights));
        EXPECT_EQ(window.cmd_go_Click(), criterion::RunOutcome::Refused);
        ASSERT_EQ(m_ui.boxes.size(), 1u);
        EXPECT_EQ(m_layer->FeatureClass()->Fields()->FieldCount(), fieldCount);
    }
    EXPECT_NE(m_ui.boxes.front().text.find('2'), std::string::npos);
    // Either decimal mark reads.
    window.Txt_weights->setText(QStringLiteral("1; 0,5; 2.5"));
    EXPECT_EQ(window.cmd_go_Click(), criterion::RunOutcome::Done);
}

TEST_F(CombinationWindowsTest, theCountFollowsAlphaAndSelectMakesThoseFeaturesTheSelection) {
    FrmQuery query(m_session->state, m_session->texts);
    query.CheckInputs({"D1"});
    EXPECT_EQ(query.SatisfiedCount(), std::nullopt) << "one criterion is no combination";
    EXPECT_FALSE(query.cmd_select->isEnabled());

    // min(D1, FZY_SLOPE) = 0, 0.9, 0.25, 0.5.
    query.CheckInputs({"D1", "FZY_SLOPE"});
    for (const auto& [alpha, count] :
         std::vector<std::pair<double, std::size_t>>{{0.5, 2}, {0.9, 1}, {0, 4}, {0.26, 2}}) {
        query.SetAlpha(alpha);
        EXPECT_EQ(query.SatisfiedCount(), count) << alpha;
    }
    query.Sld_alpha->setValue(25); // the slider moves the box and the count
    EXPECT_EQ(query.Alpha(), 0.25);
    EXPECT_EQ(query.SatisfiedCount(), 3u);
    EXPECT_NE(query.Lbl_count->text().indexOf(QStringLiteral("3")), -1);

    ChooseOperator(query, "or"); // max = 0.2, 1, 1, 0.75
    query.SetAlpha(0.75);
    ASSERT_EQ(query.SatisfiedCount(), 3u);
    ASSERT_TRUE(query.cmd_select->isEnabled());
    query.cmd_select_Click();
    const host::IFeatureSelection* selection = host::SelectionOf(m_layer);
    ASSERT_TRUE(selection != nullptr);
    EXPECT_EQ(selection->SelectedIds(), (std::vector<std::int64_t>{1, 2, 3}));
    EXPECT_NE(m_app->StatusBar()->MessageText(0).find('3'), std::string::npos);
}

TEST(OperatorPictureTest, degreesGrowTowardsTheTopRightAndAndDiffersFromOr) {
    const auto pixel = [](criterion::AggregationOperator op, int x, int y) {
        criterion::Aggregation aggregation;
        aggregation.op = op;
        return QColor(OperatorPicture(aggregation, 20).pixel(x, y)).green();
    };
    using Op = criterion::AggregationOperator;
    // Light yellow is greener than deep green: green falls as the degree rises.
    EXPECT_GT(pixel(Op::And, 2, 17), pixel(Op::And, 17, 2));
    EXPECT_GT(pixel(Op::And, 17, 17), pixel(Op::Or, 17, 17)) << "x high, y low";
    EXPECT_EQ(pixel(Op::And, 2, 10), pixel(Op::And, 2, 17)) << "the minimum stays at x";
}

} // namespace
} // namespace quorel::dialog::test
