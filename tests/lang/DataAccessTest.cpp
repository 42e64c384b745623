#include "lang/DataAccess.h"

#include "LangFixtures.h"
#include "lang/LanguageList.h"
#include "lang/SelectStatement.h"
#include "lang/SettingsStore.h"
#include "tests/support/RecordingMessageUi.h"
#include "util/Error.h"
#include "util/MessageUi.h"

#include "tests/support/Thrown.h"

#include <gtest/gtest.h>

#include <fstream>

namespace quorel::lang {
namespace {

using quorel::test::Thrown;

using testing_support::MakeSqliteDatabase;
using testing_support::ScratchFolder;

const std::string kAccessSample = QUOREL_ACCESS_SAMPLE;

class DataAccessTest : public testing::Test {
protected:
    std::string SqliteFile(const std::string& sql = testing_support::kFrEnTable) {
        const std::string path = m_scratch.File("text.mdb");
        MakeSqliteDatabase(path, sql);
        return path;
    }

    std::shared_ptr<IDatabase> Opened(const std::string& path) {
        std::shared_ptr<IDatabase> db;
        m_dao.DAO_Open(db, path, true);
        return db;
    }

    ScratchFolder m_scratch;
    util::RecordingMessageUi m_ui;
    DataAccess m_dao{m_ui};
};

TEST_F(DataAccessTest, choosesTheEngineFromTheFirstBytes) {
    EXPECT_EQ(DetectEngine(SqliteFile()), DatabaseEngine::Sqlite);
    EXPECT_EQ(DetectEngine(kAccessSample), DatabaseEngine::Access);
    const std::string other = m_scratch.File("other.mdb");
    std::ofstream(other) << "Standard Jet DB, but not at the right place, and long enough";
    EXPECT_EQ(DetectEngine(other), DatabaseEngine::Unknown);
    EXPECT_EQ(DetectEngine(m_scratch.File("missing.mdb")), DatabaseEngine::Unknown);
}

TEST_F(DataAccessTest, missingDatabaseRaisesError1000WhateverTheCallerAsks) {
    const std::string path = m_scratch.File("missing.mdb");
    for (bool raise : {true, false}) {
        std::shared_ptr<IDatabase> db;
        const Error e = Thrown([&] { m_dao.DAO_Open(db, path, raise); });
        EXPECT_EQ(e.Number(), -2147220504);
        EXPECT_EQ(e.Source(), "DAO_Open");
        EXPECT_EQ(e.Description(), "Database not found:\r\n" + path);
        EXPECT_EQ(db, nullptr);
    }
}

TEST_F(DataAccessTest, unreadableDatabaseRaisesOrReturnsTheEnginesDescription) {
    const std::string path = m_scratch.File("text.mdb");
    std::ofstream(path) << "this is not a database at all, only some text in a file";
    std::shared_ptr<IDatabase> db;
    const Error e = Thrown([&] { m_dao.DAO_Open(db, path, true); });
    EXPECT_EQ(e.Number(), kErrorOpenDatabase);
    EXPECT_EQ(e.Description(), "Error open database:\r\n" + path);
    const std::string description = m_dao.DAO_Open(db, path, false);
    EXPECT_FALSE(description.empty());
    EXPECT_EQ(db, nullptr);
}

TEST_F(DataAccessTest, sharedFolderPrefixIsRewrittenEverywhereInThePath) {
    DataAccess dao(m_ui, SharedFolderRewrite{"//server/share", m_scratch.Path()});
    EXPECT_EQ(dao.RewriteSharedFolder("//server/share/texts/text.mdb"),
              m_scratch.Path() + "/texts/text.mdb");
    EXPECT_EQ(dao.RewriteSharedFolder("/local/text.mdb"), "/local/text.mdb");
    EXPECT_EQ(dao.RewriteSharedFolder("//SERVER/share/text.mdb"), "//SERVER/share/text.mdb");
    EXPECT_EQ(dao.RewriteSharedFolder("a//server/share//server/share"),
              "a" + m_scratch.Path() + m_scratch.Path());
    SqliteFile();
    std::shared_ptr<IDatabase> db;
    EXPECT_EQ(dao.DAO_Open(db, "//server/share/text.mdb", true), "");
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(db->Path(), m_scratch.File("text.mdb"));
    // A missing file names the rewritten path.
    const Error e = Thrown([&] { dao.DAO_Open(db, "//server/share/none.mdb", false); });
    EXPECT_EQ(e.Description(), "Database not found:\r\n" + m_scratch.File("none.mdb"));
}

TEST_F(DataAccessTest, sharedFolderPrefixComesFromTheSiteSettings) {
    IniSettingsStore settings(m_scratch.Dir() / "config");
    EXPECT_EQ(SharedFolderRewriteFromSettings(settings), std::nullopt);
    settings.SaveSetting(kSettingsApplication, "site", "SharedFolderPrefix", "//srv/gis");
    // Without its replacement the prefix would only be stripped from paths.
    EXPECT_THROW(SharedFolderRewriteFromSettings(settings), SharedFolderReplacementMissing);
    settings.SaveSetting(kSettingsApplication, "site", "SharedFolderReplacement", "/mnt/gis");
    const auto rewrite = SharedFolderRewriteFromSettings(settings);
    ASSERT_TRUE(rewrite.has_value());
    EXPECT_EQ(rewrite->prefix, "//srv/gis");
    EXPECT_EQ(rewrite->replacement, "/mnt/gis");
}

// The statements that fail on a missing column or table give error 1001 with the same layout on
// both engines, whether the database is named or only open.
TEST_F(DataAccessTest, aBadStatementRaisesError1001WithTheStatementAndThePath) {
    const std::string sqlite = SqliteFile();
    for (const auto& [access, sql] :
         {std::pair{false, "SELECT id, de FROM tblText"},
          std::pair{false, "SELECT id, fr FROM tblNone"},
          std::pair{true, "SELECT A, Z FROM Table1"}, std::pair{true, "SELECT id, fr FROM tblText"},
          std::pair{true, "DELETE FROM Table1"}}) {
        const std::string path = access ? kAccessSample : sqlite;
        auto db = Opened(path);
        for (const std::string& dbPath : {path, std::string()}) {
            SCOPED_TRACE(std::string(sql) + " on " + path);
            std::unique_ptr<IRecordset> rs;
            const Error e = Thrown([&] { m_dao.DAO_OpenRs(db, rs, dbPath, sql); });
            EXPECT_EQ(e.Number(), -2147220503);
            EXPECT_EQ(e.Source(), "DAO_OpenRs");
            const std::string head =
                std::string("Error SQL:") + sql + "\r\non database\r\n" + dbPath + "\r\nError: ";
            EXPECT_EQ(e.Description().substr(0, head.size()), head);
            EXPECT_GT(e.Description().size(), head.size()) << "the engine's description is missing";
            EXPECT_EQ(rs, nullptr);
        }
    }
}

TEST_F(DataAccessTest, maxValueReadsTheHighestValueOrNullOnBothEngines) {
    auto sqlite = Opened(SqliteFile());
    EXPECT_EQ(m_dao.DAO_MaxValue(sqlite.get(), "tblText", "id", true), DbValue(3.0));
    EXPECT_EQ(m_dao.DAO_MaxValue(sqlite.get(), "tblText", "en", true), DbValue("zero"));
    auto access = Opened(kAccessSample);
    EXPECT_EQ(m_dao.DAO_MaxValue(access.get(), "Table1", "D", true), DbValue(222.0));
    EXPECT_EQ(m_dao.DAO_MaxValue(access.get(), "Table1", "F", true), DbValue(444.555));
    EXPECT_EQ(m_dao.DAO_MaxValue(access.get(), "table1", "a", true), DbValue("abcdefg"));
    EXPECT_EQ(m_dao.DAO_SQL2Value(access.get(), "SELECT count(*) FROM Table1", true), DbValue(2.0));
    EXPECT_EQ(m_dao.DAO_SQL2Value(access.get(), "SELECT min(E) FROM Table1", true), DbValue(0.0));
    // An empty table's is Null.
    EXPECT_TRUE(IsNull(m_dao.DAO_MaxValue(access.get(), "Table4", "name", true)));
    auto empty = Opened(SqliteFile("CREATE TABLE tblEmpty (id INTEGER);"));
    EXPECT_TRUE(IsNull(m_dao.DAO_MaxValue(empty.get(), "tblEmpty", "id", true)));
    EXPECT_TRUE(m_ui.boxes.empty());
}

// A copy of the genuine Access sample whose second row of Table1 holds a Null in A and an empty
// text in B, as Access writes them: the null mask's bit cleared for A; both values zero bytes long.
std::string AccessSampleWithNullAndEmptyText(const ScratchFolder& scratch) {
    std::string bytes = quorel::test::ReadBytes(kAccessSample);
    // The row ends with A and B ("a", "b" in UTF-16), the end of its data (37), the offsets of
    // B (35) and A (33), the number of variable columns (2) and the null mask.
    const std::string tail("a\0b\0\x25\0\x23\0\x21\0\x02\0\xFF\0", 14);
    const auto at = bytes.find(tail);
    EXPECT_NE(at, std::string::npos);
    EXPECT_EQ(bytes.find(tail, at + 1), std::string::npos);
    if (at != std::string::npos) {
        bytes[at + 4] = '\x21';  // the data ends where A starts,
        bytes[at + 6] = '\x21';  // and so does B: both are zero bytes long;
        bytes[at + 12] = '\xFE'; // A's bit cleared: A is Null, B is not.
    }
    const std::string path = scratch.File("nulls.mdb");
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
}

TEST_F(DataAccessTest, accessTellsAnEmptyTextFromNull) {
    auto db = Opened(AccessSampleWithNullAndEmptyText(m_scratch));
    std::unique_ptr<IRecordset> rs;
    m_dao.DAO_OpenRs(db, rs, "", "SELECT A, B, C FROM Table1");
    ASSERT_FALSE(rs->Eof());
    EXPECT_EQ(rs->Field(1), DbValue("hijklmnop"));
    rs->MoveNext();
    ASSERT_FALSE(rs->Eof());
    EXPECT_TRUE(IsNull(rs->Field(0)));
    EXPECT_EQ(rs->Field(1), DbValue(""));
    EXPECT_EQ(rs->Field(2), DbValue(0.0));
    EXPECT_EQ(m_dao.DAO_SQL2Value(db.get(), "SELECT count(A) FROM Table1", true), DbValue(1.0));
    EXPECT_EQ(m_dao.DAO_SQL2Value(db.get(), "SELECT count(B) FROM Table1", true), DbValue(2.0));
    EXPECT_EQ(m_dao.DAO_SQL2Value(db.get(), "SELECT min(B) FROM Table1", true), DbValue(""));
}

TEST_F(DataAccessTest, failingValueShowsTheBoxOnlyWhenAskedAndGivesEmpty) {
    auto db = Opened(SqliteFile());
    EXPECT_TRUE(IsEmpty(m_dao.DAO_MaxValue(db.get(), "tblNone", "id", false)));
    EXPECT_TRUE(m_ui.boxes.empty());
    EXPECT_TRUE(IsEmpty(m_dao.DAO_MaxValue(db.get(), "tblNone", "id", true)));
    ASSERT_EQ(m_ui.boxes.size(), 1u);
    EXPECT_EQ(m_ui.boxes[0].title, "DAO_SQL2Value");
    EXPECT_EQ(m_ui.boxes[0].icon, util::MessageIcon::Critical);
    const std::string& text = m_ui.boxes[0].text;
    EXPECT_NE(text.find("tblNone"), std::string::npos);
    const std::string tail = "\r\nSQL=SELECT max(id) FROM tblNone";
    ASSERT_GT(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    // No database at all behaves the same way.
    EXPECT_TRUE(IsEmpty(m_dao.DAO_SQL2Value(nullptr, "SELECT 1", true)));
    EXPECT_EQ(m_ui.boxes.size(), 2u);
}

TEST_F(DataAccessTest, fieldListKeepsEveryColumnButLowerCaseIdOrTheOldListOnFailure) {
    auto db = Opened(SqliteFile("CREATE TABLE tblText (fr TEXT, id INTEGER, en TEXT, Id2 TEXT);"
                                "CREATE TABLE tblUpper (fr TEXT, ID INTEGER, en TEXT);"));
    PlainListControl list;
    list.items = {"old"};
    EXPECT_EQ(m_dao.DAO_FillFieldList(db.get(), "tblText", list), "");
    EXPECT_EQ(list.items, (std::vector<std::string>{"fr", "en", "Id2"}));
    EXPECT_EQ(m_dao.DAO_FillFieldList(db.get(), "tblUpper", list), "");
    EXPECT_EQ(list.items, (std::vector<std::string>{"fr", "ID", "en"}));
    // A missing table or database is reported and the list kept.
    EXPECT_NE(m_dao.DAO_FillFieldList(db.get(), "tblNone", list), "");
    EXPECT_NE(m_dao.DAO_FillFieldList(nullptr, "tblText", list), "");
    EXPECT_EQ(list.items, (std::vector<std::string>{"fr", "ID", "en"}));
}

TEST_F(DataAccessTest, accessFileListsItsColumnsAndReadsItsRowsOpeningItFromThePath) {
    std::shared_ptr<IDatabase> db;
    EXPECT_EQ(m_dao.DAO_Open(db, kAccessSample, true), "");
    PlainListControl list;
    EXPECT_EQ(m_dao.DAO_FillFieldList(db.get(), "Table1", list), "");
    EXPECT_EQ(list.items, (std::vector<std::string>{"A", "B", "C", "D", "E", "F", "G", "H", "I"}));
    EXPECT_NE(m_dao.DAO_FillFieldList(db.get(), "tblText", list), "");
    // Without an open database the path names the one to open.
    db.reset();
    std::unique_ptr<IRecordset> rs;
    m_dao.DAO_OpenRs(db, rs, kAccessSample, "SELECT [A], e, F FROM Table1");
    ASSERT_NE(db, nullptr);
    ASSERT_EQ(rs->FieldCount(), 3);
    ASSERT_FALSE(rs->Eof());
    EXPECT_EQ(rs->Field(0), DbValue("abcdefg"));
    EXPECT_EQ(rs->Field(1), DbValue(333333333.0));
    EXPECT_EQ(rs->Field(2), DbValue(444.555));
    rs->MoveNext();
    EXPECT_EQ(rs->Field(0), DbValue("a"));
    rs->MoveNext();
    EXPECT_TRUE(rs->Eof());
}

TEST(SelectStatementTest, acceptsOnlyTheStatementsTheComponentRuns) {
    for (const auto& [sql, items, table] :
         {std::tuple{"SELECT max(id) FROM tblText", 1u, "tblText"},
          std::tuple{"select id, fr from tblText;", 2u, "tblText"},
          std::tuple{"SELECT [My col], count(*) FROM [My table]", 2u, "My table"},
          std::tuple{"SELECT * FROM t", 1u, "t"}}) {
        const auto statement = ParseSelect(sql);
        ASSERT_TRUE(statement.has_value()) << sql;
        EXPECT_EQ(statement->items.size(), items) << sql;
        EXPECT_EQ(statement->table, table) << sql;
    }
    for (const char* sql : {"SELECT id, FROM tblText", "SELECT sum(id) FROM tblText",
                            "SELECT id FROM tblText WHERE id = 1", "UPDATE tblText SET fr = 1",
                            "SELECT max(id FROM tblText"}) {
        EXPECT_FALSE(ParseSelect(sql).has_value()) << sql;
    }
}

} // namespace
} // namespace quorel::lang
