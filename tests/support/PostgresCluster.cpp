#include "tests/support/PostgresCluster.h"

#include "tests/support/Unprivileged.h"

#include <libpq-fe.h>

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>
#include <vector>

namespace quorel::test {
namespace {

constexpr const char* kBin = "/usr/lib/postgresql/15/bin/";
constexpr const char* kPort = "5432";

// Runs a server program as the cluster's owner, its output appended to log; its exit status.
int RunAsOwner(const std::vector<std::string>& arguments, const std::string& log) {
    return RunUnprivileged([&] {
        const int fd = ::open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        if (fd >= 0) {
            ::dup2(fd, 1);
            ::dup2(fd, 2);
        }
        std::vector<char*> argv;
        for (const auto& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        return 127;
    });
}

std::string LogTail(const std::string& log) {
    std::ifstream in(log);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return text.size() > 2000 ? text.substr(text.size() - 2000) : text;
}

} // namespace

PostgresCluster& PostgresCluster::Instance() {
    static PostgresCluster cluster;
    return cluster;
}

PostgresCluster::PostgresCluster() {
    std::string pattern = (std::filesystem::temp_directory_path() / "quorel-pg-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) {
        throw std::runtime_error("cannot make the cluster's folder");
    }
    m_folder = pattern;
    if (::geteuid() == 0 && ::chown(m_folder.c_str(), kNobody, kNoGroup) != 0) {
        throw std::runtime_error("cannot give the cluster's folder to nobody");
    }
    Start();
}

void PostgresCluster::Start() {
    const std::string data = m_folder + "/data";
    const std::string log = m_folder + "/server.log";
    if (RunAsOwner({std::string(kBin) + "initdb", "-D", data, "-U", "quorel", "-A", "trust", "-E",
                    "UTF8", "--locale=C", "--no-sync"},
                   log) != 0) {
        throw std::runtime_error("initdb failed:\n" + LogTail(log));
    }
    // One role must give its password; every other connects on trust over the socket.
    std::ofstream(data + "/pg_hba.conf", std::ios::trunc)
        << "local all " << kPasswordUser << " scram-sha-256\nlocal all all trust\n";
    if (RunAsOwner({std::string(kBin) + "pg_ctl", "-D", data, "-l", m_folder + "/postgres.log",
                    "-w", "-o",
                    "-k " + m_folder + " -p " + kPort +
                        " -c listen_addresses= -c fsync=off -c full_page_writes=off",
                    "start"},
                   log) != 0) {
        throw std::runtime_error("pg_ctl start failed:\n" + LogTail(log) + "\n" +
                                 LogTail(m_folder + "/postgres.log"));
    }
    m_running = true;
    Sql("postgres", "CREATE DATABASE quorel_template");
    Sql("quorel_template", "CREATE EXTENSION postgis");
    Sql("postgres", std::string("CREATE ROLE ") + kPasswordUser + " LOGIN PASSWORD 'right'");
}

PostgresCluster::~PostgresCluster() {
    if (m_running) {
        RunAsOwner({std::string(kBin) + "pg_ctl", "-D", m_folder + "/data", "-m", "immediate", "-w",
                    "stop"},
                   m_folder + "/server.log");
    }
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

std::string PostgresCluster::NewDatabase() {
    const std::string name = "quorel_test_" + std::to_string(++m_databases);
    Sql("postgres", "CREATE DATABASE " + name + " TEMPLATE quorel_template");
    return name;
}

std::string PostgresCluster::Source(const std::string& database, const std::string& user,
                                    const std::string& password) const {
    return "PG:\"dbname=" + database + " host=" + m_folder + " port=" + kPort + " user=" + user +
           (password.empty() ? "" : " password=" + password) + "\"";
}

std::string PostgresCluster::DatabaseOf(const std::string& source) {
    const auto start = source.find("dbname=") + 7;
    return source.substr(start, source.find(' ', start) - start);
}

void PostgresCluster::Sql(const std::string& database, const std::string& sql) const {
    const std::string info =
        "dbname=" + database + " host=" + m_folder + " port=" + kPort + " user=quorel";
    PGconn* connection = PQconnectdb(info.c_str());
    std::string failure;
    if (PQstatus(connection) != CONNECTION_OK) {
        failure = PQerrorMessage(connection);
    } else {
        PGresult* result = PQexec(connection, sql.c_str());
        const auto status = PQresultStatus(result);
        if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
            failure = PQresultErrorMessage(result);
        }
        PQclear(result);
    }
    PQfinish(connection);
    if (!failure.empty()) {
        throw std::runtime_error(sql + ": " + failure);
    }
}

} // namespace quorel::test
