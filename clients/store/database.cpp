#include "store/database.h"

#include <charconv>
#include <cstring>
#include <vector>

namespace store {

namespace {

/// The first line: the others repeat the statement.
std::string first_line(const char* text) {
    const std::string_view all(text == nullptr ? "" : text);
    return std::string(all.substr(0, all.find('\n')));
}

void be_silent(void* /*argument*/, const PGresult* /*notice*/) {}

}  // namespace

bool DatabaseError::is_of_data() const {
    return sqlstate.starts_with("22") || sqlstate.starts_with("23") || sqlstate.starts_with("54");
}

long Result::number(int row, int column) const {
    const char* const value = text(row, column);
    long found = 0;
    std::from_chars(value, value + std::strlen(value), found);
    return found;
}

long Result::written() const {
    const char* const value = ::PQcmdTuples(result.get());
    long found = 0;
    std::from_chars(value, value + std::strlen(value), found);
    return found;
}

Database::Database(const std::string& conninfo) {
    // What stands in front of the keeper's words is overridden by them. A cut network is noticed within a minute.
    const char* const names[] = {"application_name", "connect_timeout",     "tcp_user_timeout",
                                 "keepalives_idle",  "keepalives_interval", "keepalives_count",
                                 "dbname",           "client_encoding",     nullptr};
    const char* const values[] = {"heatmeter-store", "10", "30000", "20", "10", "3", conninfo.c_str(), "UTF8", nullptr};
    connection.reset(::PQconnectdbParams(names, values, 1));
    if (::PQstatus(connection.get()) != CONNECTION_OK) fail(nullptr);
    ::PQsetNoticeReceiver(connection.get(), be_silent, nullptr);
    const char* const encoding = ::PQparameterStatus(connection.get(), "server_encoding");
    if (encoding == nullptr || std::string_view(encoding) != "UTF8") {
        throw DatabaseError("the database is not in UTF8: make one with createdb --encoding UTF8 --template template0",
                            "");
    }
}

void Database::fail(const PGresult* result) {
    const char* const code = result == nullptr ? nullptr : ::PQresultErrorField(result, PG_DIAG_SQLSTATE);
    throw DatabaseError(first_line(::PQerrorMessage(connection.get())), code == nullptr ? "" : code);
}

Result Database::check(PGresult* pg_result) {
    Result result(pg_result);
    const ExecStatusType status = ::PQresultStatus(result.get());
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK && status != PGRES_COPY_IN) fail(result.get());
    return result;
}

Result Database::run(const std::string& sql, std::initializer_list<std::string_view> parameters) {
    // libpq wants texts with an end.
    const std::vector<std::string> texts(parameters.begin(), parameters.end());
    std::vector<const char*> values;
    values.reserve(texts.size());
    for (const std::string& text : texts) values.push_back(text.c_str());
    return check(::PQexecParams(connection.get(), sql.c_str(), static_cast<int>(values.size()), nullptr, values.data(),
                                nullptr, nullptr, 0));
}

void Database::run_all(const std::string& sql) {
    check(::PQexec(connection.get(), sql.c_str()));
}

void Database::copy(const std::string& sql, std::string_view rows) {
    check(::PQexec(connection.get(), sql.c_str()));
    if (::PQputCopyData(connection.get(), rows.data(), static_cast<int>(rows.size())) != 1 ||
        ::PQputCopyEnd(connection.get(), nullptr) != 1) {
        fail(nullptr);
    }
    const Result result(::PQgetResult(connection.get()));
    const bool is_done = ::PQresultStatus(result.get()) == PGRES_COMMAND_OK;
    if (!is_done) fail(result.get());
    ::PQclear(::PQgetResult(connection.get()));  // null: the end
}

void TextArray::add(std::string_view text) {
    elements += elements.empty() ? "{\"" : ",\"";
    for (const char character : text) {
        if (character == '"' || character == '\\') elements += '\\';
        elements += character;
    }
    elements += '"';
}

}  // namespace store
