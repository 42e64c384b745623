#include "criterion/SqlExpression.h"

#include "tests/support/DegreeCases.h"
#include "util/Error.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>

namespace quorel::criterion {
namespace {

using test::DegreeCase;

struct SqliteCloser {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
};

class SqliteExpressionTest : public ::testing::TestWithParam<DegreeCase> {
protected:
    void SetUp() override {
        sqlite3* db = nullptr;
        ASSERT_EQ(sqlite3_open(":memory:", &db), SQLITE_OK);
        m_db.reset(db);
    }

    // The expression over one value bound as the field; nullopt for Null, and failed when
    // the statement fails.
    std::optional<double> Evaluate(const std::string& expression, std::optional<double> value,
                                   bool& failed) {
        const std::string sql = "SELECT " + expression + " FROM (SELECT ? AS \"we\"\"ird; --\")";
        sqlite3_stmt* statement = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(m_db.get(), sql.c_str(), -1, &statement, nullptr), SQLITE_OK)
            << sqlite3_errmsg(m_db.get());
        if (value) {
            sqlite3_bind_double(statement, 1, *value);
        } else {
            sqlite3_bind_null(statement, 1);
        }
        const int step = sqlite3_step(statement);
        failed = step != SQLITE_ROW;
        if (failed) {
            m_lastError = sqlite3_errmsg(m_db.get());
        }
        std::optional<double> result;
        if (!failed && sqlite3_column_type(statement, 0) != SQLITE_NULL) {
            result = sqlite3_column_double(statement, 0);
        }
        sqlite3_finalize(statement);
        return result;
    }

    std::unique_ptr<sqlite3, SqliteCloser> m_db;
    std::string m_lastError;
};

TEST_P(SqliteExpressionTest, givesTheScriptsDegreesBitForBit) {
    const DegreeCase c = test::Completed(GetParam());
    const std::string expression =
        SqlExpression(kSqlDialectSqlite, c.kind, "we\"ird; --", c.a, c.b, c.c, c.d);
    bool failed = false;
    if (c.fails) {
        EXPECT_THROW(test::ScriptDegree(c, 1.0), Error);
        Evaluate(expression, 1.0, failed);
        EXPECT_TRUE(failed);
        EXPECT_NE(m_lastError.find(c.kind == 2 && c.a < -1e300 ? "Overflow" : "Division by zero"),
                  std::string::npos)
            << m_lastError;
        return;
    }
    std::vector<std::optional<double>> values{std::nullopt};
    for (const double v : test::DegreeValues(c)) {
        values.emplace_back(v);
    }
    for (const auto& value : values) {
        SCOPED_TRACE(value ? std::to_string(*value) : "Null");
        const auto expected = test::ScriptDegree(c, value);
        const auto got = Evaluate(expression, value, failed);
        ASSERT_FALSE(failed) << m_lastError;
        ASSERT_EQ(got.has_value(), expected.has_value());
        if (expected) {
            EXPECT_TRUE(test::SameBits(*got, *expected)) << *got << " " << *expected;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kinds, SqliteExpressionTest, ::testing::ValuesIn(test::DegreeCases()));

TEST(SqlExpressionTest, kindZeroIsNullAndOtherKindsAndDialectsAreRefused) {
    EXPECT_EQ(SqlExpression(kSqlDialectPostgresql, 0, "F", 0, 0, 0, 0),
              "CAST(NULL AS double precision)");
    EXPECT_THROW(SqlExpression(kSqlDialectSqlite, 6, "F", 0, 1, 2, 3), std::invalid_argument);
    EXPECT_THROW(SqlExpression("mysql", 1, "F", 0, 1, 2, 3), std::invalid_argument);
}

} // namespace
} // namespace quorel::criterion
