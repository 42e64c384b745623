#pragma once

// A throwaway PostgreSQL cluster with PostGIS for the tests: initdb and pg_ctl in a temporary
// folder, listening only on a Unix socket there, run as nobody when the tests run as root (the
// server refuses root). It starts at its first use in a test executable and stops, its folder
// removed, when the executable ends.

#include <string>

namespace quorel::test {

class PostgresCluster {
public:
    // The cluster of this test executable, started on first use; a failure to start throws.
    static PostgresCluster& Instance();

    PostgresCluster(const PostgresCluster&) = delete;
    PostgresCluster& operator=(const PostgresCluster&) = delete;
    ~PostgresCluster();

    const std::string& SocketFolder() const { return m_folder; }
    // A new, empty database with PostGIS, and its source text as the command line takes it:
    // PG:"dbname=... host=... port=... user=...".
    std::string NewDatabase();
    std::string Source(const std::string& database, const std::string& user = "quorel",
                       const std::string& password = "") const;
    // The database a source names.
    static std::string DatabaseOf(const std::string& source);
    // Runs statements in a database as the superuser; a failure throws.
    void Sql(const std::string& database, const std::string& sql) const;
    // The role that must give a password ("right"), for the refusal tests.
    static constexpr const char* kPasswordUser = "quorel_password";

private:
    PostgresCluster();
    void Start();

    std::string m_folder;
    bool m_running = false;
    int m_databases = 0;
};

} // namespace quorel::test
